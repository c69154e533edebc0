"""tools/kvo-inspect on the shipped samples, run through the real helper.

    KVO_HELPER=build/kem-vision-ocr KVO_SOURCE_DIR=. python3 -m unittest -v test_inspect
"""
import importlib.machinery
import importlib.util
import json
import os
import subprocess
import tempfile
import unittest

from PIL import Image

SOURCE = os.path.abspath(os.environ.get("KVO_SOURCE_DIR", "."))
HELPER = os.path.abspath(os.environ.get("KVO_HELPER", "build/kem-vision-ocr"))
TOOL = os.path.join(SOURCE, "tools", "kvo-inspect")

loader = importlib.machinery.SourceFileLoader("kvo_inspect", TOOL)
module_description = importlib.util.spec_from_loader("kvo_inspect", loader)
kvo_inspect = importlib.util.module_from_spec(module_description)
loader.exec_module(kvo_inspect)


class InspectTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.temp = tempfile.TemporaryDirectory()
        cls.runs = {}
        for name, sample, mode in (("png", "sample.png", "layout"), ("pdf", "sample.pdf", "layout"),
                                   ("pdftext", "sample.pdf", "text")):
            artifacts = os.path.join(cls.temp.name, name)
            subprocess.run([HELPER, "--input", os.path.join(SOURCE, "samples", sample), "--artifacts", artifacts,
                            "--output-mode", mode, "--json"], check=True, stdout=subprocess.DEVNULL)
            with open(os.path.join(artifacts, "result.json"), encoding="utf-8") as f:
                cls.runs[name] = (artifacts, json.load(f))

    @classmethod
    def tearDownClass(cls):
        cls.temp.cleanup()

    def inspect(self, name, page, *extra):
        artifacts, document = self.runs[name]
        output = os.path.join(self.temp.name, "%s-%d.png" % (name, page))
        completed = subprocess.run([TOOL, "--artifacts", artifacts, "--page", str(page), "--output", output, *extra],
                                   check=True, capture_output=True, text=True)
        regions = len(document["pages"][page - 1]["regions"])
        self.assertIn("page %d, %d regions" % (page, regions), completed.stdout)
        return Image.open(output).convert("RGB"), document["pages"][page - 1]

    def assert_regions_drawn(self, image, page, background):
        self.assertEqual(image.width, page["width"])
        self.assertGreater(image.height, page["height"])  # the scale strip below the page
        self.assertGreater(len(page["regions"]), 3)
        for region in page["regions"]:
            (x0, y0), (x1, y1) = region["polygon"][0], region["polygon"][1]
            # The outline runs through the middle of the top edge, in the confidence's colour.
            probe = (int((x0 + x1) / 2), int(round(y0)))
            expected = kvo_inspect.confidence_colour(region["confidence"])
            got = image.getpixel(probe)
            self.assertTrue(all(abs(a - b) <= 2 for a, b in zip(got, expected)), (region["text"], got, expected))
        # Away from every region the page is as it was.
        corner = (page["width"] - 3, page["height"] - 3)
        self.assertEqual(image.getpixel(corner), background.getpixel(corner))

    def test_regions_over_the_input_image(self):
        image, page = self.inspect("png", 1, "--input", os.path.join(SOURCE, "samples", "sample.png"))
        self.assert_regions_drawn(image, page, Image.open(os.path.join(SOURCE, "samples", "sample.png")).convert("RGB"))

    def test_regions_over_a_rendered_pdf_page(self):
        artifacts, _ = self.runs["pdf"]
        for number in (1, 2):
            image, page = self.inspect("pdf", number)
            self.assertEqual(page["imagePath"], "pages/page-%04d.png" % number)
            self.assert_regions_drawn(image, page,
                                      Image.open(os.path.join(artifacts, page["imagePath"])).convert("RGB"))

    def test_text_layer_page_drawn_over_the_input_pdf(self):
        image, page = self.inspect("pdftext", 1, "--input", os.path.join(SOURCE, "samples", "sample.pdf"))
        self.assertEqual(page["regions"], [])
        self.assertEqual(image.width, round(page["width"]))
        # The rendered page has ink: not a blank white page.
        dark = sum(1 for p in image.crop((0, 0, image.width, round(page["height"]))).getdata() if sum(p) < 300)
        self.assertGreater(dark, 100)

    def test_image_without_input_says_so(self):
        artifacts, _ = self.runs["png"]
        completed = self.run_tool("--artifacts", artifacts, "--output", os.path.join(self.temp.name, "white.png"))
        self.assertEqual(completed.returncode, 0)
        self.assertIn("drawn on white (give --input", completed.stderr)

    def test_colour_scale_separates_high_confidences(self):
        red, mid, high, top = (kvo_inspect.confidence_colour(c) for c in (0, 0.5, 0.85, 0.99))
        self.assertGreater(red[0], red[1])
        self.assertGreater(mid[0], mid[2])
        # 0.85 and 0.99 are far apart (Euclidean distance in RGB).
        self.assertGreater(sum((a - b) ** 2 for a, b in zip(high, top)) ** 0.5, 150)
        self.assertGreater(top[2], top[0])  # blue at the top

    def test_output_format_follows_the_name(self):
        artifacts, _ = self.runs["pdf"]
        output = os.path.join(self.temp.name, "page.jpg")
        self.assertEqual(self.run_tool("--artifacts", artifacts, "--output", output).returncode, 0)
        with Image.open(output) as image:
            self.assertEqual(image.format, "JPEG")

    def run_tool(self, *arguments):
        return subprocess.run([TOOL, *arguments], capture_output=True, text=True)

    def assert_one_line_error(self, completed, text):
        self.assertEqual(completed.returncode, 1, completed.stderr)
        self.assertNotIn("Traceback", completed.stderr)
        self.assertEqual(len(completed.stderr.strip().splitlines()), 1, completed.stderr)
        self.assertIn(text, completed.stderr)

    def test_page_out_of_range_is_refused(self):
        artifacts, _ = self.runs["png"]
        self.assert_one_line_error(
            self.run_tool("--artifacts", artifacts, "--page", "2", "--output", os.path.join(self.temp.name, "x.png")),
            "page 2 not in result.json")

    def test_mistakes_are_one_line_each(self):
        failed = os.path.join(self.temp.name, "failed-run")
        subprocess.run([HELPER, "--input", os.path.join(self.temp.name, "absent.png"), "--artifacts", failed,
                        "--json"], stdout=subprocess.DEVNULL)
        out = os.path.join(self.temp.name, "x.png")
        png, _ = self.runs["png"]
        pdftext, _ = self.runs["pdftext"]
        notes = os.path.join(self.temp.name, "notes.txt")
        with open(notes, "w") as f:
            f.write("not an image")
        self.assert_one_line_error(self.run_tool("--artifacts", failed, "--output", out), "has no result.json")
        self.assert_one_line_error(self.run_tool("--artifacts", png, "--output", "/nonexistent/x.png"),
                                   "no such directory for --output")
        self.assert_one_line_error(self.run_tool("--artifacts", png, "--input", notes, "--output", out),
                                   "neither an image nor a PDF")
        self.assert_one_line_error(
            self.run_tool("--artifacts", pdftext, "--input", os.path.join(SOURCE, "samples", "sample.png"),
                          "--output", out), "not its input")
        self.assert_one_line_error(self.run_tool("--artifacts", png, "--output", os.path.join(self.temp.name, "x.abc")),
                                   "unknown image type")


if __name__ == "__main__":
    unittest.main()
