#!/usr/bin/python3
"""Builds the script-choice corpus: short blocks of Chinese text (a few lines)
whose script, Simplified or Traditional, is known, drawn in nine CJK
families at 96 to 300 dpi under the image conditions of page_conditions.py.

    <corpus>/<id>.png or .jpg   the sample image
    <corpus>/<id>.gt.txt        the drawn lines
    <corpus>/manifest.json      truth, source, font, dpi, condition, counts

Truth: the locale of the source (zh_CN -> Simplified; zh_TW, zh_HK ->
Traditional), confirmed by counting the characters written in forms only one
script uses (ocr_bench_common.ScriptForms, from ICU's transliteration data):
a block is only taken when its own script's characters outnumber the other
script's, so a block without any distinguishing character never becomes a
sample (either script's reading of it would be right).

Sources: mostly-Chinese paragraphs of the zh_CN and zh_TW man pages
(manpages-zh) and UI strings of the zh_CN, zh_TW and zh_HK gettext
catalogues in /usr/share/locale (one string per line). Samples alternate
between the scripts; for each script the fonts, conditions and resolutions
rotate independently, so every font meets every condition. About one sample
in seven is short (10-29 Han characters) to show where the evidence runs out;
the others hold 30-120, and every fifth of those is chosen, where the source
has one, with at most four distinguishing characters.

Usage: make_script_corpus.py [--out DIR] [--count N] [--force]
"""

import argparse
import json
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import page_conditions as pc  # noqa: E402

# The conditions samples are drawn under: the first eight of the condition
# bench's (the later ones are whole pages: a sheet with margins, pages
# turned a quarter or a half), so that the samples stay as they were made.
CONDITIONS = pc.CONDITIONS[:8]
from make_ocr_corpus import Typesetter  # noqa: E402
from ocr_bench_common import ScriptForms, han_count  # noqa: E402

DEFAULT_OUT = os.path.join(HERE, "corpus-script")
VERSION = 2
COUNT = 240
SCAN_DPIS = [96, 120, 150, 200, 300]
SCRIPTS = ["Hans", "Hant"]


def pools_for(script, sources):
    """(prose pools, UI-string pools) of the script."""
    lang = "zh-" + script
    return sources.prose(lang), sources.ui(lang)


def block(setter, texts, width, target, forms, script, ui):
    """Lines from texts (starting at its first item) until target Han characters."""
    lines = []
    for text in texts:
        if not setter.covers(text, False) or "\ufffd" in text:
            continue
        for line in setter.wrap(text, width, False):
            if ui and lines and han_count("".join(lines)) + han_count(line) > target * 1.5:
                continue
            lines.append(line)
            if han_count("".join(lines)) >= target or len(lines) >= 8:
                break
        if han_count("".join(lines)) >= target or len(lines) >= 8:
            break
    if not lines:
        return None
    s, t = forms.counts("".join(lines))
    own, other = (s, t) if script == "Hans" else (t, s)
    if own <= other:
        return None
    return lines


# Typefaces of neither the corpus above nor the helper's reference glyphs
# (Noto Sans/Serif CJK, Arphic KaitiM), for checking that the script choice
# holds on faces it has never seen; a face that covers only one script's
# character set is used for that script's samples only.
HELD_OUT_FONTS = {
    "Hans": ["AR PL SungtiL GB", "WenQuanYi Micro Hei", "Droid Sans Fallback"],
    "Hant": ["AR PL Mingti2L Big5", "WenQuanYi Micro Hei", "Droid Sans Fallback"],
}
HELD_OUT_PACKAGES = "fonts-arphic-gbsn00lp fonts-arphic-bsmi00lp fonts-wqy-microhei fonts-droid-fallback"


def sample_spec(i, sources, forms, held_out_fonts=False):
    script = SCRIPTS[i % 2]
    k = i // 2
    sid = f"{script}-{i + 1:03d}"
    rng = pc.seeded("script", VERSION, sid)
    fonts = HELD_OUT_FONTS[script] if held_out_fonts else pc.CJK_FONTS
    family = fonts[k % len(fonts)]
    condition = CONDITIONS[(k // len(pc.CJK_FONTS) + k) % len(CONDITIONS)]
    dpi = size = None
    if condition not in ("screenshot", "dark", "small"):
        dpi = SCAN_DPIS[(3 * k + k // len(CONDITIONS)) % len(SCAN_DPIS)]
        size = rng.choice([10, 10.5, 11, 12, 14])
    st = pc.style_for(condition, rng, dpi=dpi, size=size)
    short = k % 7 == 3
    target = rng.randint(10, 29) if short else rng.randint(30, 120)
    width = rng.choice([260, 320, 380])
    setter = Typesetter(family, st["size"])
    # Two samples of man-page prose, then one of UI strings; the next pool
    # when a pool has no block that fits.
    prose, ui_pools = pools_for(script, sources)
    pools = ui_pools if k % 3 == 2 else prose
    # Every fifth sample looks for a block with at most four distinguishing
    # characters (technical prose where nearly every character is shared).
    sparse = k % 5 == 1 and not short
    for wanted in ([4, None] if sparse else [None]):
        for p in range(len(pools)):
            label, texts = pools[(k // 3 + p) % len(pools)]
            ui = label.startswith("msgstr")
            start = rng.randrange(len(texts))
            for attempt in range(100 if wanted is None else 400):
                at = (start + attempt * 7) % len(texts)
                lines = block(setter, texts[at:] + texts[:at], width * 0.97, target, forms, script, ui)
                if not lines or (han_count("".join(lines)) >= 30) == short:
                    continue
                if wanted is not None and sum(forms.counts("".join(lines))) > wanted:
                    continue
                return sid, rng, st, family, script, f"{label} from item {at}", lines, width
    sys.exit(f"make_script_corpus: no block fits sample {sid}")


def build(out, count=COUNT, force=False, log=print, held_out_fonts=False):
    settings = {"count": count, **({"held_out_fonts": True} if held_out_fonts else {})}
    manifest = None if force else pc.existing_manifest(out, VERSION, settings, "samples")
    if manifest:
        return manifest
    pc.fresh_dir(out)
    log(f"building the script-choice corpus in {out}")
    sources, forms = pc.Sources(log), ScriptForms()
    samples = []
    for i in range(count):
        sid, rng, st, family, script, label, lines, width = sample_spec(i, sources, forms, held_out_fonts)
        name, desc, _ = pc.write_item(out, sid, lines, family, st, rng, width, margin_pt=12.0)
        truth = "\n".join(lines) + "\n"
        s, t = forms.counts(truth)
        samples.append({"id": sid, "file": name, "truth": script, "source": label, "font": family,
                        "font_group": pc.font_group(family), "condition": st["condition"],
                        "dpi": st["dpi"], "size_pt": st["size"], "image": desc, "lines": len(lines),
                        "han": han_count(truth), "simplified_only": s, "traditional_only": t})
        log(f"  {sid}: {samples[-1]['han']:3d} Han ({s} S-only, {t} T-only), {family}, {desc}; {label}")
    manifest = {"version": VERSION, **settings, "samples": samples}
    with open(os.path.join(out, "manifest.json"), "w", encoding="utf-8") as f:
        json.dump(manifest, f, ensure_ascii=False, indent=1)
    return manifest


def main():
    parser = argparse.ArgumentParser(description="Builds the script-choice corpus.")
    parser.add_argument("--out", default=DEFAULT_OUT)
    parser.add_argument("--count", type=int, default=COUNT, help=f"samples (default {COUNT})")
    parser.add_argument("--force", action="store_true")
    parser.add_argument("--held-out-fonts", action="store_true",
                        help=f"set the samples in typefaces of neither the corpus nor the helper's reference glyphs "
                             f"(packages {HELD_OUT_PACKAGES})")
    args = parser.parse_args()
    manifest = build(os.path.abspath(args.out), args.count, args.force, held_out_fonts=args.held_out_fonts)
    print(f"{len(manifest['samples'])} samples in {os.path.abspath(args.out)}")


if __name__ == "__main__":
    main()
