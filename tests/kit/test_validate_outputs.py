"""validate_outputs.py accepts what the helper writes and rejects what it
must never write: each mutation below of a real-shaped run is reported.

    KVO_SOURCE_DIR=. python3 tests/kit/test_validate_outputs.py
"""
import copy
import json
import os
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.abspath(os.environ.get("KVO_SOURCE_DIR", "."))
VALIDATOR = os.path.join(SOURCE, "tests", "kit", "validate_outputs.py")
SCHEMAS = os.path.join(SOURCE, "schemas")

LINE = {"ok": True, "pageCount": 2, "pagesPreview": [{"imagePath": "pages/page-0002.png", "page": 2}],
        "resultPath": "result.json", "textPath": "ocr.txt", "textPreview": "A\n\nB", "truncated": False}
RESULT = {"metadata": {"elapsedMs": 812.5}, "pageCount": 2, "pages": [
    {"height": 792, "page": 1, "regions": [], "text": "A", "width": 612},
    {"height": 2200, "imagePath": "pages/page-0002.png", "page": 2, "regions": [
        {"confidence": 0.93, "polygon": [[10, 20], [300.5, 20], [300.5, 60], [10, 60]], "text": "B"}],
     "text": "B", "width": 1700}], "text": "A\n\nB"}
FAILURE = {"error": {"code": "encrypted_pdf", "message": "PDF requires a password"}, "ok": False}


def dump(value):
    return json.dumps(value, separators=(",", ":"), sort_keys=True, ensure_ascii=False)


class ValidatorTest(unittest.TestCase):
    def validate(self, runs):
        with tempfile.TemporaryDirectory() as root:
            for index, (stdout, status, result) in enumerate(runs):
                run = os.path.join(root, "run-%d" % index)
                os.makedirs(run)
                with open(os.path.join(run, "stdout"), "w", encoding="utf-8") as f:
                    f.write(stdout)
                with open(os.path.join(run, "exit"), "w") as f:
                    f.write("%d\n" % status)
                if result is not None:
                    with open(os.path.join(run, "result.json"), "w", encoding="utf-8") as f:
                        f.write(result)
            return subprocess.run([sys.executable, VALIDATOR, SCHEMAS, root], capture_output=True, text=True)

    def assert_valid(self, runs, count):
        completed = self.validate(runs)
        self.assertEqual(completed.returncode, 0, completed.stdout)
        self.assertIn("validated %d outputs" % count, completed.stdout)

    def assert_invalid(self, runs, why):
        completed = self.validate(runs)
        self.assertEqual(completed.returncode, 1, completed.stdout)
        self.assertIn(why, completed.stdout)

    def test_success_and_failure_runs_validate(self):
        self.assert_valid([(dump(LINE) + "\n", 0, dump(RESULT)), (dump(FAILURE) + "\n", 2, None)], 3)

    def test_nothing_collected_fails(self):
        self.assert_invalid([], "nothing was validated")

    def mutated_result(self, change):
        result = copy.deepcopy(RESULT)
        change(result)
        return [(dump(LINE) + "\n", 0, dump(result))]

    def test_result_mutations_are_rejected(self):
        def three_points(r): r["pages"][1]["regions"][0]["polygon"].pop()
        def float_width(r): r["pages"][0]["width"] = 612.5
        def image_path(r): r["pages"][1]["imagePath"] = "pages/page-2.png"
        def extra_key(r): r["pages"][0]["lang"] = "en"
        def confidence(r): r["pages"][1]["regions"][0]["confidence"] = 1.5
        def missing_metadata(r): del r["metadata"]
        def page_count(r): r["pageCount"] = 3
        for change, why in ((three_points, "is too short"), (float_width, "is not of type 'integer'"),
                            (image_path, "does not match"), (extra_key, "Additional properties"),
                            (confidence, "greater than the maximum"), (missing_metadata, "'metadata' is a required"),
                            (page_count, "pageCount 3 but 2 pages")):
            with self.subTest(change.__name__):
                self.assert_invalid(self.mutated_result(change), why)

    def test_line_mutations_are_rejected(self):
        unknown = copy.deepcopy(FAILURE)
        unknown["error"]["code"] = "timeout"
        float_count = dict(LINE, pageCount=2.5)
        for runs, why in (([(dump(unknown) + "\n", 2, None)], "is not valid under any of the given schemas"),
                          ([(dump(FAILURE) + "\n", 0, None)], "exit status 0 with ok=False"),
                          ([(dump(FAILURE) + "\n" + dump(FAILURE) + "\n", 2, None)], "not exactly one line"),
                          ([(dump(FAILURE), 2, None)], "not exactly one line"),
                          ([(dump(float_count) + "\n", 0, dump(RESULT))], "is not valid under any"),
                          ([(dump(dict(LINE, pagesPreview=[])) + "\n", 0, dump(RESULT))], "pagesPreview")):
            with self.subTest(why):
                self.assert_invalid(runs, why)


if __name__ == "__main__":
    unittest.main()
