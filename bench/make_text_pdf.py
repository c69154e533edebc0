#!/usr/bin/python3
"""Writes a 10-page US Letter PDF with a real text layer (the GPL-3 text that
Debian ships in /usr/share/common-licenses, DejaVu Sans 10 pt, about 55
lines a page) for the page-pipeline benchmark.

    make_text_pdf.py OUT.pdf [PAGES]
"""
import sys
import textwrap

import cairo

out = sys.argv[1]
pages = int(sys.argv[2]) if len(sys.argv) > 2 else 10
with open("/usr/share/common-licenses/GPL-3", encoding="utf-8") as f:
    lines = []
    for paragraph in f.read().split("\n\n"):
        lines.extend(textwrap.wrap(" ".join(paragraph.split()), 95) or [""])
        lines.append("")

surface = cairo.PDFSurface(out, 612, 792)
surface.set_metadata(cairo.PDFMetadata.CREATE_DATE, "2026-11-21T00:00:00Z")
ctx = cairo.Context(surface)
ctx.select_font_face("DejaVu Sans")
ctx.set_font_size(10)
per_page = 55
for page in range(pages):
    for i, line in enumerate(lines[page * per_page:(page + 1) * per_page]):
        ctx.move_to(54, 60 + i * 12.6)
        ctx.show_text(line)
    surface.show_page()
surface.finish()
