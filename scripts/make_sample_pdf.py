#!/usr/bin/python3
"""Generates samples/sample.pdf from samples/sample.png.

    make_sample_pdf.py [SAMPLES_DIR]

Two US Letter pages: the first carries a real text layer (English and
Simplified Chinese lines set with DejaVu Sans and Noto Sans CJK SC), the
second only the sample page as a picture, with no text layer. In text mode
the helper takes page 1 from its own text and renders and recognises page 2;
in layout mode it renders and recognises both. Deterministic for the same
fonts and cairo. Needs /usr/bin/python3 (python3-cairo).
"""

import os
import sys

import cairo

LINES = [
    ("Harbour Light Books: statement", "DejaVu Sans", 16),
    ("Three volumes were shipped on 21 November.", "DejaVu Sans", 12),
    ("港湾之光书店：对账单", "Noto Sans CJK SC", 16),
    ("三本图书已于十一月二十一日发出。", "Noto Sans CJK SC", 12),
]


def main():
    samples = sys.argv[1] if len(sys.argv) > 1 else os.path.join(
        os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "samples")
    surface = cairo.PDFSurface(os.path.join(samples, "sample.pdf"), 612, 792)
    surface.set_metadata(cairo.PDFMetadata.CREATE_DATE, "2026-11-21T00:00:00Z")
    surface.set_metadata(cairo.PDFMetadata.MOD_DATE, "2026-11-21T00:00:00Z")
    ctx = cairo.Context(surface)

    y = 100
    for text, family, size in LINES:
        ctx.select_font_face(family)
        ctx.set_font_size(size)
        ctx.move_to(72, y)
        ctx.show_text(text)
        y += size * 2.2
    surface.show_page()

    # The 200-dpi sample picture at its natural size: 1200 px = 432 pt.
    picture = cairo.ImageSurface.create_from_png(os.path.join(samples, "sample.png"))
    ctx.save()
    ctx.translate(72, 72)
    ctx.scale(72 / 200, 72 / 200)
    ctx.set_source_surface(picture, 0, 0)
    ctx.paint()
    ctx.restore()
    surface.show_page()
    surface.finish()


if __name__ == "__main__":
    main()
