#!/usr/bin/python3
"""Script-choice benchmark: does the helper write a Simplified sample in
Simplified forms and a Traditional one in Traditional forms?

Runs the helper once per sample of the script-choice corpus
(bench/make_script_corpus.py, built on the first run into
bench/corpus-script/):
    HELPER --input SAMPLE --artifacts FRESH_DIR --json
and judges the script of FRESH_DIR/ocr.txt by counting the characters
written in forms only one script uses (ocr_bench_common.ScriptForms): the
side with more wins; 'undecided' when the output has no such character or
both sides have as many. Prints the confusion table (truth x judged) overall
and per font, per condition and per resolution, and lists every wrongly
judged sample with at least --min-han Han characters (30 by default), then
the short ones. The CER of each sample (NFKC, white space removed) is given
too, as a diagnostic.

--plain L adds plain `tesseract SAMPLE - -l L --psm 3` columns judged the
same way, for comparison (OMP_THREAD_LIMIT=1 everywhere).

Usage: run_script_bench.py [--helper PATH] [--jobs N] [--out DIR] [--corpus DIR]
                           [--count N] [--ids ID,...] [--every N] [--conditions c,...]
                           [--plain L,...] [--min-han N] [--rebuild-corpus]
"""

import argparse
import concurrent.futures
import datetime
import json
import os
import shutil
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
sys.path.insert(0, HERE)
import make_script_corpus  # noqa: E402
import page_conditions as pc  # noqa: E402
from ocr_bench_common import (EditDistance, ScriptForms, build_corpus, git_revision,  # noqa: E402
                              machine_description, snapshot_helper, measure_run, render, run_helper,
                              squash_nfkc)

HELPER = "helper"
JUDGED = ["Hans", "Hant", "undecided"]


def title(config):
    return "kem-vision-ocr" if config == HELPER else f"tesseract {config}"


def run_sample(sample, args, configs, work):
    image = os.path.join(args.corpus, sample["file"])
    env = dict(os.environ, OMP_THREAD_LIMIT="1", LC_ALL="C.UTF-8")
    runs = {}
    for config in configs:
        if config == HELPER:
            text, run = run_helper(args.helper, image, work, env, prefix=sample["id"] + "-")
        else:
            out = os.path.join(work, f"{sample['id']}-{config}.txt")
            run = measure_run(["tesseract", image, "-", "-l", config, "--psm", "3"], out, env)
            with open(out, encoding="utf-8", errors="replace") as f:
                text = f.read()
            os.remove(out)
            run["error"] = None if run["exit"] == 0 else f"exit {run['exit']}"
        with open(os.path.join(args.out, "text", config, sample["id"] + ".txt"), "w", encoding="utf-8") as f:
            f.write(text)
        run["text"] = text
        runs[config] = run
    return runs


def confusion(rows, config, markdown):
    head = ["truth \\ judged"] + JUDGED + ["right"]
    out = []
    for truth in ("Hans", "Hant"):
        sel = [r for r in rows if r["truth"] == truth]
        if not sel:
            continue
        counts = [sum(1 for r in sel if r["runs"][config]["judged"] == j) for j in JUDGED]
        out.append([truth] + [str(c) for c in counts] + [f"{counts[JUDGED.index(truth)]}/{len(sel)}"])
    return render(head, out, markdown)


def breakdown(rows, config, key, markdown, label):
    """One line per value of key: samples, right, wrong, undecided (all, and >= min Han)."""
    head = [label, "samples", "right", "wrong", "undecided", "wrong (>=30 Han)", "undecided (>=30 Han)"]
    out = []
    for value in sorted({r[key] for r in rows}, key=lambda v: (str(type(v)), v)):
        sel = [r for r in rows if r[key] == value]
        right = sum(1 for r in sel if r["runs"][config]["judged"] == r["truth"])
        und = [r for r in sel if r["runs"][config]["judged"] == "undecided"]
        wrong = [r for r in sel if r["runs"][config]["judged"] not in (r["truth"], "undecided")]
        out.append([str(value), str(len(sel)), str(right), str(len(wrong)), str(len(und)),
                    str(sum(1 for r in wrong if r["long"])), str(sum(1 for r in und if r["long"]))])
    return render(head, out, markdown)


def main():
    parser = argparse.ArgumentParser(description="Script-choice benchmark of kem-vision-ocr.")
    parser.add_argument("--helper", default=os.path.join(REPO, "build", "kem-vision-ocr"))
    parser.add_argument("--no-helper", action="store_true", help="plain columns only")
    parser.add_argument("--plain", default="", help="tesseract -l values to judge as well (default none)")
    parser.add_argument("--jobs", type=int, default=2, help="samples run at the same time (default 2)")
    parser.add_argument("--out", default=os.path.join(HERE, "out", "script"))
    parser.add_argument("--corpus", default=make_script_corpus.DEFAULT_OUT)
    parser.add_argument("--count", type=int, default=make_script_corpus.COUNT, help="samples in the corpus")
    parser.add_argument("--ids", help="comma-separated sample ids (e.g. Hant-002)")
    parser.add_argument("--every", type=int, default=1,
                        help="only every N-th sample (a quicker look; default 1: all)")
    parser.add_argument("--conditions", default=",".join(pc.CONDITIONS))
    parser.add_argument("--min-han", type=int, default=30,
                        help="samples with at least this many Han characters must be judged right (default 30)")
    parser.add_argument("--rebuild-corpus", action="store_true")
    args = parser.parse_args()
    args.out, args.corpus = os.path.abspath(args.out), os.path.abspath(args.corpus)
    args.helper = os.path.abspath(args.helper)

    manifest = build_corpus("make_script_corpus.py", args.corpus, ["--count", str(args.count)],
                            args.rebuild_corpus)
    conditions = set(c for c in args.conditions.split(",") if c)
    samples = [s for s in manifest["samples"] if s["condition"] in conditions]
    if args.ids:
        wanted = set(args.ids.split(","))
        samples = [s for s in samples if s["id"] in wanted]
    samples = samples[::max(1, args.every)]
    if not samples:
        sys.exit("run_script_bench: no samples selected")
    configs = [l for l in args.plain.split(",") if l]
    helper_text = ""
    os.makedirs(args.out, exist_ok=True)
    work = tempfile.mkdtemp(prefix="work-", dir=args.out)
    if not args.no_helper:
        if not os.access(args.helper, os.X_OK):
            sys.exit(f"run_script_bench: {args.helper} is not an executable file")
        args.helper, helper_text = snapshot_helper(args.helper, work)
        configs = [HELPER] + configs
    if not configs:
        sys.exit("run_script_bench: nothing to run")
    for c in configs:
        os.makedirs(os.path.join(args.out, "text", c), exist_ok=True)

    forms = ScriptForms()
    dist = EditDistance(args.out)
    print(f"{len(samples)} samples, configurations: {', '.join(title(c) for c in configs)}", file=sys.stderr)
    started = time.monotonic()
    rows = []
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
        futures = {pool.submit(run_sample, s, args, configs, work): s for s in samples}
        for n, future in enumerate(concurrent.futures.as_completed(futures), 1):
            s = futures[future]
            runs = future.result()
            with open(os.path.join(args.corpus, s["id"] + ".gt.txt"), encoding="utf-8") as f:
                truth_text = f.read()
            ref = squash_nfkc(truth_text)
            for c, run in runs.items():
                text = run.pop("text")
                run["judged"] = forms.judge(text)
                run["counts"] = forms.counts(text)
                run["cer"] = dist.distance(ref, squash_nfkc(text)) / max(1, len(ref))
            row = dict(s, runs=runs, long=s["han"] >= args.min_han)
            rows.append(row)
            if n % 20 == 0 or n == len(samples):
                print(f"  [{n}/{len(samples)}]", file=sys.stderr)
    elapsed = time.monotonic() - started
    shutil.rmtree(work, ignore_errors=True)
    rows.sort(key=lambda r: r["id"])

    now = datetime.datetime.now().astimezone().strftime("%Y-%m-%d %H:%M %Z")
    header = (f"{now}; {machine_description()}; repository {git_revision()}; {helper_text}"
              f"{len(rows)} samples ({sum(r['long'] for r in rows)} with >= {args.min_han} Han characters); "
              f"{args.jobs} at a time; run took {elapsed / 60:.1f} min.")
    text, md = [header, ""], ["# Script-choice benchmark\n", header + "\n",
                              "Judged from the output: the script whose distinguishing characters (forms "
                              "only one script uses, from ICU's Hans-Hant / Hant-Hans data) are in the "
                              "majority; `undecided` when there are none or as many of each.\n"]
    for c in configs:
        long_rows = [r for r in rows if r["long"]]
        wrong_long = [r for r in long_rows if r["runs"][c]["judged"] != r["truth"]]
        summary = (f"{title(c)}: {sum(1 for r in rows if r['runs'][c]['judged'] == r['truth'])}/{len(rows)} "
                   f"judged right; with >= {args.min_han} Han: {len(long_rows) - len(wrong_long)}/{len(long_rows)} "
                   f"right, {len(wrong_long)} wrong or undecided; "
                   f"{sum(r['runs'][c]['seconds'] for r in rows):.1f} s in all "
                   f"(CPU {sum(r['runs'][c]['cpu_seconds'] for r in rows):.1f} s), peak RSS "
                   f"{max(r['runs'][c]['rss_kib'] for r in rows) / 1024:.0f} MiB")
        sections = [("all samples", confusion(rows, c, False), confusion(rows, c, True)),
                    (f"samples with >= {args.min_han} Han characters",
                     confusion(long_rows, c, False), confusion(long_rows, c, True))]
        text += [f"== {title(c)}", summary, ""]
        md += [f"## {title(c)}\n", f"- {summary}\n"]
        for name, plain_t, md_t in sections:
            text += [f"-- confusion, {name}", plain_t, ""]
            md += [f"### Confusion, {name}\n", md_t, ""]
        for key, label in (("font_group", "font"), ("condition", "condition"), ("dpi", "dpi")):
            text += [f"-- per {label}", breakdown(rows, c, key, False, label), ""]
            md += [f"### Per {label}\n", breakdown(rows, c, key, True, label), ""]
        for name, sel in ((f"wrongly judged with >= {args.min_han} Han characters", wrong_long),
                          (f"wrongly judged or undecided with < {args.min_han} Han characters",
                           [r for r in rows if not r["long"] and r["runs"][c]["judged"] != r["truth"]])):
            head = ["sample", "truth", "judged", "S/T-only in output", "S/T-only in truth", "Han", "font",
                    "condition", "image", "source", "CER"]
            table = [[r["id"], r["truth"], r["runs"][c]["judged"], "%d/%d" % tuple(r["runs"][c]["counts"]),
                      f"{r['simplified_only']}/{r['traditional_only']}", str(r["han"]), r["font"],
                      r["condition"], r["image"], r["source"], f"{100 * r['runs'][c]['cer']:.1f}%"]
                     for r in sel]
            text += [f"-- {name}: {len(sel)}"]
            md += [f"### {name}: {len(sel)}\n"]
            if table:
                text += [render(head, table, False)]
                md += [render(head, table, True)]
            text.append("")
            md.append("")
        cers = [r["runs"][c]["cer"] for r in rows]
        text.append(f"mean sample CER {100 * sum(cers) / len(cers):.1f}%")
        md.append(f"- mean sample CER {100 * sum(cers) / len(cers):.1f}%\n")
        text.append("")
    print("\n".join(text))
    with open(os.path.join(args.out, "results.md"), "w", encoding="utf-8") as f:
        f.write("\n".join(md) + "\n")
    with open(os.path.join(args.out, "results.json"), "w", encoding="utf-8") as f:
        json.dump({"date": now, "machine": machine_description(), "revision": git_revision(),
                   "configs": configs, "min_han": args.min_han, "samples": rows}, f,
                  ensure_ascii=False, indent=1)
    print(f"wrote {os.path.join(args.out, 'results.md')}")


if __name__ == "__main__":
    main()
