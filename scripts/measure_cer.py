#!/usr/bin/python3
"""Measures the character error rate of kem-vision-ocr on three printed pages.

Renders an English, a Simplified Chinese and a Traditional Chinese page
(A4 at 200 dpi, 12 pt text, cairo) from prose kept in this file, runs the
helper on each one (`HELPER --input PAGE --artifacts DIR --json`), reads the
ocr.txt it writes and prints, per page, the character error rate against the
source text (Levenshtein distance / reference length, all whitespace removed
from both sides) and the wall-clock seconds the run took.

Beside the helper's column:
  tesseract      the plain tesseract command with the helper's languages, as
                 a baseline (drop it with --no-tesseract):
                 OMP_THREAD_LIMIT=1 tesseract PAGE - -l chi_sim+chi_tra+eng --psm 3
                 It reads the 200 dpi stored in the PNG; the helper and the
                 bench treat an image file's resolution as unknown.
  --bench PATH   the engine alone, through bench/ocr_page_bench --text
                 (a few recognitions per page; seconds per page without
                 loading the models)
Seconds are wall-clock per page, with model loading for the helper and the
tesseract command (one process per page).

Usage: measure_cer.py [--helper PATH] [--bench PATH] [--no-tesseract] [--keep DIR]
Needs /usr/bin/python3 (python3-cairo, python3-pil).
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time

import cairo
from PIL import Image

REPO = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LANGS = "chi_sim+chi_tra+eng"

DPI = 200
POINT_SIZE = 12
PAGE_W, PAGE_H = 1654, 2339  # A4 at 200 dpi
MARGIN = 160

ENGLISH = (
    "The river town wakes slowly in winter. Before the first bus arrives, the baker has "
    "already lit the ovens, and the smell of warm bread drifts along the narrow streets "
    "toward the old stone bridge. Fishermen check their nets by lamplight while the ferry "
    "waits at the pier, its engine ticking as it cools. By eight o'clock the market square "
    "is full of voices: farmers sell apples and cabbages, a teacher hurries past with a "
    "stack of notebooks, and two children argue about whether the ice on the pond is thick "
    "enough to skate. Nobody in town owns a clock that shows the same time as any other, yet "
    "somehow everyone arrives where they need to be. In the afternoon the light turns gold, "
    "the wind drops, and the town settles into a quiet rhythm that visitors often mistake "
    "for boredom. The library closes at 5:30 on weekdays and at noon on Saturdays; its 12 "
    "reading tables were built in 1921 from a single oak that fell during a storm."
)

SIMPLIFIED = (
    "清晨的小城总是很安静。面包师傅天不亮就点起了炉火，新鲜面包的香味顺着狭窄的街道飘向河边的"
    "石桥。渔民们提着灯检查渔网，渡船停在码头上，发动机慢慢冷却。到了八点钟，集市广场上已经"
    "人声鼎沸：农民在卖苹果和白菜，一位老师抱着一摞作业本匆匆走过，两个孩子正在争论池塘的冰"
    "是否够厚，能不能去滑冰。城里没有两块表的时间完全一样，可是每个人总能准时到达该去的地方。"
    "下午阳光变成金色，风也停了，小城慢慢进入一种平静的节奏，外地游客常常把这种平静误认为无聊。"
    "图书馆每天早上九点开门，周末只开半天，阅览室里的十二张桌子都是用同一棵老橡树做成的。"
)

TRADITIONAL = (
    "圖書館位於山坡上，是一棟兩層樓的紅磚建築。每天早上九點，管理員會打開厚重的木門，讓陽光"
    "照進寬敞的閱覽室。書架上整齊地排列著歷史、地理、文學和科學方面的書籍，還有許多關於本地"
    "風俗的舊報紙。學生們喜歡坐在靠窗的位置，一邊寫作業，一邊看著遠處的海港。週末的時候，常常"
    "有老人來這裡下棋或者讀報，安靜的氣氛讓人感到非常舒服。館長說，這座圖書館已經有八十多年的"
    "歷史，經歷過戰爭和颱風，但是從來沒有關閉過一天。每年春天，館裡都會舉辦一次舊書交換會，"
    "附近村莊的居民帶著自己讀過的書來到這裡，換回一本新的故事。"
)

PAGES = [
    # name, text, font, wrap by words
    ("english", ENGLISH, "DejaVu Sans", True),
    ("simplified", SIMPLIFIED, "Noto Sans CJK SC", False),
    ("traditional", TRADITIONAL, "Noto Sans CJK TC", False),
]

# Characters a Chinese line must not start with.
NO_LINE_START = set("，。、；：？！」』）》")


def wrap(ctx, text, by_words, width):
    lines = []
    if by_words:
        line = ""
        for word in text.split():
            candidate = word if not line else line + " " + word
            if ctx.text_extents(candidate).x_advance > width and line:
                lines.append(line)
                line = word
            else:
                line = candidate
        if line:
            lines.append(line)
        return lines
    line = ""
    for ch in text:
        if ctx.text_extents(line + ch).x_advance > width and line and ch not in NO_LINE_START:
            lines.append(line)
            line = ch
        else:
            line += ch
    if line:
        lines.append(line)
    return lines


def render(path, text, family, by_words):
    surface = cairo.ImageSurface(cairo.FORMAT_RGB24, PAGE_W, PAGE_H)
    ctx = cairo.Context(surface)
    ctx.set_source_rgb(1, 1, 1)
    ctx.paint()
    opts = cairo.FontOptions()
    opts.set_antialias(cairo.ANTIALIAS_GRAY)
    opts.set_hint_style(cairo.HINT_STYLE_NONE)
    ctx.set_font_options(opts)
    ctx.select_font_face(family, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_NORMAL)
    size = POINT_SIZE / 72.0 * DPI
    ctx.set_font_size(size)
    ctx.set_source_rgb(0, 0, 0)
    y = MARGIN + size
    for line in wrap(ctx, text, by_words, PAGE_W - 2 * MARGIN):
        ctx.move_to(MARGIN, y)
        ctx.show_text(line)
        y += size * 1.6
    surface.flush()
    data = bytes(surface.get_data())
    image = Image.frombuffer("RGB", (PAGE_W, PAGE_H), data, "raw", "BGRX", surface.get_stride(), 1)
    image.save(path, dpi=(DPI, DPI))


def squash(text):
    return "".join(text.split())


def levenshtein(a, b):
    if len(a) < len(b):
        a, b = b, a
    previous = list(range(len(b) + 1))
    for i, ca in enumerate(a, 1):
        current = [i]
        for j, cb in enumerate(b, 1):
            current.append(min(previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (ca != cb)))
        previous = current
    return previous[-1]


def cer(reference, hypothesis):
    ref, hyp = squash(reference), squash(hypothesis)
    return levenshtein(ref, hyp) / max(len(ref), 1)


def run(argv, **kwargs):
    """subprocess.run, or None when the program cannot be started."""
    try:
        return subprocess.run(argv, capture_output=True, timeout=600, **kwargs)
    except OSError:
        return None


def run_helper(helper, page, workdir):
    artifacts = tempfile.mkdtemp(prefix="artifacts-", dir=workdir)
    os.rmdir(artifacts)  # a fresh directory the helper creates itself
    start = time.monotonic()
    proc = run([helper, "--input", page, "--artifacts", artifacts, "--json"])
    seconds = time.monotonic() - start
    if proc is None:
        return None, 0.0, "not found"
    ocr = os.path.join(artifacts, "ocr.txt")
    if proc.returncode != 0 or not os.path.exists(ocr):
        return None, seconds, f"exit {proc.returncode}"
    with open(ocr, encoding="utf-8") as f:
        return f.read(), seconds, ""


def run_bench(bench, page, repeat=2):
    proc = run([bench, "--repeat", str(repeat), "--text", page])
    if proc is None:
        return None, 0.0, "not found"
    if proc.returncode != 0:
        return None, 0.0, f"exit {proc.returncode}"
    seconds = 0.0
    for line in proc.stderr.decode().splitlines():
        if line.startswith("seconds per page"):
            seconds = float(line.split(":")[1].split()[0])
    return proc.stdout.decode("utf-8"), seconds, ""


def run_tesseract(page):
    env = dict(os.environ, OMP_THREAD_LIMIT="1")
    start = time.monotonic()
    proc = run(["tesseract", page, "-", "-l", LANGS, "--psm", "3"], env=env)
    seconds = time.monotonic() - start
    if proc is None:
        return None, 0.0, "not found"
    if proc.returncode != 0:
        return None, seconds, f"exit {proc.returncode}"
    return proc.stdout.decode("utf-8"), seconds, ""


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[1])
    parser.add_argument("--helper", default=os.path.join(REPO, "build", "kem-vision-ocr"))
    parser.add_argument("--bench", help="path of the ocr_page_bench binary")
    parser.add_argument("--no-tesseract", action="store_true", help="leave out the plain tesseract command")
    parser.add_argument("--keep", help="write pages and outputs here instead of a temporary directory")
    args = parser.parse_args()

    # The helper takes absolute paths only.
    workdir = os.path.abspath(args.keep or tempfile.mkdtemp(prefix="kvo-cer-"))
    os.makedirs(workdir, exist_ok=True)
    helper = os.path.abspath(args.helper)
    bench = os.path.abspath(args.bench) if args.bench else None

    columns = [("helper", lambda page: run_helper(helper, page, workdir))]
    if bench:
        columns.append(("engine", lambda page: run_bench(bench, page)))
    if not args.no_tesseract:
        columns.append(("tesseract", run_tesseract))

    header = f"{'page':<12}" + "".join(f"{name + ' CER':>16}{'s/page':>9}" for name, _ in columns)
    print(header)
    for name, text, family, by_words in PAGES:
        page = os.path.join(workdir, name + ".png")
        render(page, text, family, by_words)
        with open(os.path.join(workdir, name + ".txt"), "w", encoding="utf-8") as f:
            f.write(text + "\n")
        row = f"{name:<12}"
        for column, run in columns:
            output, seconds, error = run(page)
            if output is None:
                row += f"{'n/a (' + error + ')':>16}{seconds:>9.2f}"
                continue
            with open(os.path.join(workdir, f"{name}.{column}.txt"), "w", encoding="utf-8") as f:
                f.write(output)
            row += f"{100 * cer(text, output):>15.2f}%{seconds:>9.2f}"
        print(row, flush=True)
    if not args.keep:
        print(f"(pages and outputs in {workdir})")
    return 0


if __name__ == "__main__":
    sys.exit(main())
