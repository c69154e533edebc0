#!/usr/bin/python3
"""Builds the condition corpus: small generated pages (10-16 lines) for every
image condition x language, the drawn text being the ground truth.

    <corpus>/<id>.png or .jpg   the page image (the OCR input)
    <corpus>/<id>.gt.txt        the drawn lines, in reading order
    <corpus>/manifest.json      condition, language, source, font, size, dpi,
                                what was done to the image, held-out flag

Page ids are <condition>-<language>-NN. Conditions and their parameters are
described in page_conditions.py; languages:
    en       English: man pages and /usr/share/common-licenses (prose), the
             English msgids of the gettext catalogues (UI text)
    zh-Hans  zh_CN man pages (mostly-Chinese paragraphs), zh_CN catalogues
    zh-Hant  zh_TW man pages, zh_TW and zh_HK catalogues
    mix      Chinese man pages as they are (commands and options among the
             Chinese), catalogue strings that hold Han and Latin words
Screenshot and dark-mode pages alternate between UI strings (one per line)
and prose; the other conditions are prose. Fonts rotate over DejaVu Sans /
Serif / Sans Mono for English and over nine CJK families (Noto Sans and Serif
CJK SC and TC, AR PL UMing CN and TW, AR PL UKai CN and TW, WenQuanYi Zen
Hei) for the others, a face of either script for either text.

Held out: every third page of each condition x language (NN = 03, 06, ...).
The runner reports those separately, so that a change tuned on the rest can
be checked on pages it has not seen.

Usage: make_condition_corpus.py [--out DIR] [--per-cell N] [--force]
"""

import argparse
import json
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import page_conditions as pc  # noqa: E402
from make_ocr_corpus import Typesetter  # noqa: E402

DEFAULT_OUT = os.path.join(HERE, "corpus-conditions")
# Bump when pages would come out differently; a corpus of another version is rebuilt.
VERSION = 1
PER_CELL = 4


def held_out(number):
    """Every third page of a condition x language (1-based number)."""
    return number % 3 == 0


def page_spec(condition, lang, number, sources):
    ci, li = pc.CONDITIONS.index(condition), pc.LANGS.index(lang)
    pid = f"{condition}-{lang}-{number:02d}"
    rng = pc.seeded("conditions", VERSION, pid)
    st = pc.style_for(condition, rng)
    if lang == "en":
        family = pc.LATIN_FONTS[(number + ci) % len(pc.LATIN_FONTS)]
    else:
        family = pc.CJK_FONTS[(number * 2 + ci * 3 + li) % len(pc.CJK_FONTS)]
    ui = condition in ("screenshot", "dark") and number % 2 == 1
    pools = sources.ui(lang) if ui else sources.prose(lang)
    # A text too short for a page gives way to the next one in its pool.
    for step in range(len(pools)):
        label, texts = pools[(number + ci * 3 + li + step) % len(pools)]
        start = rng.randrange(len(texts))
        texts = texts[start:] + texts[:start]
        if condition in ("screenshot", "dark"):
            width = rng.choice([380, 440, 500, 560])
        else:
            width = rng.choice([360, 396, 432])
        max_lines = rng.randint(10, 16)
        setter = Typesetter(family, st["size"])
        lines = pc.layout_lines(setter, texts, width * 0.97, max_lines, one_per_line=ui)
        if len(lines) >= 3:
            break
    return pid, rng, st, family, label + (f" from item {start}" if not ui else f" from string {start}"), \
        lines, width


def build(out, per_cell=PER_CELL, force=False, log=print):
    manifest = None if force else pc.existing_manifest(out, VERSION, {"per_cell": per_cell, "conditions": pc.CONDITIONS},
                                                   "pages")
    if manifest:
        return manifest
    pc.fresh_dir(out)
    log(f"building the condition corpus in {out}")
    sources = pc.Sources(log)
    pages = []
    for condition in pc.CONDITIONS:
        for lang in pc.LANGS:
            for number in range(1, per_cell + 1):
                pid, rng, st, family, label, lines, width = page_spec(condition, lang, number, sources)
                if len(lines) < 3:
                    sys.exit(f"make_condition_corpus: {pid}: too little text from {label}")
                name, desc, (w, h) = pc.write_item(out, pid, lines, family, st, rng, width)
                truth = "\n".join(lines) + "\n"
                pages.append({"id": pid, "file": name, "condition": condition, "lang": lang,
                              "held_out": held_out(number), "source": label, "font": family,
                              "size_pt": st["size"], "dpi": st["dpi"], "image": desc,
                              "width_px": w, "height_px": h,
                              "lines": len(lines), "chars": len("".join(truth.split()))})
                log(f"  {pid}: {pages[-1]['chars']:4d} chars, {len(lines):2d} lines, {family}, {desc}")
    manifest = {"version": VERSION, "per_cell": per_cell, "conditions": pc.CONDITIONS, "pages": pages}
    with open(os.path.join(out, "manifest.json"), "w", encoding="utf-8") as f:
        json.dump(manifest, f, ensure_ascii=False, indent=1)
    return manifest


def main():
    parser = argparse.ArgumentParser(description="Builds the condition corpus.")
    parser.add_argument("--out", default=DEFAULT_OUT)
    parser.add_argument("--per-cell", type=int, default=PER_CELL,
                        help=f"pages per condition x language (default {PER_CELL})")
    parser.add_argument("--force", action="store_true")
    args = parser.parse_args()
    manifest = build(os.path.abspath(args.out), args.per_cell, args.force)
    print(f"{len(manifest['pages'])} pages in {os.path.abspath(args.out)}")


if __name__ == "__main__":
    main()
