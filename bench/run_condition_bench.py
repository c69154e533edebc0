#!/usr/bin/python3
"""Condition benchmark: kem-vision-ocr against plain tesseract on generated
pages under image conditions (clean, screenshot, dark mode, photo, crooked
scan, faint print, small text, turned 90 degrees) in English, Simplified,
Traditional and mixed Chinese/English (bench/make_condition_corpus.py; built
on the first run into bench/corpus-conditions/).

Configurations, each run once per page, one process per run, all with
OMP_THREAD_LIMIT=1:
  - the helper:  HELPER --input PAGE --artifacts FRESH_DIR --json  (reads ocr.txt)
  - plain:       tesseract PAGE - -l L --psm 3
                 for L in eng, chi_sim, chi_tra, chi_sim+chi_tra+eng

CER = Levenshtein distance / reference length, both texts NFKC-folded and
all white space removed; a group's CER is total edits / total reference
characters. "best plain" is, page by page, the plain configuration with the
fewest edits (ties: the faster one); its time is that configuration's time on
that page (the fastest possible correct single reading). The "order-free"
columns count edits as if the order of characters did not matter (see
ocr_bench_common.bag_distance): a diagnostic for lines read in another order.
"cut short" counts the page's lines (of 9 characters or more) whose start is
in a reading and whose end is not (cut_lines below): a line read only in part.

Plain results do not depend on the helper, so they are cached (by the image's
SHA-256, the -l value and the tesseract version) in --plain-cache; a run with
a new helper then only runs the helper. Timing ratios mix runs in that case,
which the report says; --refresh-plain measures everything in this run.

Held-out pages (every third of each condition x language) are reported in
their own tables; --held-out exclude|only|include chooses which are run.

Usage: run_condition_bench.py [--conditions c,...] [--langs l,...] [--ids ID,...]
                              [--held-out include|exclude|only]
                              [--helper PATH | --no-helper] [--plain L,...]
                              [--jobs N] [--out DIR] [--corpus DIR] [--per-cell N]
                              [--plain-cache DIR | --no-plain-cache] [--refresh-plain]
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

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
sys.path.insert(0, HERE)
import make_condition_corpus  # noqa: E402
import page_conditions as pc  # noqa: E402
from ocr_bench_common import (EditDistance, bag_distance, build_corpus, fmt_pct, git_revision,  # noqa: E402
                              machine_description, measure_run, render, run_helper, snapshot_helper,
                              squash_nfkc)

PLAIN_LANGS = ["eng", "chi_sim", "chi_tra", "chi_sim+chi_tra+eng"]
THREE = "chi_sim+chi_tra+eng"
HELPER = "helper"
LANG_TITLES = {"en": "English", "zh-Hans": "Simplified", "zh-Hant": "Traditional", "mix": "Mixed"}


def title(config):
    return "kem-vision-ocr" if config == HELPER else f"tesseract {config}"


def tesseract_version():
    out = subprocess.run(["tesseract", "--version"], stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT).stdout.decode()
    return out.splitlines()[0].strip() if out else "unknown"


# ---------------------------------------------------------------- running

class PlainCache:
    def __init__(self, directory, version, enabled, refresh):
        self.dir, self.version, self.enabled, self.refresh = directory, version, enabled, refresh
        if enabled:
            os.makedirs(directory, exist_ok=True)

    def path(self, image_sha, lang):
        key = hashlib.sha256(f"{image_sha}|{lang}|psm3|{self.version}".encode()).hexdigest()[:32]
        return os.path.join(self.dir, key + ".json")

    def get(self, image_sha, lang):
        if not self.enabled or self.refresh:
            return None
        try:
            with open(self.path(image_sha, lang), encoding="utf-8") as f:
                return json.load(f)
        except (OSError, ValueError):
            return None

    def put(self, image_sha, lang, entry):
        if self.enabled:
            tmp = self.path(image_sha, lang) + ".tmp"
            with open(tmp, "w", encoding="utf-8") as f:
                json.dump(entry, f, ensure_ascii=False)
            os.replace(tmp, self.path(image_sha, lang))


def run_page(page, args, configs, work, rotation, cache):
    image = os.path.join(args.corpus, page["file"])
    with open(image, "rb") as f:
        sha = hashlib.sha256(f.read()).hexdigest()
    env = dict(os.environ, OMP_THREAD_LIMIT="1", LC_ALL="C.UTF-8")
    result = {"id": page["id"], "runs": {}}
    order = configs[rotation % len(configs):] + configs[:rotation % len(configs)]
    for config in order:
        text_path = os.path.join(args.out, "text", config, page["id"] + ".txt")
        if config == HELPER:
            text, run = run_helper(args.helper, image, work, env, args.helper_mode,
                                   prefix=page["id"] + "-helper-")
            run["cached"] = False
        else:
            entry = cache.get(sha, config)
            if entry is None:
                out = os.path.join(work, f"{page['id']}-{config}.txt")
                entry = measure_run(["tesseract", image, "-", "-l", config, "--psm", "3"], out, env)
                with open(out, encoding="utf-8", errors="replace") as f:
                    entry["text"] = f.read()
                os.remove(out)
                entry["error"] = None if entry["exit"] == 0 else f"exit {entry['exit']}"
                entry["measured"] = datetime.datetime.now().astimezone().isoformat(timespec="seconds")
                if entry["exit"] == 0:
                    cache.put(sha, config, entry)
                entry = dict(entry, cached=False)
            else:
                entry = dict(entry, cached=True)
            text = entry.pop("text")
            run = entry
        with open(text_path, "w", encoding="utf-8") as f:
            f.write(text)
        result["runs"][config] = run
    return result


# ---------------------------------------------------------------- scoring

def bigrams(text):
    return {text[i:i + 2] for i in range(len(text) - 1)}


def cut_lines(truth_lines, reading):
    """How many lines of the page the reading cut short: lines of at least
    9 characters (white space removed) whose first third is in the reading
    and whose last third is not. A third is in the reading when at least
    half of its character pairs are. A line read only in part (the rest of
    it lost, as when the light or the binarisation took the end of every
    line) counts here; a line not read at all does not: the CER shows both."""
    have = bigrams(reading)

    def found(part):
        pairs = bigrams(part)
        return bool(pairs) and len(pairs & have) * 2 >= len(pairs)

    cut = 0
    for line in truth_lines:
        if len(line) < 9:
            continue
        third = len(line) // 3
        if found(line[:third]) and not found(line[-third:]):
            cut += 1
    return cut


def score(results, pages, args, configs, dist):
    plain = [c for c in configs if c != HELPER]
    for r, p in zip(results, pages):
        r["page"] = p
        with open(os.path.join(args.corpus, p["id"] + ".gt.txt"), encoding="utf-8") as f:
            truth = f.read()
        ref = squash_nfkc(truth)
        truth_lines = [squash_nfkc(line) for line in truth.splitlines()]
        r["ref_chars"] = len(ref)
        r["ref_lines"] = sum(1 for line in truth_lines if len(line) >= 9)
        for c in configs:
            with open(os.path.join(args.out, "text", c, p["id"] + ".txt"), encoding="utf-8") as f:
                hyp = squash_nfkc(f.read())
            run = r["runs"][c]
            run["edits"] = dist.distance(ref, hyp)
            run["bag_edits"] = bag_distance(ref, hyp)
            run["cut_lines"] = cut_lines(truth_lines, hyp)
        if plain:
            best = min(plain, key=lambda c: (r["runs"][c]["edits"], r["runs"][c]["seconds"]))
            r["best"] = {"config": best, "edits": r["runs"][best]["edits"],
                         "seconds": r["runs"][best]["seconds"],
                         "cpu_seconds": r["runs"][best].get("cpu_seconds", float("nan")),
                         "bag_edits": min(r["runs"][c]["bag_edits"] for c in plain),
                         "cut_lines": r["runs"][best]["cut_lines"]}


def group_stats(rows, configs):
    ref = max(1, sum(r["ref_chars"] for r in rows))
    out = {"pages": len(rows), "ref_chars": ref, "ref_lines": sum(r["ref_lines"] for r in rows)}
    for c in configs:
        out[c] = {"cer": sum(r["runs"][c]["edits"] for r in rows) / ref,
                  "bag_cer": sum(r["runs"][c]["bag_edits"] for r in rows) / ref,
                  "cut_lines": sum(r["runs"][c]["cut_lines"] for r in rows),
                  "seconds": sum(r["runs"][c]["seconds"] for r in rows),
                  "cpu_seconds": sum(r["runs"][c].get("cpu_seconds", float("nan")) for r in rows),
                  "rss_mib": max(r["runs"][c]["rss_kib"] for r in rows) / 1024,
                  "failures": sum(1 for r in rows if r["runs"][c].get("error"))}
    if rows and "best" in rows[0]:
        out["best"] = {"cer": sum(r["best"]["edits"] for r in rows) / ref,
                       "bag_cer": sum(r["best"]["bag_edits"] for r in rows) / ref,
                       "cut_lines": sum(r["best"]["cut_lines"] for r in rows),
                       "seconds": sum(r["best"]["seconds"] for r in rows),
                       "cpu_seconds": sum(r["best"]["cpu_seconds"] for r in rows)}
    return out


# ---------------------------------------------------------------- report

def cer_table(results, configs, conditions, langs, markdown):
    """Rows: condition x language, then per condition, per language, hard, all."""
    plain = [c for c in configs if c != HELPER]
    has_helper = HELPER in configs
    head = ["condition", "language", "pages"]
    head += [title(c) for c in configs]
    if plain:
        head += ["best plain"]
    if has_helper and plain:
        head += ["helper/best"]
    head += (["helper order-free"] if has_helper else []) + (["best plain order-free"] if plain else [])
    head += ["lines", "cut short: helper"] if has_helper else ["lines"]
    if plain:
        head += ["best plain"]

    def row(cond, lang, rows):
        if not rows:
            return None
        s = group_stats(rows, configs)
        cells = [cond, lang, str(len(rows))]
        for c in configs:
            cell = fmt_pct(s[c]["cer"])
            if s[c]["failures"]:
                cell += f" [{s[c]['failures']} failed]"
            cells.append(cell)
        if plain:
            cells.append(fmt_pct(s["best"]["cer"]))
        if has_helper and plain:
            cells.append(f"{s[HELPER]['cer'] / s['best']['cer']:.2f}" if s["best"]["cer"] > 0 else
                         ("1.00" if s[HELPER]["cer"] == 0 else "inf"))
        if has_helper:
            cells.append(fmt_pct(s[HELPER]["bag_cer"]))
        if plain:
            cells.append(fmt_pct(s["best"]["bag_cer"]))
        cells.append(str(s["ref_lines"]))
        if has_helper:
            cells.append(str(s[HELPER]["cut_lines"]))
        if plain:
            cells.append(str(s["best"]["cut_lines"]))
        return cells

    out = []
    for cond in conditions:
        for lang in langs:
            r = row(cond, lang, [x for x in results if x["page"]["condition"] == cond and x["page"]["lang"] == lang])
            if r:
                out.append(r)
    for cond in conditions:
        r = row(cond, "all", [x for x in results if x["page"]["condition"] == cond])
        if r and len(langs) > 1:
            out.append(r)
    for lang in langs:
        r = row("all", lang, [x for x in results if x["page"]["lang"] == lang])
        if r and len(conditions) > 1:
            out.append(r)
    hard = [x for x in results if x["page"]["condition"] in pc.HARD_CONDITIONS]
    r = row("hard (all but clean)", "all", hard)
    if r and len(hard) != len(results):
        out.append(r)
    r = row("all", "all", results)
    if r:
        out.append(r)
    return render(head, out, markdown)


def time_lines(results, configs, cached_plain):
    out = []
    if not results:
        return out
    s = group_stats(results, configs)
    for c in configs:
        out.append(f"{title(c)}: total {s[c]['seconds']:.1f} s ({s[c]['seconds'] / len(results):.2f} s/page), "
                   f"CPU {s[c]['cpu_seconds']:.1f} s, peak RSS {s[c]['rss_mib']:.0f} MiB")
    if HELPER in configs and "best" in s:
        h, b = s[HELPER]["seconds"], s["best"]["seconds"]
        line = f"helper time {h:.1f} s vs per-page best single plain configuration {b:.1f} s: ratio {h / b:.2f}"
        if THREE in configs:
            t = s[THREE]["seconds"]
            line += f"; vs plain {THREE} {t:.1f} s: ratio {h / t:.2f}"
        out.append(line)
        h, b = s[HELPER]["cpu_seconds"], s["best"]["cpu_seconds"]
        line = f"helper CPU time {h:.1f} s vs per-page best single plain configuration {b:.1f} s: ratio {h / b:.2f}"
        if THREE in configs:
            t = s[THREE]["cpu_seconds"]
            line += f"; vs plain {THREE} {t:.1f} s: ratio {h / t:.2f}"
        out.append(line)
    if cached_plain:
        out.append(f"note: {cached_plain} plain runs came from the cache (measured in an earlier run); "
                   "use --refresh-plain for times measured side by side")
    return out


def per_page_table(results, configs):
    head = ["page", "held out", "source", "font", "image", "chars"] + [f"{title(c)}" for c in configs]
    head += ["best plain", "helper s", "best s"] if HELPER in configs else ["best plain"]
    rows = []
    for r in results:
        p = r["page"]
        cells = [p["id"], "yes" if p["held_out"] else "", p["source"], p["font"], p["image"], str(r["ref_chars"])]
        cells += [fmt_pct(r["runs"][c]["edits"] / max(1, r["ref_chars"])) for c in configs]
        if "best" in r:
            cells.append(f"{fmt_pct(r['best']['edits'] / max(1, r['ref_chars']))} ({r['best']['config']})")
        else:
            cells.append("")
        if HELPER in configs:
            cells += [f"{r['runs'][HELPER]['seconds']:.2f}", f"{r['best']['seconds']:.2f}" if "best" in r else ""]
        rows.append(cells)
    return render(head, rows, True)


# ---------------------------------------------------------------- main

def main():
    parser = argparse.ArgumentParser(description="Condition benchmark: kem-vision-ocr vs plain tesseract.")
    parser.add_argument("--conditions", default=",".join(pc.CONDITIONS),
                        help="comma-separated subset of " + ",".join(pc.CONDITIONS))
    parser.add_argument("--langs", default=",".join(pc.LANGS), help="comma-separated subset of " + ",".join(pc.LANGS))
    parser.add_argument("--ids", help="comma-separated page ids (e.g. photo-zh-Hant-01)")
    parser.add_argument("--held-out", choices=["include", "exclude", "only"], default="include",
                        help="run the held-out pages too (default; reported separately), not, or only them")
    parser.add_argument("--helper", default=os.path.join(REPO, "build", "kem-vision-ocr"))
    parser.add_argument("--helper-mode", choices=["text", "layout"])
    parser.add_argument("--no-helper", action="store_true", help="plain columns only (e.g. to fill the cache)")
    parser.add_argument("--plain", default=",".join(PLAIN_LANGS),
                        help="tesseract -l values (default: %(default)s); empty for none")
    parser.add_argument("--jobs", type=int, default=2, help="pages measured at the same time (default 2)")
    parser.add_argument("--out", default=os.path.join(HERE, "out", "conditions"))
    parser.add_argument("--corpus", default=make_condition_corpus.DEFAULT_OUT)
    parser.add_argument("--per-cell", type=int, default=make_condition_corpus.PER_CELL,
                        help="pages per condition x language in the corpus")
    parser.add_argument("--rebuild-corpus", action="store_true")
    parser.add_argument("--plain-cache", default=os.path.join(HERE, "out", "plain-cache"))
    parser.add_argument("--no-plain-cache", action="store_true", help="neither read nor write the cache")
    parser.add_argument("--refresh-plain", action="store_true",
                        help="run every plain configuration again (and update the cache)")
    args = parser.parse_args()
    args.out, args.corpus = os.path.abspath(args.out), os.path.abspath(args.corpus)
    args.helper = os.path.abspath(args.helper)

    conditions = [c for c in args.conditions.split(",") if c]
    langs = [l for l in args.langs.split(",") if l]
    if any(c not in pc.CONDITIONS for c in conditions):
        parser.error("--conditions takes " + ",".join(pc.CONDITIONS))
    if any(l not in pc.LANGS for l in langs):
        parser.error("--langs takes " + ",".join(pc.LANGS))
    if not shutil.which("tesseract"):
        sys.exit("run_condition_bench: 'tesseract' is missing (apt-get install tesseract-ocr)")

    manifest = build_corpus("make_condition_corpus.py", args.corpus, ["--per-cell", str(args.per_cell)],
                            args.rebuild_corpus)
    pages = [p for p in manifest["pages"] if p["condition"] in conditions and p["lang"] in langs]
    if args.ids:
        wanted = set(args.ids.split(","))
        pages = [p for p in pages if p["id"] in wanted]
    if args.held_out == "exclude":
        pages = [p for p in pages if not p["held_out"]]
    elif args.held_out == "only":
        pages = [p for p in pages if p["held_out"]]
    if not pages:
        sys.exit("run_condition_bench: no pages selected")
    conditions = [c for c in conditions if any(p["condition"] == c for p in pages)]
    langs = [l for l in langs if any(p["lang"] == l for p in pages)]

    configs = [l for l in args.plain.split(",") if l]
    if not args.no_helper:
        if not os.access(args.helper, os.X_OK):
            sys.exit(f"run_condition_bench: {args.helper} is not an executable file (or use --no-helper)")
        configs = [HELPER] + configs
    if not configs:
        sys.exit("run_condition_bench: nothing to run")

    os.makedirs(args.out, exist_ok=True)
    for c in configs:
        os.makedirs(os.path.join(args.out, "text", c), exist_ok=True)
    work = tempfile.mkdtemp(prefix="work-", dir=args.out)
    dist = EditDistance(args.out)
    cache = PlainCache(os.path.abspath(args.plain_cache), tesseract_version(), not args.no_plain_cache,
                       args.refresh_plain)
    helper_text = ""
    if HELPER in configs:
        args.helper, helper_text = snapshot_helper(args.helper, work)

    print(f"{len(pages)} pages ({sum(p['held_out'] for p in pages)} held out), configurations: "
          f"{', '.join(title(c) for c in configs)}", file=sys.stderr)
    load0 = os.getloadavg()[0]
    started = time.monotonic()
    results = [None] * len(pages)
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
        futures = {pool.submit(run_page, p, args, configs, work, i, cache): i for i, p in enumerate(pages)}
        done = 0
        for future in concurrent.futures.as_completed(futures):
            i = futures[future]
            results[i] = future.result()
            done += 1
            r = results[i]
            print(f"  [{done}/{len(pages)}] {r['id']}: " + ", ".join(
                f"{c} {r['runs'][c]['seconds']:.1f}s" + (" (cached)" if r["runs"][c].get("cached") else "")
                for c in configs), file=sys.stderr)
    elapsed = time.monotonic() - started
    load1 = os.getloadavg()[0]
    shutil.rmtree(work, ignore_errors=True)

    score(results, pages, args, configs, dist)
    cached = sum(1 for r in results for c in configs if r["runs"][c].get("cached"))
    main_rows = [r for r in results if not r["page"]["held_out"]]
    held_rows = [r for r in results if r["page"]["held_out"]]

    now = datetime.datetime.now().astimezone().strftime("%Y-%m-%d %H:%M %Z")
    header = (f"{now}; {machine_description()}; repository {git_revision()}; {helper_text}"
              f"{len(pages)} pages; load average {load0:.1f} at the start, {load1:.1f} at the end; "
              f"{args.jobs} page(s) at a time; run took {elapsed / 60:.1f} min.")
    text_out, md = [], ["# Condition benchmark: kem-vision-ocr vs plain tesseract\n", header + "\n",
                        "CER (NFKC, white space removed), total edits / total reference characters. "
                        "`best plain` = per page the plain configuration with the fewest edits. "
                        "`order-free` = edits counted as if character order did not matter.\n"]
    for name, rows in (("pages (not held out)", main_rows), ("held-out pages", held_rows),
                       ("all pages", results if main_rows and held_rows else [])):
        if not rows:
            continue
        text_out += [f"== {name}", cer_table(rows, configs, conditions, langs, False), ""]
        text_out += time_lines(rows, configs, sum(1 for r in rows for c in configs if r["runs"][c].get("cached")))
        text_out.append("")
        md += [f"## {name}\n", cer_table(rows, configs, conditions, langs, True), ""]
        md += [f"- {l}" for l in time_lines(rows, configs,
                                             sum(1 for r in rows for c in configs if r["runs"][c].get("cached")))]
        md.append("")
    failures = [f"{r['id']} {title(c)}: {r['runs'][c]['error']}" for r in results for c in configs
                if r["runs"][c].get("error")]
    if failures:
        text_out.append(f"{len(failures)} failed runs (counted as empty output), first: {failures[0]}")
        md.append(f"- {len(failures)} failed runs, counted as empty output: " + "; ".join(failures[:20]))
    md += ["", "## Per page", "", per_page_table(results, configs), ""]
    print()
    print(header)
    print("\n".join(text_out))
    with open(os.path.join(args.out, "results.md"), "w", encoding="utf-8") as f:
        f.write("\n".join(md))
    with open(os.path.join(args.out, "results.json"), "w", encoding="utf-8") as f:
        json.dump({"date": now, "machine": machine_description(), "revision": git_revision(),
                   "configs": configs, "cached_plain_runs": cached,
                   "summary": {"not_held_out": group_stats(main_rows, configs) if main_rows else None,
                               "held_out": group_stats(held_rows, configs) if held_rows else None},
                   "pages": results}, f, ensure_ascii=False, indent=1)
    print(f"wrote {os.path.join(args.out, 'results.md')}")


if __name__ == "__main__":
    main()
