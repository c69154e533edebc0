#!/usr/bin/python3
"""Records everything a host sees of the helper's runs, so that two builds can
be compared byte for byte: a change that only moves code must leave every
recording as it was.

For each input it runs HELPER --input INPUT --artifacts FRESH --json and writes
<out>/<name>.txt holding the exit status, stdout and stderr (with the fresh
directory's path replaced by a fixed token), result.json with "elapsedMs"
masked, ocr.txt, and the SHA-256 of every file under the artifacts directory.

    record_outputs.py --helper build/kem-vision-ocr --out /tmp/rec-a INPUT...
    record_outputs.py --helper ... --out /tmp/rec-a --dir bench/corpus-conditions
    diff -r /tmp/rec-a /tmp/rec-b && echo identical
"""

import argparse
import concurrent.futures
import hashlib
import os
import re
import shutil
import subprocess
import sys
import tempfile

INPUT_SUFFIXES = (".png", ".jpg", ".jpeg", ".webp", ".pdf")


def record(helper, path, out_dir):
    name = os.path.basename(path)
    work = tempfile.mkdtemp(prefix="kvo-record-")
    artifacts = os.path.join(work, "artifacts")
    try:
        run = subprocess.run([helper, "--input", path, "--artifacts", artifacts, "--json"],
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                             env=dict(os.environ, OMP_THREAD_LIMIT="1"))
        lines = ["exit %d" % run.returncode]
        for label, data in (("stdout", run.stdout), ("stderr", run.stderr)):
            text = data.decode("utf-8", "replace").replace(artifacts, "<ARTIFACTS>")
            text = re.sub(r'"elapsedMs":\s*[-+0-9.eE]+', '"elapsedMs":0', text)
            lines += ["== " + label, text]
        for root, _, files in sorted(os.walk(artifacts)):
            for f in sorted(files):
                full = os.path.join(root, f)
                rel = os.path.relpath(full, artifacts)
                with open(full, "rb") as fh:
                    data = fh.read()
                if f in ("result.json", "ocr.txt"):
                    text = data.decode("utf-8", "replace")
                    text = re.sub(r'"elapsedMs":\s*[-+0-9.eE]+', '"elapsedMs":0', text)
                    lines += ["== " + rel, text]
                lines.append("sha256 %s %s" % (hashlib.sha256(data).hexdigest()
                                                if f not in ("result.json",) else "-", rel))
        with open(os.path.join(out_dir, name + ".txt"), "w", encoding="utf-8") as fh:
            fh.write("\n".join(lines) + "\n")
    finally:
        shutil.rmtree(work, ignore_errors=True)
    return name


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--helper", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--dir", action="append", default=[],
                        help="record every input file in this directory too")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("inputs", nargs="*")
    args = parser.parse_args()
    inputs = [os.path.abspath(p) for p in args.inputs]
    for d in args.dir:
        inputs += [os.path.abspath(os.path.join(d, f)) for f in sorted(os.listdir(d))
                   if f.lower().endswith(INPUT_SUFFIXES)]
    os.makedirs(args.out, exist_ok=True)
    helper = os.path.abspath(args.helper)
    with concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        for done in pool.map(lambda p: record(helper, p, args.out), inputs):
            pass
    print("recorded %d runs in %s" % (len(inputs), args.out))
    return 0


if __name__ == "__main__":
    sys.exit(main())
