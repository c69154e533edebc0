#!/usr/bin/python3
"""Runs bench/onnx_reader_bench over the session options and detector sizes
that docs/neural-reader.md reports, one process per run (so each peak RSS is
that run's own), and prints a Markdown table per question.

Usage: run_onnx_reader_bench.py [--build build] [--repeat 3]
The pages come from make_onnx_pages.py (written into BUILD/onnx-pages once).
CER: edit distance over the NFKC-folded text with all white space removed,
lines in the reader's order against the drawn lines.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from ocr_bench_common import EditDistance, squash_nfkc  # noqa: E402


def run(bench, page, args, text_path=None):
    cmd = [bench, page] + args + (["--text", text_path] if text_path else [])
    out = subprocess.run(cmd, capture_output=True, text=True, check=True).stdout
    return dict(field.split("=", 1) for field in out.split())


def cer(edit, truth_path, text_path):
    truth = squash_nfkc(open(truth_path, encoding="utf-8").read())
    read = squash_nfkc(open(text_path, encoding="utf-8").read())
    return edit.distance(truth, read) / max(len(truth), 1)


def table(head, rows):
    print("| " + " | ".join(head) + " |")
    print("|" + "---|" * len(head))
    for row in rows:
        print("| " + " | ".join(str(c) for c in row) + " |")
    print()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(os.path.dirname(HERE), "build"))
    parser.add_argument("--repeat", type=int, default=3)
    options = parser.parse_args()
    build = os.path.abspath(options.build)
    bench = os.path.join(build, "bench", "onnx_reader_bench")
    pages = os.path.join(build, "onnx-pages")
    if not os.path.exists(os.path.join(pages, "photo25mp.gt.txt")):
        subprocess.run(["/usr/bin/python3", os.path.join(HERE, "make_onnx_pages.py"), pages], check=True)
    letter = os.path.join(pages, "letter200.pgm")
    photo = os.path.join(pages, "photo25mp.ppm")
    edit = EditDistance(build)
    work = tempfile.mkdtemp(prefix="onnx-bench-")
    text = os.path.join(work, "text.txt")

    def median(page, args, key):
        return statistics.median(float(run(bench, page, args)[key]) for _ in range(options.repeat))

    print("## Start-up: runtime load, environment, detector and recogniser sessions (median of %d; steps in wall seconds)\n"
          % options.repeat)
    rows = []
    for level in ("none", "basic", "extended", "all"):
        for arena in ("on", "off"):
            args = ["--opt", level, "--arena", arena, "--open-only"]
            runs = [run(bench, letter, args) for _ in range(options.repeat)]
            mid = lambda key: "%.3f" % statistics.median(float(r[key]) for r in runs)
            rows.append([level, arena, mid("open_cpu"), mid("open_wall"), mid("env"), mid("det"), mid("rec"),
                         mid("hwm_open_mib")])
    table(["graph optimisation", "CPU arena", "open CPU s", "open wall s", "environment s", "detector s",
           "recogniser s", "peak RSS after open MiB"], rows)

    print("## Networks optimised once and saved, then loaded without optimising\n")
    rows = []
    for level in ("extended", "all"):
        saved = os.path.join(work, "optimized-" + level)
        os.makedirs(saved)
        first = run(bench, letter, ["--opt", level, "--optimized-dir", saved, "--open-only"])
        later = median(letter, ["--opt", level, "--optimized-dir", saved, "--open-only"], "open_cpu")
        page = run(bench, letter, ["--opt", level, "--optimized-dir", saved], text)
        rows.append([level, first["open_cpu"], "%.3f" % later, page["detect_cpu"], page["read_cpu"],
                     page["peak_rss_mib"], "%.2f %%" % (100 * cer(edit, letter[:-4] + ".gt.txt", text))])
    table(["saved at", "open CPU s, saving", "open CPU s, loading saved", "detect CPU s", "read CPU s", "peak RSS MiB",
           "CER"], rows)

    print("## One page, by session options (200-dpi Letter page, limit side 960)\n")
    rows = []
    for level, arena, pattern in (("none", "on", "off"), ("basic", "on", "off"), ("extended", "on", "off"),
                                  ("all", "on", "off"), ("all", "off", "off"), ("all", "on", "on"),
                                  ("all", "off", "on")):
        r = run(bench, letter, ["--opt", level, "--arena", arena, "--mem-pattern", pattern], text)
        rows.append([level, arena, pattern, r["detect_cpu"], r["hwm_detect_mib"], r["read_cpu"], r["total_cpu"],
                     r["peak_rss_mib"], r["threads"], "%.2f %%" % (100 * cer(edit, letter[:-4] + ".gt.txt", text))])
    table(["graph optimisation", "CPU arena", "memory pattern", "detect CPU s", "peak RSS after detection MiB",
           "read CPU s", "total CPU s (open incl.)", "peak RSS MiB", "threads", "CER"], rows)

    print("## Detector input size (default session options)\n")
    rows = []
    for page, name in ((letter, "200-dpi Letter 1700 x 2200"), (photo, "25 MP 6144 x 4096")):
        for limit in (736, 960, 1280, 1600, 2240):
            r = run(bench, page, ["--limit", str(limit)], text)
            rows.append([name, limit, r["lines"], r["detect_cpu"], r["hwm_detect_mib"], r["read_cpu"], r["total_cpu"],
                         r["peak_rss_mib"],
                         "%.2f %%" % (100 * cer(edit, page[:-4] + ".gt.txt", text))])
    table(["page", "limit side", "lines", "detect CPU s", "peak RSS after detection MiB", "read CPU s", "total CPU s",
           "peak RSS MiB", "CER"], rows)

    print("## Text-direction classifier on (default options, limit 960)\n")
    rows = []
    for page, name in ((letter, "200-dpi Letter"), (photo, "25 MP")):
        r = run(bench, page, ["--classifier", "on"], text)
        rows.append([name, r["open_cpu"], r["cls"], r["read_cpu"], r["peak_rss_mib"],
                     "%.2f %%" % (100 * cer(edit, page[:-4] + ".gt.txt", text))])
    table(["page", "open CPU s", "classifier session s", "read CPU s", "peak RSS MiB", "CER"], rows)
    shutil.rmtree(work)


if __name__ == "__main__":
    main()
