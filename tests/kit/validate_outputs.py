#!/usr/bin/python3
"""Validates what the helper produced against schemas/ with Debian's
python3-jsonschema (Draft 2020-12).

    validate_outputs.py <schemas dir> <collected dir> [<collected dir>...]

Each collected run is a directory holding `stdout`, `exit` and, after a
success, `result.json` (written by tests/kit/OutputCollector.h, or by
tests/kit/validate_run.sh for runs of its own). Besides the schemas it checks
what the schemas cannot say: one line, the exit status agrees with "ok", page
numbers and image paths follow the pages, pageCount is the number of pages.
Fails when anything does not validate, and when nothing was validated at all.
"""
import json
import os
import sys

import jsonschema


def load_schema(path):
    with open(path, encoding="utf-8") as f:
        schema = json.load(f)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def result_invariants(doc, line):
    problems = []
    if doc["pageCount"] != len(doc["pages"]):
        problems.append("pageCount %d but %d pages" % (doc["pageCount"], len(doc["pages"])))
    for index, page in enumerate(doc["pages"], start=1):
        if page["page"] != index:
            problems.append("page %d numbered %d" % (index, page["page"]))
        if "imagePath" in page and page["imagePath"] != "pages/page-%04d.png" % page["page"]:
            problems.append("page %d has imagePath %s" % (page["page"], page["imagePath"]))
    if "\n\n".join(p["text"] for p in doc["pages"]) != doc["text"]:
        problems.append("text is not the page texts joined by a blank line")
    if line is not None and line.get("ok") is True:
        if line["pageCount"] != doc["pageCount"]:
            problems.append("line pageCount %d, result.json %d" % (line["pageCount"], doc["pageCount"]))
        previews = [{"imagePath": p["imagePath"], "page": p["page"]} for p in doc["pages"] if "imagePath" in p][:5]
        if line["pagesPreview"] != previews:
            problems.append("pagesPreview is not the first rendered pages")
    return problems


def main(argv):
    if len(argv) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    line_validator = load_schema(os.path.join(argv[1], "stdout-line.schema.json"))
    result_validator = load_schema(os.path.join(argv[1], "result.schema.json"))
    counts = {"success lines": 0, "failure lines": 0, "result.json": 0, "killed runs skipped": 0}
    failures = []

    runs = []
    for root in argv[2:]:
        if os.path.isdir(root):
            runs += [os.path.join(root, d) for d in sorted(os.listdir(root))]
    for run in runs:
        def fail(message):
            name = ""
            if os.path.exists(os.path.join(run, "test")):
                name = " (" + open(os.path.join(run, "test"), encoding="utf-8").read().strip() + ")"
            failures.append("%s%s: %s" % (run, name, message))

        if not os.path.exists(os.path.join(run, "exit")):
            continue
        status = int(open(os.path.join(run, "exit")).read())
        raw = open(os.path.join(run, "stdout"), "rb").read()
        if status >= 128 and raw == b"":
            counts["killed runs skipped"] += 1  # stopped by a signal before it printed
            continue
        line = None
        if not raw.endswith(b"\n") or raw.count(b"\n") != 1:
            fail("standard output is not exactly one line: %r" % raw[:200])
        else:
            try:
                line = json.loads(raw.decode("utf-8"))
            except ValueError as error:
                fail("standard output is not JSON: %s" % error)
        if line is not None:
            errors = sorted(line_validator.iter_errors(line), key=lambda e: list(e.absolute_path))
            for error in errors:
                fail("stdout line: %s at %s" % (error.message, list(error.absolute_path)))
            if not errors:
                expected_ok = status == 0
                if line["ok"] != expected_ok or status not in (0, 1, 2):
                    fail("exit status %d with ok=%s" % (status, line["ok"]))
                else:
                    counts["success lines" if expected_ok else "failure lines"] += 1
        result_path = os.path.join(run, "result.json")
        if os.path.exists(result_path):
            try:
                doc = json.load(open(result_path, encoding="utf-8"))
            except ValueError as error:
                fail("result.json is not JSON: %s" % error)
                continue
            errors = sorted(result_validator.iter_errors(doc), key=lambda e: list(e.absolute_path))
            for error in errors[:10]:
                fail("result.json: %s at %s" % (error.message, list(error.absolute_path)))
            if not errors:
                problems = result_invariants(doc, line)
                for problem in problems:
                    fail("result.json: " + problem)
                if not problems:
                    counts["result.json"] += 1

    for failure in failures[:50]:
        print("INVALID " + failure)
    total = counts["success lines"] + counts["failure lines"] + counts["result.json"]
    print("validated %d outputs against schemas/ from %d runs: %s" % (
        total, len(runs), ", ".join("%d %s" % (n, what) for what, n in counts.items())))
    if failures:
        print("%d outputs do not validate" % len(failures))
        return 1
    if total == 0:
        print("nothing was validated: no helper output was collected")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
