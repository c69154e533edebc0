#!/usr/bin/python3
"""Plain tesseract under the helper's output contract: its lines put in the
helper's reading order, scored against the ground truth beside the helper.

The condition bench (run_condition_bench.py) scores plain tesseract's text in
tesseract's own line order. The helper cannot give that order: its contract
sorts a page's regions by position on the bitmap as given (top to bottom;
regions whose tops differ by less than 10 pixels count as one line and go
left to right by the x of their first corner), whatever the engine found.
On a page turned a quarter or a crooked one that order is not the order of
the text, for any engine. This tool shows what plain tesseract would read
were its lines put through the same rule: each configuration is run with
`tsv` output, every text line becomes a region whose top is its box's top
and whose left is its box's left, the regions are sorted stably with the
helper's comparator, and the CER (NFKC, white space removed, as the
condition bench computes it) is taken per page; "best plain" is, page by
page, the configuration with the fewest edits.

The sort is a stable merge sort that calls only the comparator, as the
helper's std::stable_sort does. The comparator is not transitive (tops
chained less than 10 pixels apart), so where such chains occur the order can
differ from the helper's in the ordering of those regions; the plain columns
are a diagnostic, not a replay.

The helper's columns come from a condition-bench run (--bench-out, its
text/helper/ directory); nothing of the helper is run here.

Usage: plain_in_reading_order.py [--corpus DIR] [--bench-out DIR]
                                 [--conditions c,...] [--langs l,...]
                                 [--plain L,...] [--held-out include|exclude|only]
                                 [--jobs N] [--markdown]
"""

import argparse
import concurrent.futures
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import make_condition_corpus  # noqa: E402
from ocr_bench_common import EditDistance, fmt_pct, render, squash_nfkc  # noqa: E402

PLAIN = ["eng", "chi_sim", "chi_tra", "chi_sim+chi_tra+eng"]
LINE_TOLERANCE = 10.0


def before(a, b):
    """The helper's reading-order comparator on (top, left) regions."""
    if abs(a["top"] - b["top"]) >= LINE_TOLERANCE:
        return a["top"] < b["top"]
    return a["left"] < b["left"]


def stable_sort(regions):
    """Merge sort using only `before`: b goes ahead of a only when before(b, a)."""
    if len(regions) <= 1:
        return list(regions)
    middle = len(regions) // 2
    left, right = stable_sort(regions[:middle]), stable_sort(regions[middle:])
    out, i, j = [], 0, 0
    while i < len(left) and j < len(right):
        if before(right[j], left[i]):
            out.append(right[j])
            j += 1
        else:
            out.append(left[i])
            i += 1
    return out + left[i:] + right[j:]


def tsv_lines(tsv):
    """The text lines of tesseract's tsv output, in its order: [{text, top, left}],
    the line's box (level 4) giving top and left, its words (level 5) the text."""
    lines = {}
    for row in tsv.splitlines()[1:]:
        cells = row.split("\t")
        if len(cells) < 12 or cells[0] not in ("4", "5"):
            continue
        key = (cells[2], cells[3], cells[4])  # block, paragraph, line
        if cells[0] == "4":
            lines[key] = {"words": [], "left": int(cells[6]), "top": int(cells[7])}
        elif key in lines and cells[11].strip():
            lines[key]["words"].append(cells[11])
    return [{"text": " ".join(l["words"]), "top": l["top"], "left": l["left"]}
            for l in lines.values() if l["words"]]


def plain_text_in_reading_order(image, lang, work):
    env = dict(os.environ, OMP_THREAD_LIMIT="1", LC_ALL="C.UTF-8")
    out = subprocess.run(["tesseract", image, "-", "-l", lang, "--psm", "3", "tsv"], env=env, cwd=work,
                         stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    if out.returncode != 0:
        raise RuntimeError(f"tesseract {lang} failed on {image}")
    return "\n".join(line["text"] for line in stable_sort(tsv_lines(out.stdout.decode("utf-8", "replace"))))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--corpus", default=make_condition_corpus.DEFAULT_OUT)
    parser.add_argument("--bench-out", default=os.path.join(HERE, "out", "conditions"),
                        help="a condition-bench output directory (its text/helper/ is scored)")
    parser.add_argument("--conditions", default="rot90,cw,ccw,half,crooked")
    parser.add_argument("--langs", default="en,zh-Hans,zh-Hant,mix")
    parser.add_argument("--plain", default=",".join(PLAIN))
    parser.add_argument("--held-out", choices=["include", "exclude", "only"], default="include")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--markdown", action="store_true")
    args = parser.parse_args()

    with open(os.path.join(args.corpus, "manifest.json"), encoding="utf-8") as f:
        pages = json.load(f)["pages"]
    conditions, langs = args.conditions.split(","), args.langs.split(",")
    pages = [p for p in pages if p["condition"] in conditions and p["lang"] in langs and
             {"include": True, "exclude": not p["held_out"], "only": p["held_out"]}[args.held_out]]
    configs = args.plain.split(",")
    work = tempfile.mkdtemp(prefix="plain-order-")
    dist = EditDistance(work)

    def score(page):
        with open(os.path.join(args.corpus, page["id"] + ".gt.txt"), encoding="utf-8") as f:
            ref = squash_nfkc(f.read())
        with open(os.path.join(args.bench_out, "text", "helper", page["id"] + ".txt"), encoding="utf-8") as f:
            helper = dist.distance(ref, squash_nfkc(f.read()))
        image = os.path.join(args.corpus, page["file"])
        plain = {c: dist.distance(ref, squash_nfkc(plain_text_in_reading_order(image, c, work))) for c in configs}
        return {"ref": len(ref), "helper": helper, "plain": plain}

    with concurrent.futures.ThreadPoolExecutor(max_workers=args.jobs) as pool:
        scores = list(pool.map(score, pages))

    head = ["condition", "language", "pages", "helper"] + [f"tesseract {c}" for c in configs] + \
           ["best plain", "helper at or below"]
    rows = []

    def row(cond, lang, sel):
        if not sel:
            return
        ref = sum(s["ref"] for s in sel)
        helper = sum(s["helper"] for s in sel)
        best = sum(min(s["plain"].values()) for s in sel)
        cells = [cond, lang, str(len(sel)), fmt_pct(helper / ref)]
        cells += [fmt_pct(sum(s["plain"][c] for s in sel) / ref) for c in configs]
        cells += [fmt_pct(best / ref), "yes" if helper <= best else "no"]
        rows.append(cells)

    pairs = list(zip(pages, scores))
    for cond in conditions:
        for lang in langs:
            row(cond, lang, [s for p, s in pairs if p["condition"] == cond and p["lang"] == lang])
        row(cond, "all", [s for p, s in pairs if p["condition"] == cond])
    print(f"Plain tesseract's lines in the helper's reading order; {len(pages)} pages "
          f"(held-out: {args.held_out}); helper text from {args.bench_out}")
    print(render(head, rows, args.markdown))


if __name__ == "__main__":
    main()
