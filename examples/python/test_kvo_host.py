"""kvo_host.py against the real helper binary.

    KVO_HELPER=build/kem-vision-ocr KVO_SAMPLES=samples python3 -m unittest -v test_kvo_host
"""
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import kvo_host  # noqa: E402

HELPER = os.environ.get("KVO_HELPER", "kem-vision-ocr")
SAMPLES = os.environ.get("KVO_SAMPLES", "samples")


class RunHelperTest(unittest.TestCase):
    def setUp(self):
        self.temp = tempfile.TemporaryDirectory()
        self.addCleanup(self.temp.cleanup)

    def artifacts(self, name="artifacts"):
        return os.path.join(self.temp.name, name)

    def test_image_read_with_its_regions(self):
        result = kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts(), helper=HELPER)
        self.assertEqual(result.page_count, 1)
        self.assertIn("Harbour Light Books", result.text)
        self.assertIn("港湾之光书店", result.text)
        page = result.document["pages"][0]
        self.assertGreater(len(page["regions"]), 3)
        self.assertTrue(all(len(r["polygon"]) == 4 for r in page["regions"]))
        self.assertIsNone(result.page_image(1))
        with open(os.path.join(self.artifacts(), "ocr.txt"), encoding="utf-8") as f:
            self.assertEqual(f.read(), result.text)

    def test_pdf_in_text_mode(self):
        result = kvo_host.run_helper(os.path.join(SAMPLES, "sample.pdf"), self.artifacts(), "text", helper=HELPER)
        self.assertEqual(result.page_count, 2)
        self.assertIsNone(result.page_image(1))           # taken from its text layer
        self.assertTrue(os.path.isfile(result.page_image(2)))  # the scanned page was rendered

    def test_missing_input_is_invalid_input(self):
        with self.assertRaises(kvo_host.InvalidInput) as caught:
            kvo_host.run_helper(os.path.join(self.temp.name, "absent.png"), self.artifacts(), helper=HELPER)
        self.assertEqual(caught.exception.message, "Input file is missing")
        self.assertEqual(caught.exception.code, "invalid_input")
        self.assertEqual(caught.exception.exit_status, 2)

    def test_used_artifacts_directory_is_invalid_input(self):
        os.makedirs(self.artifacts())
        open(os.path.join(self.artifacts(), "left-over"), "w").close()
        with self.assertRaises(kvo_host.InvalidInput) as caught:
            kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts(), helper=HELPER)
        self.assertEqual(caught.exception.message, "Artifact directory contains unexpected files")

    def test_bad_output_mode_is_invalid_input(self):
        with self.assertRaises(kvo_host.InvalidInput) as caught:
            kvo_host.run_helper(os.path.join(SAMPLES, "sample.pdf"), self.artifacts(), "pictures", helper=HELPER)
        self.assertEqual(caught.exception.message, "Output mode must be text or layout")

    def test_missing_helper_is_unavailable(self):
        with self.assertRaises(kvo_host.RuntimeUnavailable) as caught:
            kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts(),
                                helper=os.path.join(self.temp.name, "no-such-helper"))
        self.assertEqual(caught.exception.code, "local_runtime_unavailable")

    def test_time_limit_kills_the_helper(self):
        with self.assertRaises(kvo_host.RuntimeTimeout) as caught:
            kvo_host.run_helper(os.path.join(SAMPLES, "sample.pdf"), self.artifacts(), helper=HELPER,
                                time_limit=0.05)
        self.assertEqual(caught.exception.code, "local_runtime_timeout")
        self.assertFalse(os.path.exists(os.path.join(self.artifacts(), "result.json")))

    def test_memory_limit_applies_to_the_helper(self):
        # 150 MiB of address space is too little for the recognition models:
        # the run fails one way or another, and never succeeds.
        with self.assertRaises(kvo_host.HelperError) as caught:
            kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts(), helper=HELPER,
                                memory_limit=150 << 20)
        self.assertNotIn(caught.exception.code, ("invalid_input", "local_runtime_timeout"))
        # The same run with the default limit succeeds.
        result = kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts("again"), helper=HELPER)
        self.assertIs(result.line["ok"], True)


if __name__ == "__main__":
    unittest.main()
