#!/usr/bin/python3
"""Text sources, typesetting and image conditions shared by the condition
bench (make_condition_corpus.py) and the script-choice bench
(make_script_corpus.py).

Text comes only from what Debian packages ship:
  - man pages (manpages-zh for zh_CN / zh_TW, the English ones), rendered to
    text with `man` as bench/make_ocr_corpus.py does;
  - /usr/share/common-licenses;
  - gettext catalogues in /usr/share/locale/<locale>/LC_MESSAGES/*.mo (UI
    strings: msgstr of zh_CN, zh_TW, zh_HK; the English msgid of zh_CN).

Pages are drawn straight into a cairo image surface (no PDF in between, so
the CFF subsetting trouble of cairo 1.16 that make_ocr_corpus.py works around
does not arise); the drawn lines are the ground truth. Then an image
condition is applied:

  clean       200 dpi, black on white (as bench/corpus)
  screenshot  96 dpi, 9-11 pt UI text, hinted grey antialiasing, light UI colours
  dark        the same in dark mode: light text on a dark background
  photo       a page photographed: 1-3 degree turn, slight perspective, blur,
              uneven light, sensor noise, JPEG quality 60-80
  crooked     a scan turned by 1-5 degrees, 200 or 300 dpi
  faint       grey text on grey paper (low contrast), 200 or 300 dpi
  small       7-8 pt text at 150-200 dpi
  rot90       a 200-dpi page turned by 90 degrees clockwise or counter-clockwise
              (no EXIF orientation)
  sheet       a whole sheet photographed: the text block in the middle of a page
              with wide margins (1-1.5 inch), 150-240 dpi, turned 1-3 degrees, a
              keystone perspective, light falling off from one corner to the
              opposite one, blur, noise, JPEG quality 60-80
  cw, ccw     a clean 200-dpi page turned a quarter clockwise / counter-clockwise
  half        a clean 200-dpi page turned upside down

Scans (clean, crooked, faint, small, rot90, cw, ccw, half) are PNG files that record their
resolution; screenshots and photos record none (screenshot tools and phone
cameras do not give a scan resolution).
"""

import gettext
import glob
import json
import math
import os
import random
import re
import shutil

import cairo
import numpy
from PIL import Image, ImageFilter

import make_ocr_corpus
from make_ocr_corpus import Typesetter

# New conditions go at the end: a condition's index takes part in choosing
# its pages' fonts and texts, so the pages of the others stay as they were.
CONDITIONS = ["clean", "screenshot", "dark", "photo", "crooked", "faint", "small", "rot90",
              "sheet", "cw", "ccw", "half"]
HARD_CONDITIONS = [c for c in CONDITIONS if c != "clean"]
LANGS = ["en", "zh-Hans", "zh-Hant", "mix"]

LATIN_FONTS = ["DejaVu Sans", "DejaVu Serif", "DejaVu Sans Mono"]
CJK_FONTS = ["Noto Sans CJK SC", "Noto Sans CJK TC", "Noto Serif CJK SC", "Noto Serif CJK TC",
             "AR PL UMing CN", "AR PL UMing TW", "AR PL UKai CN", "AR PL UKai TW",
             "WenQuanYi Zen Hei"]


def font_group(family):
    """The typeface a family belongs to (AR PL UMing CN and TW are one face)."""
    for prefix in ("AR PL UMing", "AR PL UKai"):
        if family.startswith(prefix):
            return prefix
    return family


# ---------------------------------------------------------------- text sources

LOCALE_DIR = "/usr/share/locale"
HAN_RE = re.compile(r"[\u3400-\u4dbf\u4e00-\u9fff\uf900-\ufaff]")
LATIN_WORD_RE = re.compile(r"[A-Za-z]{2,}")
FORMAT_RE = re.compile(r"%(\d+\$)?[-+ #0']*(\d+|\*)?(\.(\d+|\*))?(hh|ll|[hlLqjzt])?[diouxXeEfFgGcspn%]"
                       r"|%\([a-z_]+\)[sd]|\{[^{}]*\}|\$\{?[A-Za-z_]+\}?")
MARKUP_RE = re.compile(r"<[^<>]*>")
ACCEL_RE = re.compile(r"\(_[A-Za-z0-9]\)|\(&[A-Za-z0-9]\)|_(?=\w)|&(?=\w)")


def clean_ui(text):
    """A UI string as a user sees it: no format directives, markup or accelerators."""
    text = MARKUP_RE.sub("", text)
    text = FORMAT_RE.sub("", text)
    text = ACCEL_RE.sub("", text)
    text = text.replace("\\n", " ").replace("\\t", " ")
    text = make_ocr_corpus.clean(text, bool(HAN_RE.search(text)))
    return text.strip(" :：-")


def catalog_strings(locale, english=False):
    """[(domain, string)] of every .mo of the locale, cleaned, in a stable order.

    english: the msgid (the English UI string) instead of the translation."""
    out, seen = [], set()
    for path in sorted(glob.glob(os.path.join(LOCALE_DIR, locale, "LC_MESSAGES", "*.mo"))):
        domain = os.path.basename(path)[:-3]
        if domain.startswith("iso_"):
            continue  # lists of names (countries, languages, currencies), not UI text
        try:
            with open(path, "rb") as f:
                catalog = gettext.GNUTranslations(f)._catalog
        except Exception:  # a catalogue Python cannot read is simply not used
            continue
        for key in sorted(catalog, key=lambda k: k if isinstance(k, str) else k[0]):
            msgid = key if isinstance(key, str) else key[0]
            if not msgid or (not isinstance(key, str) and key[1] != 0):
                continue
            raw = msgid if english else catalog[key]
            if "\\" in raw or "\n" in raw.strip() or "/" in raw and raw.count("/") > 1:
                continue
            text = clean_ui(raw)
            if not (3 <= len(text) <= 60) or text in seen or "\ufffd" in text:
                continue
            if not english and not HAN_RE.search(text):
                continue
            if english and not re.fullmatch(r"[A-Za-z0-9 ,.;:!?'\"()\-]+", text):
                continue
            seen.add(text)
            out.append((domain, text))
    return out


MAN_PROSE = {
    "zh-Hans": ["zh_CN/man1/ls.1.gz", "zh_CN/man1/chmod.1.gz", "zh_CN/man1/rm.1.gz",
                "zh_CN/man5/passwd.5.gz", "zh_CN/man5/proc.5.gz", "zh_CN/man8/fdisk.8.gz",
                "zh_CN/man8/ifconfig.8.gz", "zh_CN/man1/ssh.1.gz", "zh_CN/man1/sed.1.gz",
                "zh_CN/man5/nsswitch.5.gz", "zh_CN/man8/route.8.gz", "zh_CN/man1/sort.1.gz"],
    "zh-Hant": ["zh_TW/man1/ls.1.gz", "zh_TW/man1/chmod.1.gz", "zh_TW/man1/bash.1.gz",
                "zh_TW/man5/passwd.5.gz", "zh_TW/man5/proc.5.gz", "zh_TW/man8/fdisk.8.gz",
                "zh_TW/man8/ifconfig.8.gz", "zh_TW/man1/find.1.gz", "zh_TW/man1/sed.1.gz",
                "zh_TW/man5/nsswitch.5.gz", "zh_TW/man8/route.8.gz", "zh_TW/man1/tar.1.gz"],
    "mix": ["zh_CN/man1/cp.1.gz", "zh_TW/man1/cp.1.gz", "zh_CN/man1/grep.1.gz",
            "zh_TW/man1/du.1.gz", "zh_CN/man1/chown.1.gz", "zh_TW/man1/df.1.gz",
            "zh_CN/man8/iptables.8.gz", "zh_TW/man1/chown.1.gz", "zh_CN/man1/date.1.gz",
            "zh_TW/man1/date.1.gz"],
    "en": ["man1/ls.1.gz", "man1/cp.1.gz", "man1/find.1.gz", "man1/ssh.1.gz", "man1/sed.1.gz",
           "man1/git.1.gz", "man1/man.1.gz", "man1/make.1.gz"],
}
LICENSES = ["Apache-2.0", "GPL-3", "MPL-2.0", "Artistic", "LGPL-2.1", "GFDL-1.3", "MPL-1.1"]


def mixed(text):
    return bool(HAN_RE.search(text)) and bool(LATIN_WORD_RE.search(text))


class Sources:
    """Paragraph and UI-string pools per language, read once."""

    def __init__(self, log=print):
        self.log = log
        self._prose, self._ui = {}, {}

    def prose(self, lang):
        """[(label, [paragraph, ...])] for lang."""
        if lang not in self._prose:
            pools = []
            for rel in MAN_PROSE[lang]:
                path = os.path.join(make_ocr_corpus.MAN, rel)
                if not os.path.exists(path):
                    self.log(f"  note: {path} is missing, not used")
                    continue
                chinese = rel.startswith("zh_")
                blocks = make_ocr_corpus.man_blocks(path, chinese)
                if lang in ("zh-Hans", "zh-Hant"):
                    paras = [b.text for b in blocks if make_ocr_corpus.is_prose(b)]
                else:
                    paras = [b.text for b in blocks if make_ocr_corpus.is_text(b)]
                if paras:
                    pools.append((f"man {rel}", paras))
            if lang == "en":
                for name in LICENSES:
                    path = os.path.join(make_ocr_corpus.LICENSES, name)
                    if os.path.exists(path):
                        paras = [b.text for b in make_ocr_corpus.license_blocks(path)
                                 if make_ocr_corpus.is_text(b)]
                        pools.append((f"license {name}", paras))
            self._prose[lang] = pools
        return self._prose[lang]

    def ui(self, lang):
        """[(label, [string, ...])] for lang, one pool per locale."""
        if lang not in self._ui:
            if lang == "en":
                pools = [("msgid zh_CN catalogues", [t for _, t in catalog_strings("zh_CN", True)])]
            elif lang == "zh-Hans":
                pools = [("msgstr zh_CN catalogues", [t for _, t in catalog_strings("zh_CN")])]
            elif lang == "zh-Hant":
                pools = [("msgstr zh_TW catalogues", [t for _, t in catalog_strings("zh_TW")]),
                         ("msgstr zh_HK catalogues", [t for _, t in catalog_strings("zh_HK")])]
            else:
                pools = [(f"msgstr {loc} catalogues (Han with Latin words)",
                          [t for _, t in catalog_strings(loc) if mixed(t)]) for loc in ("zh_CN", "zh_TW")]
            self._ui[lang] = [p for p in pools if p[1]]
        return self._ui[lang]


# ---------------------------------------------------------------- typesetting

def leading(family, size):
    return size * (1.4 if family in LATIN_FONTS else 1.55)


def layout_lines(setter, texts, width_pt, max_lines, one_per_line=False):
    """Lines of texts wrapped to width_pt, at most max_lines. Whole paragraphs
    (or UI strings) only, unless the first one is already longer."""
    lines = []
    for text in texts:
        if not setter.covers(text, False) or "\ufffd" in text:
            continue
        wrapped = setter.wrap(text, width_pt, False)
        if one_per_line and len(wrapped) > 1:
            continue
        if lines and len(lines) + len(wrapped) > max_lines:
            break
        lines.extend(wrapped)
        if len(lines) >= max_lines:
            break
    return lines[:max_lines]


def draw_lines(lines, family, size, dpi, fg, bg, margin_pt=24.0, hinted=False, width_pt=None,
               bar=None):
    """The lines drawn into an RGB image at dpi; returns a PIL image."""
    scale = dpi / 72.0
    lead = leading(family, size)
    probe = Typesetter(family, size)
    text_w = max([probe.width(l, False) for l in lines] + [width_pt or 0])
    bar_pt = 22.0 if bar else 0.0
    w = int(math.ceil((text_w + 2 * margin_pt) * scale))
    h = int(math.ceil((bar_pt + margin_pt * 2 + size * 0.3 + lead * (len(lines) - 1) + size) * scale))
    surface = cairo.ImageSurface(cairo.FORMAT_RGB24, w, h)
    ctx = cairo.Context(surface)
    options = cairo.FontOptions()
    if hinted:
        options.set_hint_style(cairo.HINT_STYLE_SLIGHT)
        options.set_hint_metrics(cairo.HINT_METRICS_ON)
        options.set_antialias(cairo.ANTIALIAS_GRAY)
    else:
        options.set_hint_metrics(cairo.HINT_METRICS_OFF)
        options.set_hint_style(cairo.HINT_STYLE_NONE)
    ctx.set_font_options(options)
    ctx.set_source_rgb(*[c / 255 for c in bg])
    ctx.paint()
    ctx.scale(scale, scale)
    if bar:
        ctx.set_source_rgb(*[c / 255 for c in bar])
        ctx.rectangle(0, 0, w / scale, bar_pt)
        ctx.fill()
    ctx.select_font_face(family, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_NORMAL)
    ctx.set_font_size(size)
    ctx.set_source_rgb(*[c / 255 for c in fg])
    y = bar_pt + margin_pt + size
    for line in lines:
        ctx.move_to(margin_pt, y)
        ctx.show_text(line)
        y += lead
    surface.flush()
    return Image.frombuffer("RGB", (w, h), bytes(surface.get_data()), "raw", "BGRX",
                            surface.get_stride(), 1).copy()


# ---------------------------------------------------------------- conditions

SCREEN_LIGHT = [((255, 255, 255), (33, 33, 33), (60, 110, 180)),
                ((246, 246, 246), (20, 20, 20), (225, 225, 225)),
                ((250, 250, 245), (51, 51, 51), (90, 90, 90)),
                ((240, 244, 248), (30, 40, 50), (200, 210, 225))]
SCREEN_DARK = [((30, 30, 30), (212, 212, 212), (45, 45, 48)),
               ((32, 33, 36), (232, 234, 237), (60, 64, 67)),
               ((13, 17, 23), (201, 209, 217), (22, 27, 34)),
               ((43, 43, 43), (255, 255, 255), (70, 70, 70)),
               ((24, 26, 48), (170, 200, 255), (40, 44, 80))]


def style_for(condition, rng, dpi=None, size=None):
    """The drawing parameters of one page or sample under condition.

    dpi / size, when given, replace the condition's own choice (the
    script-choice bench spreads resolutions over 96-300 dpi)."""
    st = {"condition": condition, "hinted": False, "fg": (0, 0, 0), "bg": (255, 255, 255),
          "bar": None, "save_dpi": True, "mode": "L"}
    if condition in ("screenshot", "dark"):
        st["dpi"] = 96
        st["size"] = rng.choice([9, 9.5, 10, 10.5, 11])
        bg, fg, bar = rng.choice(SCREEN_LIGHT if condition == "screenshot" else SCREEN_DARK)
        st.update(fg=fg, bg=bg, bar=bar if rng.random() < 0.6 else None, hinted=True,
                  save_dpi=False, mode="RGB")
    elif condition == "small":
        st["dpi"] = rng.choice([150, 200])
        st["size"] = rng.choice([7, 7.5, 8])
    elif condition == "photo":
        st["dpi"] = rng.choice([150, 200, 240])
        st["size"] = rng.choice([10.5, 11, 12])
        st.update(save_dpi=False, mode="RGB", bg=(250, 248, 242))
    elif condition == "crooked":
        st["dpi"] = rng.choice([200, 300])
        st["size"] = rng.choice([10.5, 11, 12])
    elif condition == "faint":
        st["dpi"] = rng.choice([200, 300])
        st["size"] = rng.choice([10.5, 11, 12])
        paper = rng.randint(196, 222)
        st.update(bg=(paper,) * 3, fg=(paper - rng.randint(55, 80),) * 3)
    elif condition == "sheet":
        st["dpi"] = rng.choice([150, 200, 240])
        st["size"] = rng.choice([10.5, 11, 12])
        st.update(save_dpi=False, mode="RGB", margin_in=rng.uniform(1.0, 1.5))
    else:  # clean, rot90, cw, ccw, half
        st["dpi"] = 200
        st["size"] = rng.choice([10.5, 11, 12])
    if dpi:
        st["dpi"] = dpi
    if size:
        st["size"] = size
    return st


def _perspective_coeffs(src, dst):
    """Coefficients for Image.transform(PERSPECTIVE) mapping output dst quad to input src quad."""
    rows, rhs = [], []
    for (x, y), (u, v) in zip(dst, src):
        rows.append([x, y, 1, 0, 0, 0, -u * x, -u * y])
        rows.append([0, 0, 0, x, y, 1, -v * x, -v * y])
        rhs += [u, v]
    return numpy.linalg.solve(numpy.array(rows, float), numpy.array(rhs, float)).tolist()


def sensor_noise(a, rng):
    """An RGB float array with a camera's sensor noise (Gaussian, sigma 4-8)
    added, as an image; returns (image, sigma)."""
    sigma = rng.uniform(4, 8)
    nrng = numpy.random.default_rng(rng.randint(0, 2 ** 31))
    a = a + nrng.normal(0, sigma, a.shape).astype(numpy.float32)
    return Image.fromarray(numpy.clip(a, 0, 255).astype(numpy.uint8), "RGB"), sigma


def photograph(img, rng):
    """A page as a phone photographs it; returns (RGB image, description)."""
    w, h = img.size
    # The page lies on a darker table, with room around it.
    pad = int(0.06 * max(w, h))
    table = tuple(rng.randint(70, 130) for _ in range(3))
    canvas = Image.new("RGB", (w + 2 * pad, h + 2 * pad), table)
    canvas.paste(img, (pad, pad))
    angle = rng.uniform(1.0, 3.0) * rng.choice([-1, 1])
    canvas = canvas.rotate(angle, resample=Image.BICUBIC, expand=False, fillcolor=table)
    W, H = canvas.size
    k = 0.025
    dst = [(0, 0), (W, 0), (W, H), (0, H)]
    src = [(x + rng.uniform(-k, k) * W, y + rng.uniform(-k, k) * H) for x, y in dst]
    canvas = canvas.transform((W, H), Image.PERSPECTIVE, _perspective_coeffs(src, dst),
                              resample=Image.BICUBIC, fillcolor=table)
    blur = rng.uniform(0.6, 1.2)
    canvas = canvas.filter(ImageFilter.GaussianBlur(blur))
    a = numpy.asarray(canvas).astype(numpy.float32)
    # Uneven light: a brighter spot somewhere and a fall-off away from it, warm tint.
    yy, xx = numpy.mgrid[0:H, 0:W].astype(numpy.float32)
    cx, cy = rng.uniform(0.2, 0.8) * W, rng.uniform(0.2, 0.8) * H
    d = numpy.sqrt(((xx - cx) / W) ** 2 + ((yy - cy) / H) ** 2)
    low = rng.uniform(0.55, 0.75)
    light = 1.0 - (1.0 - low) * numpy.clip(d / 0.8, 0, 1)
    tint = numpy.array([1.0, rng.uniform(0.95, 0.99), rng.uniform(0.86, 0.95)], numpy.float32)
    a = a * light[..., None] * tint
    out, sigma = sensor_noise(a, rng)
    quality = rng.randint(60, 80)
    desc = (f"turned {angle:+.1f} deg, perspective {k:.3f}, blur {blur:.2f}, light down to {low:.2f}, "
            f"noise sigma {sigma:.1f}, JPEG q{quality}")
    return out, quality, desc


def photograph_sheet(img, rng, margin_px):
    """A whole sheet photographed from above, the sheet filling the frame:
    the text block with wide white margins, turned a little, a keystone
    perspective, the light falling off across the sheet from one corner to
    the opposite one (a lamp or window to one side), blur, sensor noise.
    Returns (RGB image, JPEG quality, description)."""
    w, h = img.size
    sheet = Image.new("RGB", (w + 2 * margin_px, h + 2 * margin_px), (255, 255, 255))
    sheet.paste(img, (margin_px, margin_px))
    angle = rng.uniform(1.0, 3.0) * rng.choice([-1, 1])
    sheet = sheet.rotate(angle, resample=Image.BICUBIC, expand=True, fillcolor=(255, 255, 255))
    W, H = sheet.size
    # Keystone: one edge of the frame nearer the camera than the other.
    k = rng.uniform(0.01, 0.025)
    dst = [(0, 0), (W, 0), (W, H), (0, H)]
    side = rng.randrange(4)
    src = [list(p) for p in dst]
    a, b = side, (side + 1) % 4
    for i in (a, b):
        cx, cy = W / 2, H / 2
        src[i][0] += (cx - src[i][0]) * k * 2
        src[i][1] += (cy - src[i][1]) * k * 2
    sheet = sheet.transform((W, H), Image.PERSPECTIVE, _perspective_coeffs([tuple(p) for p in src], dst),
                            resample=Image.BICUBIC, fillcolor=(255, 255, 255))
    arr = numpy.asarray(sheet).astype(numpy.float32)
    yy, xx = numpy.mgrid[0:H, 0:W].astype(numpy.float32)
    corner = rng.randrange(4)
    u = xx / W if corner in (0, 3) else 1 - xx / W
    v = yy / H if corner in (0, 1) else 1 - yy / H
    t = (u + v) / 2  # 0 at the lit corner, 1 at the opposite one
    lit = numpy.array([rng.randint(230, 245), rng.randint(222, 236), rng.randint(205, 220)], numpy.float32)
    dim_level = rng.uniform(0.55, 0.68)
    dim = lit * dim_level
    light = (lit * (1 - t[..., None]) + dim * t[..., None]) / 255.0
    arr = arr * light
    out = Image.fromarray(numpy.clip(arr, 0, 255).astype(numpy.uint8), "RGB")
    blur = rng.uniform(0.8, 1.2)
    out = out.filter(ImageFilter.GaussianBlur(blur))
    out, sigma = sensor_noise(numpy.asarray(out).astype(numpy.float32), rng)
    quality = rng.randint(60, 80)
    desc = (f"margins {margin_px} px, turned {angle:+.1f} deg, keystone {k:.3f} on side {side}, "
            f"light from corner {corner} down to {dim_level:.2f}, blur {blur:.2f}, noise sigma {sigma:.1f}, "
            f"JPEG q{quality}")
    return out, quality, desc


def apply_condition(img, st, rng):
    """The drawn page under st's condition: (image, file extension, save options, description)."""
    c = st["condition"]
    desc = f"{st['dpi']} dpi, {st['size']} pt"
    if c == "photo":
        out, quality, extra = photograph(img, rng)
        return out, ".jpg", {"quality": quality}, desc + ", " + extra
    if c == "sheet":
        out, quality, extra = photograph_sheet(img, rng, int(st["margin_in"] * st["dpi"]))
        return out, ".jpg", {"quality": quality}, desc + ", " + extra
    if st["mode"] == "L":
        img = img.convert("L")
    if c == "crooked":
        angle = rng.uniform(1.0, 5.0) * rng.choice([-1, 1])
        img = img.rotate(angle, resample=Image.BICUBIC, expand=True, fillcolor=255)
        desc += f", turned {angle:+.1f} deg"
    elif c == "faint":
        a = numpy.asarray(img).astype(numpy.float32)
        nrng = numpy.random.default_rng(rng.randint(0, 2 ** 31))
        a = a + nrng.normal(0, 3.0, a.shape)
        img = Image.fromarray(numpy.clip(a, 0, 255).astype(numpy.uint8), "L")
        desc += f", text grey {st['fg'][0]} on paper {st['bg'][0]}"
    elif c == "rot90":
        clockwise = rng.random() < 0.5
        img = img.transpose(Image.ROTATE_270 if clockwise else Image.ROTATE_90)
        desc += ", turned 90 deg " + ("clockwise" if clockwise else "counter-clockwise")
    elif c in ("cw", "ccw", "half"):
        img = img.transpose({"cw": Image.ROTATE_270, "ccw": Image.ROTATE_90, "half": Image.ROTATE_180}[c])
        desc += {"cw": ", turned 90 deg clockwise", "ccw": ", turned 90 deg counter-clockwise",
                 "half": ", turned 180 deg"}[c]
    elif c in ("screenshot", "dark"):
        desc += f", text {st['fg']} on {st['bg']}"
    options = {"dpi": (st["dpi"], st["dpi"])} if st["save_dpi"] else {}
    return img, ".png", options, desc


def existing_manifest(out, version, settings, items):
    """The manifest in out when it is of this version and settings and every
    item's file is there; None when the corpus must be built (again)."""
    path = os.path.join(out, "manifest.json")
    if not os.path.exists(path):
        return None
    with open(path, encoding="utf-8") as f:
        manifest = json.load(f)
    if manifest.get("version") != version or any(manifest.get(k) != v for k, v in settings.items()):
        return None
    if not all(os.path.exists(os.path.join(out, x["file"])) for x in manifest[items]):
        return None
    return manifest


def fresh_dir(out):
    if os.path.isdir(out):
        shutil.rmtree(out)
    os.makedirs(out)


def write_item(out, item_id, lines, family, st, rng, width, margin_pt=24.0):
    """Draws lines under st's condition into out/<id>.png|.jpg and writes
    out/<id>.gt.txt; returns (file name, image description, image size)."""
    img = draw_lines(lines, family, st["size"], st["dpi"], st["fg"], st["bg"], margin_pt=margin_pt,
                     hinted=st["hinted"], width_pt=width, bar=st["bar"])
    img, ext, options, desc = apply_condition(img, st, rng)
    img.save(os.path.join(out, item_id + ext), **options)
    with open(os.path.join(out, item_id + ".gt.txt"), "w", encoding="utf-8") as f:
        f.write("\n".join(lines) + "\n")
    return item_id + ext, desc, img.size


def seeded(*parts):
    """A random generator fixed by the parts (page id, corpus version, ...)."""
    return random.Random("/".join(str(p) for p in parts))
