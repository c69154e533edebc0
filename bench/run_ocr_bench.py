#!/usr/bin/python3
"""Side-by-side OCR benchmark: kem-vision-ocr against plain tesseract.

On every page of the generated corpus (bench/make_ocr_corpus.py; built on the
first run) this runs
  - the helper on the page PNG:
        kem-vision-ocr --input PAGE.png --artifacts FRESH_DIR --json
    and reads FRESH_DIR/ocr.txt; and likewise on PAGE.scan.pdf, an image-only
    PDF that holds exactly the PNG's pixels at 200 dpi (a PNG says its
    resolution only in an optional pHYs chunk; a PDF page always has one).
    Poppler smooths an embedded image a little even at 1:1, so what the
    helper recognises there is close to, not byte-identical with, the PNG;
  - the plain pipeline, for L in eng, chi_sim, chi_tra, chi_sim+chi_tra+eng:
        OMP_THREAD_LIMIT=1 tesseract PAGE.png - -l L --psm 3
    whose time includes the rasterisation of the page
        pdftoppm -r 200 -png PAGE.pdf
    (run and timed once per page; it must reproduce the corpus PNG byte for byte).

It prints, per configuration, the character error rate of each kind of page
(Levenshtein distance / reference length, all white space removed from both
texts; a kind's figure is total edits / total reference characters), the
seconds per page and the peak resident memory of one run, plus the ratio of
the helper's total time to the plain chi_sim+chi_tra+eng total. The same table,
a per-page table and an error analysis go to OUT/results.md; the recognised
texts to OUT/text/<configuration>/<page>.txt and everything measured to
OUT/results.json.

Every command runs with OMP_THREAD_LIMIT=1. Wall time and peak RSS come from
wait4() on the process itself. The order of the configurations rotates from
page to page so that slow drifts in machine load do not favour one of them.

Usage: run_ocr_bench.py [--pages N] [--kinds en,sc,tc,mix] [--ids ID,...]
                        [--helper PATH | --no-helper] [--helper-input png,pdf]
                        [--helper-mode text|layout]
                        [--plain L,...] [--jobs N] [--out DIR] [--corpus DIR]
                        [--rebuild-corpus]
Needs /usr/bin/python3 (python3-cairo, python3-pil, python3-fonttools),
tesseract-ocr with eng, chi-sim and chi-tra, poppler-utils, manpages-zh, a C
compiler (cc) for the edit distance.
"""

import argparse
import concurrent.futures
import datetime
import hashlib
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unicodedata

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
sys.path.insert(0, HERE)
import make_ocr_corpus  # noqa: E402
from ocr_bench_common import (EditDistance, build_corpus, fmt_pct, git_revision, helper_digest,  # noqa: E402
                              is_han, machine_description, measure, render, run_helper,
                              squash)

KINDS = make_ocr_corpus.KINDS
KIND_TITLES = {"en": "English", "sc": "Simplified", "tc": "Traditional", "mix": "Mixed"}
PLAIN_LANGS = ["eng", "chi_sim", "chi_tra", "chi_sim+chi_tra+eng"]
THREE = "chi_sim+chi_tra+eng"
HELPER = "helper"          # the helper on the page PNG
HELPER_PDF = "helper-pdf"  # the helper on an image-only PDF of the same pixels
HELPERS = (HELPER, HELPER_PDF)
TESSDATA = "/usr/share/tesseract-ocr/5/tessdata"


def config_title(config):
    if config == HELPER:
        return "kem-vision-ocr (PNG)"
    if config == HELPER_PDF:
        return "kem-vision-ocr (image-only PDF)"
    return f"tesseract {config}"


# ---------------------------------------------------------------- processes

def run_page(page, corpus, args, configs, work, rotation):
    pid = page["id"]
    png = os.path.join(corpus, pid + ".png")
    pdf = os.path.join(corpus, pid + ".pdf")
    env = dict(os.environ, OMP_THREAD_LIMIT="1", LC_ALL="C.UTF-8")
    result = {"id": pid, "kind": page["kind"], "runs": {}}

    # Rasterisation, the plain pipeline's first step (timed once per page).
    raster_dir = tempfile.mkdtemp(prefix=pid + "-raster-", dir=work)
    rc, seconds, rss = measure(["pdftoppm", "-r", "200", "-png", "-singlefile", pdf,
                                os.path.join(raster_dir, "page")], os.devnull, env)
    with open(png, "rb") as f1, open(os.path.join(raster_dir, "page.png"), "rb") as f2:
        same = hashlib.sha256(f1.read()).digest() == hashlib.sha256(f2.read()).digest()
    result["raster"] = {"exit": rc, "seconds": seconds, "rss_kib": rss, "identical_to_corpus": same}
    shutil.rmtree(raster_dir)

    order = configs[rotation % len(configs):] + configs[:rotation % len(configs)]
    for config in order:
        text_path = os.path.join(args.out, "text", config, pid + ".txt")
        if config in HELPERS:
            source = png if config == HELPER else os.path.join(corpus, pid + ".scan.pdf")
            text, run = run_helper(args.helper, source, work, env, args.helper_mode, prefix=pid + "-helper-")
            with open(text_path, "w", encoding="utf-8") as f:
                f.write(text)
            result["runs"][config] = run
        else:
            rc, seconds, rss = measure(["tesseract", png, "-", "-l", config, "--psm", "3"],
                                       text_path, env)
            result["runs"][config] = {"exit": rc, "seconds": seconds, "rss_kib": rss,
                                      "error": None if rc == 0 else f"exit {rc}",
                                      "ocr_seconds": seconds}
            # The plain pipeline = rasterise + recognise.
            result["runs"][config]["seconds"] = seconds + result["raster"]["seconds"]
            result["runs"][config]["rss_kib"] = max(rss, result["raster"]["rss_kib"])
    return result


# ---------------------------------------------------------------- scoring

def score(results, corpus, out, configs, dist):
    """Adds edits / reference length (plain and NFKC-folded) and the error columns."""
    for r in results:
        with open(os.path.join(corpus, r["id"] + ".gt.txt"), encoding="utf-8") as f:
            ref = squash(f.read())
        r["ref_chars"] = len(ref)
        ref_nfkc = unicodedata.normalize("NFKC", ref)
        r["ref_chars_nfkc"] = len(ref_nfkc)
        for config in configs:
            run = r["runs"][config]
            with open(os.path.join(out, "text", config, r["id"] + ".txt"), encoding="utf-8") as f:
                hyp = squash(f.read())
            run["edits"] = dist.distance(ref, hyp)
            run["edits_nfkc"] = dist.distance(ref_nfkc, unicodedata.normalize("NFKC", hyp))
            # A failed run scores as empty output but says nothing about confusions.
            run["ops"] = None if run["error"] else dist.align(ref, hyp)


def aggregate(results, configs):
    """{config: {kind or 'all': {cer, cer_nfkc, pages, seconds, rss}}}"""
    table = {}
    for config in configs:
        table[config] = {}
        for kind in KINDS + ["all"]:
            rows = [r for r in results if kind == "all" or r["kind"] == kind]
            if not rows:
                continue
            runs = [r["runs"][config] for r in rows]
            ref = sum(r["ref_chars"] for r in rows)
            ref_nfkc = sum(r["ref_chars_nfkc"] for r in rows)
            table[config][kind] = {
                "pages": len(rows),
                "failures": sum(1 for x in runs if x["error"]),
                "cer": sum(x["edits"] for x in runs) / max(ref, 1),
                "cer_nfkc": sum(x["edits_nfkc"] for x in runs) / max(ref_nfkc, 1),
                "seconds": sum(x["seconds"] for x in runs),
                "seconds_per_page": sum(x["seconds"] for x in runs) / len(rows),
                "rss_mib": max(x["rss_kib"] for x in runs) / 1024,
            }
    return table


# ---------------------------------------------------------------- unicharsets

def unicharsets(work):
    """The characters the chi_sim and chi_tra models can output."""
    sets = {}
    for lang in ("chi_sim", "chi_tra"):
        target = os.path.join(work, lang + ".lstm-unicharset")
        try:
            subprocess.run(["combine_tessdata", "-e", os.path.join(TESSDATA, lang + ".traineddata"),
                            target], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
            with open(target, encoding="utf-8") as f:
                lines = f.read().splitlines()[1:]
            sets[lang] = {line.split(" ")[0] for line in lines if line}
        except (OSError, subprocess.CalledProcessError):
            return None
    return sets



# ---------------------------------------------------------------- report


def main_table(table, configs, kinds, markdown):
    head = ["configuration"] + [f"{KIND_TITLES[k]} CER ({table[configs[0]][k]['pages']} p)" for k in kinds]
    head += ["all CER", "s/page", "peak RSS MiB"]
    best = {k: min(table[c][k]["cer"] for c in configs) for k in kinds + ["all"]}
    rows = []
    for c in configs:
        cells = [config_title(c) + (" (+pdftoppm)" if c not in HELPERS else "")]
        for k in kinds + ["all"]:
            cell = fmt_pct(table[c][k]["cer"])
            if table[c][k]["failures"]:
                cell += f" [{table[c][k]['failures']} failed]"
            if markdown and table[c][k]["cer"] == best[k] and len(configs) > 1:
                cell = f"**{cell}**"
            cells.append(cell)
        cells += [f"{table[c]['all']['seconds_per_page']:.2f}", f"{table[c]['all']['rss_mib']:.0f}"]
        rows.append(cells)
    return render(head, rows, markdown)



def kind_seconds_table(table, configs, kinds, markdown):
    head = ["configuration"] + [f"{KIND_TITLES[k]} s/page" for k in kinds] + ["all s/page", "total s"]
    rows = []
    for c in configs:
        rows.append([config_title(c)] + [f"{table[c][k]['seconds_per_page']:.2f}" for k in kinds + ["all"]]
                    + [f"{table[c]['all']['seconds']:.1f}"])
    return render(head, rows, markdown)


def ratio_line(table, results, configs):
    raster = sum(r["raster"]["seconds"] for r in results)
    parts = [f"rasterisation (pdftoppm -r 200): {raster / len(results):.2f} s/page, "
             f"included in every plain column"]
    for helper in HELPERS:
        if helper not in configs or THREE not in configs:
            continue
        h, t = table[helper]["all"]["seconds"], table[THREE]["all"]["seconds"]
        if table[helper]["all"]["failures"] == table[helper]["all"]["pages"]:
            parts.append(f"{config_title(helper)}: time ratio n/a (failed on every page)")
        else:
            parts.append(f"total {config_title(helper)} time {h:.1f} s vs plain {THREE} {t:.1f} s "
                         f"(with rasterisation): ratio {h / t:.2f}")
    return parts


def analysis(results, configs, kinds, sets):
    """Markdown: error make-up per kind and configuration, and the most common confusions."""
    out = []
    out.append("### Error make-up (substitutions / deletions / insertions)\n")
    head = ["configuration"] + [KIND_TITLES[k] for k in kinds]
    rows = []
    for c in configs:
        cells = [config_title(c)]
        for k in kinds:
            s = d = i = 0
            for r in results:
                if r["kind"] != k or r["runs"][c]["ops"] is None:
                    continue
                for a, b in r["runs"][c]["ops"]:
                    if a is None:
                        i += 1
                    elif b is None:
                        d += 1
                    else:
                        s += 1
            cells.append(f"{s} / {d} / {i}")
        rows.append(cells)
    out.append(render(head, rows, True))
    out.append("\nCER with both texts NFKC-folded (full-width punctuation and letters = ASCII):\n")
    head = ["configuration"] + [KIND_TITLES[k] for k in kinds]
    rows = []
    for c in configs:
        cells = [config_title(c)]
        for k in kinds:
            rr = [r for r in results if r["kind"] == k]
            cells.append(fmt_pct(sum(r["runs"][c]["edits_nfkc"] for r in rr) /
                                 max(1, sum(r["ref_chars_nfkc"] for r in rr))))
        rows.append(cells)
    out.append(render(head, rows, True))

    if sets:
        sim, tra = sets["chi_sim"], sets["chi_tra"]
        only_tra, only_sim = tra - sim, sim - tra
        out.append("\n### Simplified and Traditional forms\n")
        out.append(f"chi_sim can output {len(sim)} symbols, chi_tra {len(tra)}; "
                   f"{len(only_tra)} only in chi_tra, {len(only_sim)} only in chi_sim.\n")
        head = ["configuration"] + [KIND_TITLES[k] for k in kinds if k != "en"]
        rows = []
        for c in configs:
            cells = [config_title(c)]
            for k in kinds:
                if k == "en":
                    continue
                to_tra = to_sim = han_subs = 0
                for r in results:
                    if r["kind"] != k or r["runs"][c]["ops"] is None:
                        continue
                    for a, b in r["runs"][c]["ops"]:
                        if a is not None and b is not None and is_han(a) and is_han(b):
                            han_subs += 1
                            to_tra += b in only_tra
                            to_sim += b in only_sim
                cells.append(f"{han_subs} / {to_tra} / {to_sim}")
            rows.append(cells)
        out.append("Han-for-Han substitutions / of them into a chi_tra-only symbol / into a "
                   "chi_sim-only symbol:\n")
        out.append(render(head, rows, True))
        head = ["kind", "reference Han characters", "not in chi_sim", "not in chi_tra",
                "in neither"]
        rows = []
        for k in kinds:
            if k == "en":
                continue
            han = [ch for r in results if r["kind"] == k for ch in r.get("ref_text", "") if is_han(ch)]
            rows.append([KIND_TITLES[k], str(len(han)), str(sum(ch not in sim for ch in han)),
                         str(sum(ch not in tra for ch in han)),
                         str(sum(ch not in sim and ch not in tra for ch in han))])
        out.append("\nReference characters the models cannot output at all (a floor under the CER):\n")
        out.append(render(head, rows, True))

    out.append("\n### Most frequent confusions (reference → recognised, count)\n")
    for k in kinds:
        for c in configs:
            counts = {}
            for r in results:
                if r["kind"] != k or r["runs"][c]["ops"] is None:
                    continue
                for a, b in r["runs"][c]["ops"]:
                    key = (a or "∅", b or "∅")
                    counts[key] = counts.get(key, 0) + 1
            top = sorted(counts.items(), key=lambda kv: (-kv[1], kv[0]))[:15]
            if top:
                out.append(f"- {KIND_TITLES[k]}, {config_title(c)}: " +
                           ", ".join(f"`{a}`→`{b}` {n}" for (a, b), n in top))
    return "\n".join(out)


def per_page_table(results, configs):
    head = ["page", "source", "font", "chars"] + [f"{config_title(c)} CER" for c in configs] + \
           [f"{config_title(c)} s" for c in configs]
    rows = []
    for r in results:
        p = r["page_info"]
        rows.append([r["id"], f"{os.path.basename(p['source'].split(' ')[0])} p{p['page']}",
                     f"{p['font']} {p['size_pt']} pt", str(r["ref_chars"])] +
                    [fmt_pct(r["runs"][c]["edits"] / max(1, r["ref_chars"])) for c in configs] +
                    [f"{r['runs'][c]['seconds']:.2f}" for c in configs])
    return render(head, rows, True)




def helper_description(args, configs):
    if not any(c in HELPERS for c in configs):
        return ""
    digest = helper_digest(args.helper)
    built = datetime.datetime.fromtimestamp(os.path.getmtime(args.helper)).astimezone()
    return f"helper {args.helper} (sha256 {digest}..., built {built.strftime('%Y-%m-%d %H:%M:%S')}); "




# ---------------------------------------------------------------- main

def main():
    parser = argparse.ArgumentParser(
        description="Side-by-side OCR benchmark: kem-vision-ocr against plain tesseract.")
    parser.add_argument("--pages", type=int, help="only the first N pages of each kind")
    parser.add_argument("--kinds", default=",".join(KINDS), help="comma-separated subset of " + ",".join(KINDS))
    parser.add_argument("--ids", help="comma-separated page ids (e.g. en-01,sc-03)")
    parser.add_argument("--helper", default=os.path.join(REPO, "build", "kem-vision-ocr"),
                        help="the helper binary (default: build/kem-vision-ocr)")
    parser.add_argument("--no-helper", action="store_true", help="plain columns only")
    parser.add_argument("--helper-input", default="png,pdf", choices=["png", "pdf", "png,pdf", "pdf,png"],
                        metavar="png|pdf|png,pdf",
                        help="what the helper is given: the page PNG, an image-only PDF holding the "
                             "same pixels at 200 dpi, or both (default)")
    parser.add_argument("--helper-mode", choices=["text", "layout"],
                        help="pass --output-mode to the helper (default: none, the helper's default)")
    parser.add_argument("--plain", default=",".join(PLAIN_LANGS), help="tesseract -l values to run")
    parser.add_argument("--jobs", type=int, default=1,
                        help="pages measured at the same time (default 1: timings stay comparable)")
    parser.add_argument("--out", default=os.path.join(HERE, "out"),
                        help="results.md, results.json and the recognised texts (default: bench/out)")
    parser.add_argument("--corpus", default=os.path.join(HERE, "corpus"),
                        help="the generated corpus, built when absent or stale (default: bench/corpus)")
    parser.add_argument("--rebuild-corpus", action="store_true", help="build the corpus again")
    args = parser.parse_args()
    args.out, args.corpus = os.path.abspath(args.out), os.path.abspath(args.corpus)
    args.helper = os.path.abspath(args.helper)

    kinds = [k for k in args.kinds.split(",") if k]
    if any(k not in KINDS for k in kinds):
        parser.error(f"--kinds takes {','.join(KINDS)}")
    for tool in ("tesseract", "pdftoppm"):
        if not shutil.which(tool):
            sys.exit(f"run_ocr_bench: '{tool}' is missing (apt-get install tesseract-ocr poppler-utils)")

    manifest = build_corpus("make_ocr_corpus.py", args.corpus, [], args.rebuild_corpus)
    pages = [p for p in manifest["pages"] if p["kind"] in kinds]
    if args.ids:
        wanted = set(args.ids.split(","))
        pages = [p for p in pages if p["id"] in wanted]
    if args.pages:
        pages = [p for k in kinds for p in [q for q in pages if q["kind"] == k][:args.pages]]
    kinds = [k for k in kinds if any(p["kind"] == k for p in pages)]
    if not pages:
        sys.exit("run_ocr_bench: no pages selected")

    configs = [l for l in args.plain.split(",") if l]
    notes = []
    if not args.no_helper:
        if os.access(args.helper, os.X_OK):
            configs = [{"png": HELPER, "pdf": HELPER_PDF}[x] for x in args.helper_input.split(",")] + configs
        else:
            notes.append(f"helper not run: {args.helper} is not an executable file")
            print("note: " + notes[-1], file=sys.stderr)

    os.makedirs(args.out, exist_ok=True)
    for config in configs:
        os.makedirs(os.path.join(args.out, "text", config), exist_ok=True)
    work = tempfile.mkdtemp(prefix="work-", dir=args.out)
    dist = EditDistance(args.out)

    if any(c in HELPERS for c in configs):
        # Run a snapshot: a rebuild of the original during the run cannot mix two builds.
        snapshot = os.path.join(work, "kem-vision-ocr")
        shutil.copy2(args.helper, snapshot)
        helper_origin, args.helper = args.helper, snapshot
    loads = [os.getloadavg()]
    started = time.monotonic()
    counts = ", ".join(f"{k} {sum(p['kind'] == k for p in pages)}" for k in kinds)
    print(f"{len(pages)} pages ({counts}), "
          f"configurations: {', '.join(config_title(c) for c in configs)}", file=sys.stderr)
    results = [None] * len(pages)
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
        futures = {pool.submit(run_page, p, args.corpus, args, configs, work, i): i
                   for i, p in enumerate(pages)}
        done = 0
        for future in concurrent.futures.as_completed(futures):
            i = futures[future]
            results[i] = future.result()
            done += 1
            r = results[i]
            print(f"  [{done}/{len(pages)}] {r['id']}: " +
                  ", ".join(f"{c} {r['runs'][c]['seconds']:.1f}s" for c in configs), file=sys.stderr)
    elapsed = time.monotonic() - started
    loads.append(os.getloadavg())
    if any(c in HELPERS for c in configs):
        helper_text = helper_description(args, configs).replace(args.helper, helper_origin + ", copied at the start")
    else:
        helper_text = ""
    shutil.rmtree(work, ignore_errors=True)

    for r, p in zip(results, pages):
        r["page_info"] = p
        with open(os.path.join(args.corpus, r["id"] + ".gt.txt"), encoding="utf-8") as f:
            r["ref_text"] = squash(f.read())
    score(results, args.corpus, args.out, configs, dist)
    table = aggregate(results, configs)
    unicharset_dir = tempfile.mkdtemp(prefix="unicharsets-", dir=args.out)
    sets = unicharsets(unicharset_dir)
    shutil.rmtree(unicharset_dir, ignore_errors=True)

    failures = [f"{r['id']} {config_title(c)}: {r['runs'][c]['error']}"
                for r in results for c in configs if r["runs"][c]["error"]]
    if any(not r["raster"]["identical_to_corpus"] for r in results):
        notes.append("pdftoppm output differs from the corpus PNG for: " +
                     ", ".join(r["id"] for r in results if not r["raster"]["identical_to_corpus"]))

    # stdout: the table
    print()
    print(main_table(table, configs, kinds, False))
    print()
    for line in ratio_line(table, results, configs):
        print(line)
    for n in notes:
        print("note: " + n)
    if failures:
        print(f"{len(failures)} failed runs (counted as empty output), first: {failures[0]}")

    # results.md
    now = datetime.datetime.now().astimezone().strftime("%Y-%m-%d %H:%M %Z")
    md = [f"# OCR benchmark: kem-vision-ocr vs plain tesseract\n",
          f"{now}; {machine_description()}; repository {git_revision()}; "
          f"{helper_text}"
          f"{len(pages)} pages of 200 dpi US Letter PNG; load average {loads[0][0]:.1f} at the start, "
          f"{loads[1][0]:.1f} at the end; {args.jobs} page(s) at a time; run took {elapsed / 60:.1f} min.\n",
          "CER = Levenshtein distance / reference length with all white space removed from both "
          "texts; per kind, total edits / total reference characters. Plain columns: "
          "`OMP_THREAD_LIMIT=1 tesseract PAGE.png - -l L --psm 3`, time includes "
          "`pdftoppm -r 200 -png` of the page. Peak RSS is the largest of any single page.\n",
          main_table(table, configs, kinds, True), ""]
    md += [f"- {line}" for line in ratio_line(table, results, configs)]
    md += [f"- note: {n}" for n in notes]
    if failures:
        md.append(f"- {len(failures)} failed runs, counted as empty output:")
        md += [f"  - {f}" for f in failures[:20]]
    md += ["", "## Seconds per page by kind", "", kind_seconds_table(table, configs, kinds, True), "",
           "## Analysis", "", analysis(results, configs, kinds, sets), "",
           "## Per page", "", per_page_table(results, configs), ""]
    with open(os.path.join(args.out, "results.md"), "w", encoding="utf-8") as f:
        f.write("\n".join(md))
    for r in results:
        for c in configs:
            r["runs"][c].pop("ops", None)
        r.pop("ref_text", None)
    with open(os.path.join(args.out, "results.json"), "w", encoding="utf-8") as f:
        json.dump({"date": now, "machine": machine_description(), "revision": git_revision(),
                   "configs": configs, "summary": table, "pages": results}, f, ensure_ascii=False, indent=1)
    print(f"\nwrote {os.path.join(args.out, 'results.md')}")


if __name__ == "__main__":
    main()
