"""kvo_host.py against the real helper binary.

    KVO_HELPER=build/kem-vision-ocr KVO_SAMPLES=samples python3 -m unittest -v test_kvo_host
"""
import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # nothing left beside the module when it is run from the installed docs
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

    def test_time_out_then_retry_succeeds(self):
        pdf = os.path.join(SAMPLES, "sample.pdf")
        with self.assertRaises(kvo_host.RuntimeTimeout):
            kvo_host.run_helper(pdf, self.artifacts(), helper=HELPER, time_limit=0.2)
        self.assertEqual(os.listdir(self.artifacts()) if os.path.isdir(self.artifacts()) else [], [])
        result = kvo_host.run_helper(pdf, self.artifacts(), helper=HELPER)
        self.assertEqual(result.page_count, 2)

    def test_what_a_stopped_helper_left_is_cleared(self):
        # A stand-in that writes a page and then hangs, so that something is
        # surely left when the time limit stops it; the staged input stays.
        stand_in = os.path.join(self.temp.name, "hanging-helper")
        with open(stand_in, "w") as f:
            f.write('#!/bin/sh\nmkdir -p "$4/pages" && echo x > "$4/pages/page-0001.png"\nexec sleep 30\n')
        os.chmod(stand_in, 0o755)
        os.makedirs(self.artifacts())
        staged = os.path.join(self.artifacts(), "scan.png")
        with open(os.path.join(SAMPLES, "sample.png"), "rb") as src, open(staged, "wb") as dst:
            dst.write(src.read())
        with self.assertRaises(kvo_host.RuntimeTimeout):
            kvo_host.run_helper(staged, self.artifacts(), helper=stand_in, time_limit=0.5)
        self.assertEqual(os.listdir(self.artifacts()), ["scan.png"])
        result = kvo_host.run_helper(staged, self.artifacts(), helper=HELPER)
        self.assertIn("Harbour Light Books", result.text)

    def test_memory_limit_is_its_own_exception_then_retry_succeeds(self):
        # 150 MiB of address space is too little for the recognition models.
        with self.assertRaises(kvo_host.MemoryLimitExceeded) as caught:
            kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts(), helper=HELPER,
                                memory_limit=150 << 20)
        self.assertEqual(caught.exception.code, "local_runtime_failed")
        self.assertIsInstance(caught.exception, kvo_host.RuntimeFailed)
        self.assertIn("150 MiB memory limit", caught.exception.message)
        self.assertIn("raise memory_limit", caught.exception.message)
        # The same call with the default limit succeeds.
        result = kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts(), helper=HELPER)
        self.assertIs(result.line["ok"], True)

    def test_wrapper_that_cannot_start_the_helper_is_unavailable(self):
        wrapper = os.path.join(self.temp.name, "wrapper")
        with open(wrapper, "w") as f:
            f.write("#!/bin/sh\nexec /nonexistent/kem-vision-ocr \"$@\"\n")
        os.chmod(wrapper, 0o755)
        with self.assertRaises(kvo_host.RuntimeUnavailable):
            kvo_host.run_helper(os.path.join(SAMPLES, "sample.png"), self.artifacts(), helper=wrapper)


if __name__ == "__main__":
    unittest.main()
