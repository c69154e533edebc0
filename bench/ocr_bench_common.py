#!/usr/bin/python3
"""Pieces shared by the OCR benchmarks in bench/ (run_ocr_bench.py,
run_condition_bench.py, run_script_bench.py): the edit distance, process
measurement, text folding, the Simplified/Traditional character sets and
table rendering.

CER everywhere = Levenshtein distance / reference length, with all white
space removed from both texts (and, where the figure says NFKC, both texts
NFKC-folded first).
"""

import array
import ctypes
import hashlib
import json
import os
import platform
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unicodedata

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(HERE)
TIMEOUT = 900


# ---------------------------------------------------------------- edit distance

class EditDistance:
    """Levenshtein distance and alignment over code points, in C when cc is there."""

    def __init__(self, build_dir):
        self.lib = None
        source = os.path.join(HERE, "ocr_bench_edit_distance.c")
        target = os.path.join(build_dir, "ocr_bench_edit_distance.so")
        cc = shutil.which("cc") or shutil.which("gcc")
        try:
            if cc and (not os.path.exists(target) or
                       os.path.getmtime(target) < os.path.getmtime(source)):
                subprocess.run([cc, "-O2", "-shared", "-fPIC", "-o", target, source], check=True)
            lib = ctypes.CDLL(target)
            u32, i32 = ctypes.POINTER(ctypes.c_uint32), ctypes.POINTER(ctypes.c_int32)
            lib.ocrb_distance.argtypes = [u32, ctypes.c_long, u32, ctypes.c_long]
            lib.ocrb_distance.restype = ctypes.c_long
            lib.ocrb_align.argtypes = [u32, ctypes.c_long, u32, ctypes.c_long, i32, i32]
            lib.ocrb_align.restype = ctypes.c_long
            self.lib = lib
        except (OSError, subprocess.CalledProcessError) as err:
            print(f"note: no C edit distance ({err}); using the slow Python one", file=sys.stderr)

    @staticmethod
    def _buffer(text):
        data = array.array("I", (ord(c) for c in text))
        return (ctypes.c_uint32 * len(data)).from_buffer(data) if data else None, data

    def distance(self, a, b):
        if self.lib:
            (pa, ka), (pb, kb) = self._buffer(a), self._buffer(b)
            d = self.lib.ocrb_distance(pa, len(a), pb, len(b))
            if d >= 0:
                return d
        previous = list(range(len(b) + 1))
        for i, ca in enumerate(a, 1):
            current = [i]
            for j, cb in enumerate(b, 1):
                current.append(min(previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (ca != cb)))
            previous = current
        return previous[-1]

    def align(self, a, b):
        """[(ref char or None, hyp char or None)] for the columns that are not matches."""
        if not self.lib or len(a) * len(b) > 60_000_000:
            return None
        (pa, ka), (pb, kb) = self._buffer(a), self._buffer(b)
        n = len(a) + len(b)
        ai, bj = (ctypes.c_int32 * max(n, 1))(), (ctypes.c_int32 * max(n, 1))()
        k = self.lib.ocrb_align(pa, len(a), pb, len(b), ai, bj)
        if k < 0:
            return None
        ops = []
        for x in range(k):
            i, j = ai[x], bj[x]
            ra = a[i] if i >= 0 else None
            hb = b[j] if j >= 0 else None
            if ra != hb:
                ops.append((ra, hb))
        return ops


def squash(text):
    return "".join(text.split())


def squash_nfkc(text):
    """The text a CER is computed on: NFKC-folded, all white space removed."""
    return squash(unicodedata.normalize("NFKC", text))


def bag_distance(ref, hyp):
    """Edits needed when the order of the characters does not count: the larger
    of the reference characters the hypothesis lacks and the hypothesis
    characters the reference lacks (a lower bound of the Levenshtein distance,
    blind to lines read in another order)."""
    need, have = {}, {}
    for c in ref:
        need[c] = need.get(c, 0) + 1
    for c in hyp:
        have[c] = have.get(c, 0) + 1
    missing = sum(max(0, n - have.get(c, 0)) for c, n in need.items())
    extra = sum(max(0, n - need.get(c, 0)) for c, n in have.items())
    return max(missing, extra)


# ---------------------------------------------------------------- processes

def measure(cmd, stdout_path, env, timeout=TIMEOUT):
    """Runs cmd; returns (exit status, wall seconds, peak RSS in KiB)."""
    run = measure_run(cmd, stdout_path, env, timeout)
    return run["exit"], run["seconds"], run["rss_kib"]


def measure_run(cmd, stdout_path, env, timeout=TIMEOUT):
    """Runs cmd with stdout to stdout_path; returns {exit, seconds (wall),
    cpu_seconds (user + system), rss_kib (peak)}. CPU time says what a run
    costs when the machine is shared; wall time what a user waits."""
    with open(stdout_path, "wb") as out:
        start = time.monotonic()
        proc = subprocess.Popen(cmd, stdin=subprocess.DEVNULL, stdout=out,
                                stderr=subprocess.DEVNULL, env=env)
        timer = threading.Timer(timeout, proc.kill)
        timer.start()
        try:
            _, status, usage = os.wait4(proc.pid, 0)
        finally:
            timer.cancel()
        seconds = time.monotonic() - start
    return {"exit": os.waitstatus_to_exitcode(status), "seconds": seconds,
            "cpu_seconds": usage.ru_utime + usage.ru_stime, "rss_kib": usage.ru_maxrss}


def run_helper(helper, source, work, env, mode=None, prefix="helper-"):
    """Runs the helper once on source with a fresh artifacts directory under work.

    Returns (text of ocr.txt or "", measure_run's figures and error); error is
    None when the helper printed an ok line and wrote ocr.txt."""
    parent = tempfile.mkdtemp(prefix=prefix, dir=work)
    artifacts = os.path.join(parent, "artifacts")  # absent: the helper makes it
    cmd = [helper, "--input", source, "--artifacts", artifacts]
    if mode:
        cmd += ["--output-mode", mode]
    cmd.append("--json")
    line_path = os.path.join(parent, "stdout")
    run = measure_run(cmd, line_path, env)
    rc = run["exit"]
    with open(line_path, encoding="utf-8", errors="replace") as f:
        line = f.read().strip()
    ocr = os.path.join(artifacts, "ocr.txt")
    error = None
    try:
        ok = json.loads(line.splitlines()[0]).get("ok") is True if line else False
    except ValueError:
        ok = False
    if rc != 0 or not ok or not os.path.exists(ocr):
        error = f"exit {rc}, stdout {line[:160]!r}" + ("" if os.path.exists(ocr) else ", no ocr.txt")
        text = ""
    else:
        with open(ocr, encoding="utf-8", errors="replace") as f:
            text = f.read()
    shutil.rmtree(parent, ignore_errors=True)
    run["error"] = error
    return text, run




def snapshot_helper(helper, work):
    """Copies the helper into work and returns (copy, a description of the original).

    Runs use the copy: a rebuild of the original during the run cannot mix two builds."""
    import datetime
    snapshot = os.path.join(work, "kem-vision-ocr")
    shutil.copy2(helper, snapshot)
    built = datetime.datetime.fromtimestamp(os.path.getmtime(helper)).astimezone()
    return snapshot, (f"helper {helper} (sha256 {helper_digest(helper)}..., built "
                      f"{built.strftime('%Y-%m-%d %H:%M:%S')}); ")


def build_corpus(script, out, options, force):
    """Runs a corpus generator (make_*_corpus.py) in a child process and
    returns the manifest it wrote.

    In a child, so that this process stays small: a command measured later
    inherits the parent's memory until it executes, and its peak RSS (wait4)
    would otherwise count the corpus building."""
    cmd = [sys.executable, os.path.join(HERE, script), "--out", out] + options + (["--force"] if force else [])
    proc = subprocess.run(cmd, stdout=sys.stderr)  # its progress, on our stderr
    if proc.returncode != 0:
        sys.exit(f"{script} failed (exit {proc.returncode})")
    with open(os.path.join(out, "manifest.json"), encoding="utf-8") as f:
        return json.load(f)


def is_han(ch):
    return ch is not None and len(ch) == 1 and (
        "\u3400" <= ch <= "\u4dbf" or "\u4e00" <= ch <= "\u9fff" or "\uf900" <= ch <= "\ufaff")



def fmt_pct(x):
    return f"{100 * x:.2f}%"



def render(head, rows, markdown):
    if markdown:
        out = ["| " + " | ".join(head) + " |", "|" + "|".join("---" for _ in head) + "|"]
        out += ["| " + " | ".join(r) + " |" for r in rows]
        return "\n".join(out)
    widths = [max(len(str(x)) for x in col) for col in zip(head, *rows)]
    line = lambda cells: "  ".join(str(c).ljust(w) if i == 0 else str(c).rjust(w)
                                   for i, (c, w) in enumerate(zip(cells, widths)))
    return "\n".join([line(head), line(["-" * w for w in widths])] + [line(r) for r in rows])



def machine_description():
    cpu = platform.processor() or ""
    try:
        with open("/proc/cpuinfo") as f:
            cpu = next((l.split(":", 1)[1].strip() for l in f if l.startswith("model name")), cpu)
    except OSError:
        pass
    version = subprocess.run(["tesseract", "--version"], stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT).stdout.decode().splitlines()[0]
    return f"{os.cpu_count()} CPUs ({cpu}), {version}"



def helper_digest(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()[:12]



def git_revision():
    try:
        rev = subprocess.run(["git", "-C", REPO, "rev-parse", "--short", "HEAD"], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, check=True).stdout.decode().strip()
        dirty = subprocess.run(["git", "-C", REPO, "status", "--porcelain", "--untracked-files=no"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.strip()
        return rev + (" with uncommitted changes" if dirty else "")
    except (OSError, subprocess.CalledProcessError):
        return "unknown"



# ---------------------------------------------------------------- script forms

class ScriptForms:
    """Which Han characters are written in a form only one script uses.

    From ICU's transliteration data (python3-icu): a character is Simplified
    only when Hans-Hant changes it and Hant-Hans leaves it as it is, and
    Traditional only the other way round. Characters both scripts write the
    same way, and the few that both transliterations change, count for
    neither. A handful of characters standard in both scripts (后 干 占 著 ...)
    still land on one side; a text is judged by the majority, so such a
    character among the many a page holds does not turn the verdict."""

    def __init__(self):
        try:
            import icu
        except ImportError:
            sys.exit("python3-icu is missing (apt-get install python3-icu)")
        to_hant = icu.Transliterator.createInstance("Hans-Hant")
        to_hans = icu.Transliterator.createInstance("Hant-Hans")
        self.simplified, self.traditional = set(), set()
        for lo, hi in ((0x3400, 0x4DBF), (0x4E00, 0x9FFF), (0xF900, 0xFAFF)):
            for cp in range(lo, hi + 1):
                c = chr(cp)
                a, b = to_hant.transliterate(c), to_hans.transliterate(c)
                if a != c and b == c:
                    self.simplified.add(c)
                elif b != c and a == c:
                    self.traditional.add(c)

    def counts(self, text):
        """(Simplified-only characters, Traditional-only characters) in text."""
        return (sum(c in self.simplified for c in text), sum(c in self.traditional for c in text))

    def judge(self, text):
        """'Hans', 'Hant' or 'undecided' (no distinguishing character, or a tie)."""
        s, t = self.counts(text)
        if s > t:
            return "Hans"
        if t > s:
            return "Hant"
        return "undecided"


def han_count(text):
    return sum(1 for c in text if is_han(c))
