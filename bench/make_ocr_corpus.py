#!/usr/bin/python3
"""Builds the OCR benchmark corpus from text that Debian packages ship.

Every page is typeset with cairo into a one-page US Letter PDF that carries a
real text layer, rasterised with `pdftoppm -r 200 -png`, and stored with the
text that was drawn on it (the ground truth):

    <corpus>/<id>.pdf        the page with its text layer
    <corpus>/<id>.png        the same page at 200 dpi (the OCR input)
    <corpus>/<id>.scan.pdf   an image-only US Letter PDF holding exactly those
                             pixels (losslessly) at 200 dpi
    <corpus>/<id>.gt.txt     the drawn lines, in reading order
    <corpus>/manifest.json   kinds, sources, fonts, sizes, character counts

Kinds of page and where their text comes from:
    en   English documentation: /usr/share/common-licenses/* and English
         man pages rendered to text with `man` (DejaVu Sans / Serif)
    sc   Simplified Chinese prose from the zh_CN man pages of manpages-zh
         (Noto Sans CJK SC / Noto Serif CJK SC)
    tc   Traditional Chinese prose from the zh_TW man pages of manpages-zh
         (Noto Sans CJK TC)
    mix  Chinese man pages as they are: Chinese descriptions interleaved with
         English command and option names

For sc and tc only paragraphs that are mostly Chinese are kept; mix keeps
whole man pages. The man pages are formatted with a very wide line so that
every paragraph comes out on one line and is then re-flowed to the page.

Usage: make_ocr_corpus.py [--out DIR] [--force]
Needs /usr/bin/python3 (python3-cairo, python3-pil, python3-fonttools),
poppler-utils, manpages-zh, fonts-dejavu-core, fonts-noto-cjk.
"""

import argparse
import json
import os
import re
import shutil
import subprocess
import sys

import cairo
from PIL import Image

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_OUT = os.path.join(HERE, "corpus")

# Bump when the pages would come out differently; the benchmark rebuilds a
# corpus whose manifest carries another version.
CORPUS_VERSION = 7

PAGE_W, PAGE_H = 612.0, 792.0  # US Letter in points
MARGIN = 72.0
DPI = 200

LICENSES = "/usr/share/common-licenses"
MAN = "/usr/share/man"

# id prefix, kind, source, first page (1-based), page count, font family, size (pt)
# source: ("license", name) | ("man", "<dir under /usr/share/man>/<file>", filter)
SOURCES = [
    ("en", ("license", "Apache-2.0"), 1, 2, "DejaVu Serif", 11),
    ("en", ("license", "GPL-3"), 3, 2, "DejaVu Sans", 11),
    ("en", ("license", "MPL-2.0"), 2, 1, "DejaVu Serif", 12),
    ("en", ("license", "Artistic"), 1, 1, "DejaVu Sans", 12),
    ("en", ("man", "man1/bash.1.gz", "all"), 2, 2, "DejaVu Sans", 11),
    ("en", ("man", "man1/tar.1.gz", "all"), 1, 1, "DejaVu Serif", 11),
    ("en", ("man", "man1/grep.1.gz", "all"), 1, 1, "DejaVu Sans", 12),

    ("sc", ("man", "zh_CN/man1/bash.1.gz", "prose"), 1, 2, "Noto Sans CJK SC", 12),
    ("sc", ("man", "zh_CN/man7/bootparam.7.gz", "prose"), 1, 2, "Noto Serif CJK SC", 12),
    ("sc", ("man", "zh_CN/man7/lilyfaq.7.gz", "prose"), 1, 1, "Noto Sans CJK SC", 11),
    ("sc", ("man", "zh_CN/man7/file-hierarchy.7.gz", "prose"), 1, 1, "Noto Serif CJK SC", 11),
    ("sc", ("man", "zh_CN/man7/perlsec.7.gz", "prose"), 1, 1, "Noto Sans CJK SC", 12),
    ("sc", ("man", "zh_CN/man7/copy.7.gz", "prose"), 1, 1, "Noto Serif CJK SC", 12),

    ("tc", ("man", "zh_TW/man5/smb.conf.5.gz", "prose"), 1, 2, "Noto Sans CJK TC", 12),
    ("tc", ("man", "zh_TW/man1/psql.1.gz", "prose"), 1, 2, "Noto Sans CJK TC", 11),
    ("tc", ("man", "zh_TW/man7/perldata.7.gz", "prose"), 1, 1, "Noto Sans CJK TC", 12),
    ("tc", ("man", "zh_TW/man7/perlcompile.7.gz", "prose"), 1, 1, "Noto Sans CJK TC", 11),
    ("tc", ("man", "zh_TW/man8/iptables.8.gz", "prose"), 1, 1, "Noto Sans CJK TC", 12),
    ("tc", ("man", "zh_TW/man1/journalctl.1.gz", "prose"), 1, 1, "Noto Sans CJK TC", 12),

    ("mix", ("man", "zh_CN/man1/ls.1.gz", "all"), 1, 1, "Noto Sans CJK SC", 11),
    ("mix", ("man", "zh_CN/man1/tar.1.gz", "all"), 1, 1, "Noto Serif CJK SC", 11),
    ("mix", ("man", "zh_CN/man1/systemctl.1.gz", "all"), 2, 1, "Noto Sans CJK SC", 11),
    ("mix", ("man", "zh_CN/man1/find.1.gz", "all"), 1, 1, "Noto Sans CJK SC", 12),
    ("mix", ("man", "zh_TW/man1/ssh.1.gz", "all"), 1, 1, "Noto Sans CJK TC", 11),
    ("mix", ("man", "zh_TW/man1/grep.1.gz", "all"), 1, 1, "Noto Sans CJK TC", 12),
]

KINDS = ["en", "sc", "tc", "mix"]

# ---------------------------------------------------------------- text sources

CJK_RE = re.compile(r"[\u3400-\u4dbf\u4e00-\u9fff\uf900-\ufaff]")
# Ideographs plus CJK and full-width punctuation: no spaces between two of these.
WIDE_RE = r"[\u3000-\u303f\u3400-\u4dbf\u4e00-\u9fff\uf900-\ufaff\uff00-\uffef\u2018-\u201f\u2026\u00b7]"
SPACE_BETWEEN_WIDE = re.compile(f"(?<={WIDE_RE})\\s+(?={WIDE_RE})")

ENGLISH_FOLD = {
    "\u2010": "-", "\u2011": "-", "\u2212": "-",
    "\u2018": "'", "\u2019": "'", "\u201c": '"', "\u201d": '"',
    "\u00a0": " ", "\u00ad": "",
}
CHINESE_FOLD = {"\u2010": "-", "\u2011": "-", "\u2212": "-", "\u00a0": " ", "\u00ad": ""}


class Block:
    """One paragraph: its text, indentation level and whether it is a heading."""

    def __init__(self, text, level=0, heading=False):
        self.text, self.level, self.heading = text, level, heading


def clean(text, chinese):
    fold = CHINESE_FOLD if chinese else ENGLISH_FOLD
    text = "".join(fold.get(c, c) for c in text)
    if chinese:
        text = SPACE_BETWEEN_WIDE.sub("", text)
    return " ".join(text.split())


def render_man(path):
    env = dict(os.environ, LANG="C.UTF-8", LC_ALL="C.UTF-8", MANWIDTH="2000",
               MAN_KEEP_FORMATTING="", MANPAGER="cat", PAGER="cat")
    proc = subprocess.run(["man", "--encoding=UTF-8", "-l", path], env=env,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True)
    text = proc.stdout.decode("utf-8", "replace")
    text = re.sub(r"\x1b\[[0-9;]*m", "", text)
    text = re.sub(r".\x08", "", text)
    return text.expandtabs(8)


def man_blocks(path, chinese):
    lines = render_man(path).splitlines()
    # Drop the running header and footer lines that man prints.
    while lines and not lines[0].strip():
        lines.pop(0)
    while lines and not lines[-1].strip():
        lines.pop()
    if lines:
        lines = lines[1:-1]
    blocks = []
    for line in lines:
        if not line.strip():
            continue
        indent = len(line) - len(line.lstrip(" "))
        text = clean(line, chinese)
        if not text:
            continue
        if indent < 7:
            blocks.append(Block(text, 0, heading=True))
        else:
            blocks.append(Block(text, min(2, (indent - 7 + 3) // 7)))
    return blocks


def license_blocks(path):
    with open(path, encoding="utf-8") as f:
        text = f.read().replace("\f", "\n")
    blocks = []
    for para in re.split(r"\n\s*\n", text):
        if not para.strip():
            continue
        first = para.strip("\n").split("\n")[0]
        indent = len(first) - len(first.lstrip(" "))
        # Underlines and rules ("-----", "=====") are decoration, not text.
        body = clean(re.sub(r"[-=*_]{4,}", " ", para), False)
        if body:
            blocks.append(Block(body, 0 if indent < 4 else 1))
    return blocks


def is_prose(block):
    chars = "".join(block.text.split())
    return len(chars) >= 2 and len(CJK_RE.findall(chars)) / len(chars) >= 0.6


def is_text(block):
    # Leave out rules and ornaments such as "*****" or "-----".
    chars = "".join(block.text.split())
    useful = sum(1 for c in chars if c.isalnum())
    return chars and useful / len(chars) >= 0.3


def source_blocks(source):
    if source[0] == "license":
        return license_blocks(os.path.join(LICENSES, source[1]))
    _, rel, which = source
    chinese = rel.startswith("zh_")
    blocks = man_blocks(os.path.join(MAN, rel), chinese)
    if which == "prose":
        blocks = [b for b in blocks if is_prose(b)]
    return blocks


def source_label(source):
    if source[0] == "license":
        return f"{LICENSES}/{source[1]}"
    return f"{MAN}/{source[1]} (man, {source[2]})"


# ---------------------------------------------------------------- typesetting

NO_LINE_START = set("，。、；：？！」』）》〉】〕,.;:?!)]}%")
NO_LINE_END = set("「『（《〈【〔([{")
TOKEN_RE = re.compile(
    r"\s+|[\u3000-\u303f\u3400-\u4dbf\u4e00-\u9fff\uf900-\ufaff\uff00-\uffef\u2018-\u201f\u2026]|[^\s\u3000-\u303f\u3400-\u4dbf\u4e00-\u9fff\uf900-\ufaff\uff00-\uffef\u2018-\u201f\u2026]+")


def unhinted():
    """Font options of a PDF surface: metrics and outlines as designed."""
    options = cairo.FontOptions()
    options.set_hint_metrics(cairo.HINT_METRICS_OFF)
    options.set_hint_style(cairo.HINT_STYLE_NONE)
    return options


class Typesetter:
    def __init__(self, family, size):
        self.family, self.size = family, size
        self.leading = size * (1.55 if "CJK" in family else 1.4)
        surface = cairo.RecordingSurface(cairo.CONTENT_COLOR, None)
        self.ctx = cairo.Context(surface)
        self.ctx.set_font_options(unhinted())
        self.fonts = {}
        self.widths = {}

    def font(self, bold):
        if bold not in self.fonts:
            self.ctx.select_font_face(self.family, cairo.FONT_SLANT_NORMAL,
                                      cairo.FONT_WEIGHT_BOLD if bold else cairo.FONT_WEIGHT_NORMAL)
            self.ctx.set_font_size(self.size)
            self.fonts[bold] = self.ctx.get_scaled_font()
        return self.fonts[bold]

    def covers(self, text, bold):
        glyphs = self.font(bold).text_to_glyphs(0, 0, "".join(text.split()), False)
        return all(g.index != 0 for g in glyphs)

    def width(self, text, bold):
        key = (text, bold)
        if key not in self.widths:
            self.widths[key] = self.font(bold).text_extents(text).x_advance
        return self.widths[key]

    def wrap(self, text, width, bold):
        """Greedy line filling; Latin words stay whole, ideographs break anywhere."""
        tokens = TOKEN_RE.findall(text)
        lines, line, used = [], [], 0.0
        for tok in tokens:
            if tok.isspace():
                if line:
                    line.append(" ")
                    used += self.width(" ", bold)
                continue
            w = self.width(tok, bold)
            if used + w > width and line:
                # Keep closing punctuation on the line it closes.
                if tok in NO_LINE_START:
                    line.append(tok)
                    lines.append("".join(line).rstrip())
                    line, used = [], 0.0
                    continue
                carry = []
                while line and line[-1] in NO_LINE_END:
                    carry.insert(0, line.pop())
                if line:
                    lines.append("".join(line).rstrip())
                line = carry
                used = sum(self.width(t, bold) for t in carry)
            if w > width:
                # A token longer than the line (a path, a URL): break it by characters.
                for ch in tok:
                    cw = self.width(ch, bold)
                    if used + cw > width and line:
                        lines.append("".join(line).rstrip())
                        line, used = [], 0.0
                    line.append(ch)
                    used += cw
                continue
            line.append(tok)
            used += w
        if line and "".join(line).strip():
            lines.append("".join(line).rstrip())
        return lines

    def paginate(self, blocks, wanted_pages):
        """Returns up to wanted_pages pages, each a list of (x, baseline y, text, bold)."""
        pages, page = [], []
        top = MARGIN + self.size
        bottom = PAGE_H - MARGIN
        y = top
        text_width = PAGE_W - 2 * MARGIN
        for block in blocks:
            indent = block.level * 2 * self.size
            lines = self.wrap(block.text, text_width - indent, block.heading)
            if page and block.heading:
                y += self.leading * 0.4
            for line in lines:
                if y > bottom:
                    pages.append(page)
                    if len(pages) >= wanted_pages:
                        return pages
                    page, y = [], top
                page.append((MARGIN + indent, y, line, block.heading))
                y += self.leading
            if page:
                y += self.leading * 0.35
        if page:
            pages.append(page)
        return pages[:wanted_pages]

    def draw(self, ctx, page):
        ctx.set_source_rgb(1, 1, 1)
        ctx.paint()
        ctx.set_source_rgb(0, 0, 0)
        for x, y, text, bold in page:
            ctx.select_font_face(self.family, cairo.FONT_SLANT_NORMAL,
                                 cairo.FONT_WEIGHT_BOLD if bold else cairo.FONT_WEIGHT_NORMAL)
            ctx.set_font_size(self.size)
            ctx.move_to(x, y)
            ctx.show_text(text)

    def draw_pdf(self, path, page, title):
        surface = cairo.PDFSurface(path, PAGE_W, PAGE_H)
        try:
            surface.set_metadata(cairo.PDFMetadata.TITLE, title)
            surface.set_metadata(cairo.PDFMetadata.CREATOR, "kem-vision-ocr bench/make_ocr_corpus.py")
        except AttributeError:
            pass
        self.draw(cairo.Context(surface), page)
        surface.finish()

    def draw_image(self, page):
        """The page drawn directly (no PDF in between) as 8-bit grey at DPI."""
        w, h = round(PAGE_W * DPI / 72), round(PAGE_H * DPI / 72)
        surface = cairo.ImageSurface(cairo.FORMAT_RGB24, w, h)
        ctx = cairo.Context(surface)
        # Unhinted metrics and outlines: glyphs sit where they sit in the PDF.
        ctx.set_font_options(unhinted())
        ctx.scale(DPI / 72, DPI / 72)
        self.draw(ctx, page)
        surface.flush()
        return Image.frombuffer("RGB", (w, h), bytes(surface.get_data()), "raw", "BGRX",
                                surface.get_stride(), 1).convert("L")


# ---------------------------------------------------------------- fonts
#
# cairo 1.16 (Debian 12) can drop a local subroutine a glyph still calls when it
# subsets a CFF font into a PDF: with Noto CJK, some ideographs (for example
# 如) then come out blank in every poppler rendering while the text layer still
# has them. The CJK pages are therefore set in copies of the Noto CJK faces
# reduced to the characters used and with their subroutines inlined
# (fontTools); the outlines and advances are unchanged.

FLAT_SUFFIX = " Flat"
CJK_FACES = {
    # family: (regular file, bold file)
    "Noto Sans CJK SC": ("NotoSansCJK-Regular.ttc", "NotoSansCJK-Bold.ttc"),
    "Noto Sans CJK TC": ("NotoSansCJK-Regular.ttc", "NotoSansCJK-Bold.ttc"),
    "Noto Serif CJK SC": ("NotoSerifCJK-Regular.ttc", "NotoSerifCJK-Bold.ttc"),
}
NOTO_DIR = "/usr/share/fonts/opentype/noto"


def make_flat_fonts(fonts_dir, chars_by_face):
    """Writes the flattened subsets and a fontconfig file that adds them; returns its path."""
    from fontTools import subset
    from fontTools.ttLib import TTCollection

    os.makedirs(fonts_dir, exist_ok=True)
    ascii_chars = "".join(chr(c) for c in range(32, 127))
    for (family, bold), chars in sorted(chars_by_face.items()):
        path = os.path.join(NOTO_DIR, CJK_FACES[family][1 if bold else 0])
        collection = TTCollection(path, lazy=True)
        font = next(f for f in collection.fonts if f["name"].getDebugName(1) == family)
        options = subset.Options()
        options.desubroutinize = True
        options.name_IDs = ["*"]
        options.name_languages = ["*"]
        options.notdef_outline = True
        options.layout_features = []
        subsetter = subset.Subsetter(options)
        subsetter.populate(text="".join(sorted(chars)) + ascii_chars)
        subsetter.subset(font)
        style = "Bold" if bold else "Regular"
        flat = family + FLAT_SUFFIX
        postscript = flat.replace(" ", "") + "-" + style
        for rec in font["name"].names:
            if rec.nameID in (1, 16):
                rec.string = flat
            elif rec.nameID in (2, 17):
                rec.string = style
            elif rec.nameID in (3, 4):
                rec.string = f"{flat} {style}"
            elif rec.nameID == 6:
                rec.string = postscript
        font.save(os.path.join(fonts_dir, postscript + ".otf"))
    conf = os.path.join(fonts_dir, "fonts.conf")
    with open(conf, "w", encoding="utf-8") as f:
        f.write('<?xml version="1.0"?>\n<!DOCTYPE fontconfig SYSTEM "urn:fontconfig:fonts.dtd">\n'
                "<fontconfig>\n"
                '  <include ignore_missing="yes">/etc/fonts/fonts.conf</include>\n'
                f"  <dir>{fonts_dir}</dir>\n"
                f"  <cachedir>{os.path.join(fonts_dir, 'cache')}</cachedir>\n"
                "</fontconfig>\n")
    env = dict(os.environ, FONTCONFIG_FILE=conf)
    for family, bold in chars_by_face:
        pattern = family + FLAT_SUFFIX + (":bold" if bold else "")
        found = subprocess.run(["fc-match", "-f", "%{file}", pattern], env=env,
                               stdout=subprocess.PIPE, check=True).stdout.decode()
        if os.path.dirname(found) != fonts_dir:
            sys.exit(f"make_ocr_corpus: fontconfig resolves '{pattern}' to {found}")
    return conf


# ---------------------------------------------------------------- corpus

def squash(text):
    return "".join(text.split())


def write_scan_pdf(png, path):
    """An image-only page: the PNG's pixels, losslessly, filling US Letter (200 dpi)."""
    image = cairo.ImageSurface.create_from_png(png)
    surface = cairo.PDFSurface(path, PAGE_W, PAGE_H)
    ctx = cairo.Context(surface)
    ctx.scale(PAGE_W / image.get_width(), PAGE_H / image.get_height())
    ctx.set_source_surface(image, 0, 0)
    ctx.get_source().set_filter(cairo.FILTER_NEAREST)
    ctx.paint()
    surface.finish()


def blank_glyphs(rendered, direct, page, setter):
    """Characters drawn with ink directly by cairo but (nearly) blank in the
    poppler rendering of the PDF: glyphs lost on the way through the PDF."""
    scale = DPI / 72
    size = setter.size
    lost = []
    for number, (x, y, text, bold) in enumerate(page, start=1):
        top, bottom = int((y - size * 0.95) * scale), int((y + size * 0.25) * scale) + 1
        glyphs = setter.font(bold).text_to_glyphs(x, y, text, False)
        for ch, glyph, following in zip(text, glyphs, list(glyphs[1:]) + [None]):
            if ch.isspace():
                continue
            right = following.x if following is not None else glyph.x + setter.width(ch, bold)
            box = (int(glyph.x * scale) - 1, top, int(right * scale) + 2, bottom)
            want = sum(direct.crop(box).histogram()[:160])
            got = sum(rendered.crop(box).histogram()[:160])
            if want >= 12 and got < 0.4 * want:
                lost.append(f"line {number}: {ch}")
    return lost


def up_to_date(out):
    manifest_path = os.path.join(out, "manifest.json")
    if not os.path.exists(manifest_path):
        return None
    with open(manifest_path, encoding="utf-8") as f:
        manifest = json.load(f)
    if manifest.get("version") != CORPUS_VERSION:
        return None
    for p in manifest["pages"]:
        if not all(os.path.exists(os.path.join(out, p["id"] + ext))
                   for ext in (".png", ".gt.txt", ".pdf", ".scan.pdf")):
            return None
    return manifest


def build(out, force=False, log=print):
    """Returns the manifest of an up-to-date corpus in out, building it when needed."""
    manifest = None if force else up_to_date(out)
    if manifest:
        return manifest
    for tool in ("man", "pdftoppm", "pdftotext", "fc-match"):
        if not shutil.which(tool):
            sys.exit(f"make_ocr_corpus: '{tool}' is missing (packages: man-db, poppler-utils, fontconfig)")
    if not os.path.exists(os.path.join(MAN, "zh_TW", "man1", "ls.1.gz")):
        sys.exit("make_ocr_corpus: the Chinese man pages are missing (apt-get install manpages-zh)")
    if os.path.isdir(out):
        shutil.rmtree(out)
    os.makedirs(out)
    log(f"building the OCR corpus in {out}")

    # Stage 1: the paragraphs of every source, and the characters each CJK face needs.
    sources, chars_by_face = [], {}
    for kind, source, first, count, family, size in SOURCES:
        setter = Typesetter(family, size)
        blocks = []
        for block in source_blocks(source):
            if not is_text(block):
                continue
            if "\ufffd" in block.text or not setter.covers(block.text, block.heading):
                log(f"  skipped a paragraph of {source_label(source)} (glyphs missing in {family})")
                continue
            blocks.append([block.text, block.level, block.heading])
            if family in CJK_FACES:
                chars_by_face.setdefault((family, block.heading), set()).update(squash(block.text))
        sources.append(blocks)
    work = os.path.join(out, "work")
    os.makedirs(work)
    with open(os.path.join(work, "paragraphs.json"), "w", encoding="utf-8") as f:
        json.dump(sources, f, ensure_ascii=False)
    conf = make_flat_fonts(os.path.join(out, "fonts"), chars_by_face)

    # Stage 2 runs in a new process, so that fontconfig starts with the flattened faces.
    subprocess.run([sys.executable, os.path.abspath(__file__), "--typeset", out],
                   env=dict(os.environ, FONTCONFIG_FILE=conf), check=True)
    manifest = up_to_date(out)
    if not manifest:
        sys.exit("make_ocr_corpus: the corpus was not written")
    return manifest


def typeset(out, log=print):
    with open(os.path.join(out, "work", "paragraphs.json"), encoding="utf-8") as f:
        sources = json.load(f)
    counters = {k: 0 for k in KINDS}
    pages_out = []
    for (kind, source, first, count, family, size), blocks in zip(SOURCES, sources):
        drawn_family = family + FLAT_SUFFIX if family in CJK_FACES else family
        setter = Typesetter(drawn_family, size)
        blocks = [Block(text, level, heading) for text, level, heading in blocks]
        pages = setter.paginate(blocks, first - 1 + count)[first - 1:]
        if len(pages) < count:
            log(f"  warning: {source_label(source)} gave {len(pages)} of {count} pages")
        for number, page in enumerate(pages, start=first):
            counters[kind] += 1
            pid = f"{kind}-{counters[kind]:02d}"
            pdf = os.path.join(out, pid + ".pdf")
            png = os.path.join(out, pid + ".png")
            truth = "\n".join(text for _, _, text, _ in page) + "\n"
            setter.draw_pdf(pdf, page, f"{os.path.basename(source[1])} page {number}")
            subprocess.run(["pdftoppm", "-r", str(DPI), "-png", "-singlefile", pdf,
                            os.path.join(out, pid)], check=True)
            write_scan_pdf(png, os.path.join(out, pid + ".scan.pdf"))
            layer = subprocess.run(["pdftotext", "-enc", "UTF-8", pdf, "-"],
                                   stdout=subprocess.PIPE, check=True).stdout.decode("utf-8")
            # Every glyph cairo draws must have ink in the poppler rendering too.
            lost = blank_glyphs(Image.open(png).convert("L"), setter.draw_image(page), page, setter)
            with open(os.path.join(out, pid + ".gt.txt"), "w", encoding="utf-8") as f:
                f.write(truth)
            entry = {
                "id": pid, "kind": kind, "source": source_label(source), "page": number,
                "font": family, "size_pt": size, "lines": len(page),
                "chars": len(squash(truth)),
                # pdftotext joins words hyphenated at a line end; ignore hyphens.
                "text_layer_matches": squash(layer).replace("-", "") == squash(truth).replace("-", ""),
                "glyphs_blank_in_png": lost,
            }
            if not entry["text_layer_matches"]:
                log(f"  note: {pid}: pdftotext differs from the drawn text")
            if lost:
                sys.exit(f"make_ocr_corpus: {pid}: glyphs blank in the pdftoppm rendering: {', '.join(lost)}")
            pages_out.append(entry)
            log(f"  {pid}: {entry['chars']:5d} chars, {len(page)} lines, {family} {size} pt, "
                f"{source_label(source)} p{number}")

    manifest = {"version": CORPUS_VERSION, "dpi": DPI, "page_size": "US Letter",
                "pages": pages_out}
    with open(os.path.join(out, "manifest.json"), "w", encoding="utf-8") as f:
        json.dump(manifest, f, ensure_ascii=False, indent=1)


def main():
    parser = argparse.ArgumentParser(description="Builds the OCR benchmark corpus.")
    parser.add_argument("--out", default=DEFAULT_OUT)
    parser.add_argument("--force", action="store_true", help="rebuild even when up to date")
    parser.add_argument("--typeset", metavar="DIR", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.typeset:
        typeset(args.typeset)
        return
    out = os.path.abspath(args.out)
    manifest = build(out, args.force)
    by_kind = {}
    for p in manifest["pages"]:
        by_kind[p["kind"]] = by_kind.get(p["kind"], 0) + 1
    print("corpus:", ", ".join(f"{k} {by_kind.get(k, 0)}" for k in KINDS),
          f"({len(manifest['pages'])} pages) in {out}")


if __name__ == "__main__":
    main()
