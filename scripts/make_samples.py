#!/usr/bin/python3
"""Generates the sample page kept in samples/.

    make_samples.py [OUTDIR]        (default: samples/ beside this script)

Writes sample.png, a 1200 x 800 page at 200 dpi with printed English and
Simplified Chinese lines (DejaVu Sans and Noto Sans CJK SC, drawn with
cairo), and sample.txt, the text of those lines in reading order, one per
line. The output is the same on every run with the same fonts and cairo.
Needs /usr/bin/python3 (python3-cairo, python3-pil).
"""

import os
import sys

import cairo
from PIL import Image

WIDTH, HEIGHT, DPI = 1200, 800, 200
LEFT = 100

# (text, font family, size in points); lines are set top to bottom.
LINES = [
    ("Harbour Light Books", "DejaVu Sans", 16),
    ("Thank you for your order of three volumes.", "DejaVu Sans", 12),
    ("Please pay the amount below within 30 days.", "DejaVu Sans", 12),
    ("港湾之光书店", "Noto Sans CJK SC", 16),
    ("感谢您订购三本图书。", "Noto Sans CJK SC", 12),
    ("请在三十天内支付以下金额。", "Noto Sans CJK SC", 12),
    ("Total due: 128.50", "DejaVu Sans", 12),
]


def pixels(points):
    return points / 72.0 * DPI


def main():
    outdir = sys.argv[1] if len(sys.argv) > 1 else os.path.join(
        os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "samples")
    os.makedirs(outdir, exist_ok=True)

    surface = cairo.ImageSurface(cairo.FORMAT_RGB24, WIDTH, HEIGHT)
    ctx = cairo.Context(surface)
    ctx.set_source_rgb(1, 1, 1)
    ctx.paint()
    options = cairo.FontOptions()
    options.set_antialias(cairo.ANTIALIAS_GRAY)
    options.set_hint_style(cairo.HINT_STYLE_NONE)
    ctx.set_font_options(options)
    ctx.set_source_rgb(0, 0, 0)

    y = 70.0
    for text, family, points in LINES:
        size = pixels(points)
        y += size * 2.0
        ctx.select_font_face(family, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_NORMAL)
        ctx.set_font_size(size)
        ctx.move_to(LEFT, y)
        ctx.show_text(text)
    assert y < HEIGHT - 40, "the lines do not fit on the page"
    surface.flush()

    image = Image.frombuffer("RGB", (WIDTH, HEIGHT), bytes(surface.get_data()), "raw", "BGRX",
                             surface.get_stride(), 1)
    image.save(os.path.join(outdir, "sample.png"), dpi=(DPI, DPI))
    with open(os.path.join(outdir, "sample.txt"), "w", encoding="utf-8") as f:
        for text, _, _ in LINES:
            f.write(text + "\n")


if __name__ == "__main__":
    main()
