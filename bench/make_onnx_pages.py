#!/usr/bin/python3
"""Writes the pages the PP-OCR reader's bench reads (bench/onnx_reader_bench.cpp):

    letter200.pgm   a US Letter page at 200 dpi (1700 x 2200, grey): 11 pt
                    lines alternating Simplified Chinese (Noto Sans CJK SC)
                    and English (DejaVu Sans)
    photo25mp.ppm   a 25-megapixel colour image (6144 x 4096) of the same
                    kind of lines at 48 px, turned 2 degrees, on a lit-unevenly
                    background with sensor noise
    <name>.gt.txt   the lines drawn, in reading order

Text: the roff source of bash(1) in manpages-zh (zh_CN), markup dropped, and
/usr/share/common-licenses/Apache-2.0. Deterministic.
Usage: make_onnx_pages.py OUT_DIR
"""

import gzip
import math
import os
import re
import sys

import cairo
import numpy as np


def chinese_lines(count, width):
    with gzip.open("/usr/share/man/zh_CN/man1/bash.1.gz", "rt", encoding="utf-8") as f:
        source = f.read()
    stream = ""
    for para in source.split("\n"):
        if para.startswith((".", "'")):
            continue
        para = re.sub(r"\\f.|\\\(..|\\.", "", para)
        para = re.sub(r"\s+", "", para)
        han = sum(1 for ch in para if "\u4e00" <= ch <= "\u9fff")
        if len(para) >= 10 and han >= 0.7 * len(para):
            stream += para
    return [stream[i:i + width] for i in range(0, width * count, width)]


def english_lines(count, width):
    words = open("/usr/share/common-licenses/Apache-2.0", encoding="utf-8").read().split()
    lines, line = [], ""
    for word in words:
        if len(line) + 1 + len(word) > width:
            lines.append(line)
            line = word
        else:
            line = (line + " " + word).strip()
    return lines[:count]


def interleave(han, latin):
    out = []
    for a, b in zip(han, latin):
        out += [("Noto Sans CJK SC", a), ("DejaVu Sans", b)]
    return out


def draw(width, height, lines, size, spacing, margin, degrees, background):
    surface = cairo.ImageSurface(cairo.FORMAT_RGB24, width, height)
    cr = cairo.Context(surface)
    cr.set_source_rgb(1, 1, 1)
    cr.paint()
    cr.translate(width / 2, height / 2)
    cr.rotate(math.radians(degrees))
    cr.translate(-width / 2, -height / 2)
    cr.set_source_rgb(0, 0, 0)
    cr.set_font_size(size)
    y = margin + size
    for family, text in lines:
        cr.select_font_face(family)
        cr.move_to(margin, y)
        cr.show_text(text)
        y += size * spacing
    surface.flush()
    rgb = np.ndarray((height, width, 4), np.uint8, surface.get_data())[:, :, 2::-1].astype(np.float32)
    if background:
        rng = np.random.default_rng(27)
        ys, xs = np.mgrid[0:height, 0:width].astype(np.float32)
        light = 0.75 + 0.25 * np.cos((xs / width - 0.3) * 2.2) * np.cos((ys / height - 0.6) * 1.8)
        paper = np.stack([light * 235, light * 228, light * 210], axis=2)
        rgb = rgb / 255.0 * paper + rng.normal(0, 6, (height, width, 1))
    return np.clip(rgb, 0, 255).astype(np.uint8)


def write(out, name, pixels, lines):
    path = os.path.join(out, name)
    with open(path, "wb") as f:
        if pixels.ndim == 2:
            f.write(b"P5 %d %d 255\n" % (pixels.shape[1], pixels.shape[0]))
        else:
            f.write(b"P6 %d %d 255\n" % (pixels.shape[1], pixels.shape[0]))
        f.write(pixels.tobytes())
    with open(os.path.splitext(path)[0] + ".gt.txt", "w", encoding="utf-8") as f:
        f.write("".join(text + "\n" for _, text in lines))


def main():
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)
    # 11 pt at 200 dpi is 30.6 px; 1300 px of line holds about 40 Han or 90 Latin.
    letter = interleave(chinese_lines(19, 38), english_lines(19, 80))
    page = draw(1700, 2200, letter, 30.6, 1.5, 200, 0, False)
    write(out, "letter200.pgm", page.mean(axis=2).astype(np.uint8), letter)
    photo = interleave(chinese_lines(60, 60)[30:], english_lines(60, 130)[30:])[:50]
    write(out, "photo25mp.ppm", draw(6144, 4096, photo, 48, 1.4, 300, 2, True), photo)


if __name__ == "__main__":
    main()
