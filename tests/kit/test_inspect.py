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

    def test_text_layer_page_drawn_on_white(self):
        image, page = self.inspect("pdftext", 1)
        self.assertEqual(page["regions"], [])
        self.assertEqual(image.width, page["width"])
        self.assertEqual(image.getpixel((page["width"] // 2, page["height"] // 2)), (255, 255, 255))

    def test_colour_runs_from_red_to_green(self):
        red, mid, green = (kvo_inspect.confidence_colour(c) for c in (0, 0.5, 1))
        self.assertGreater(red[0], red[1])
        self.assertEqual(mid[0], mid[1])
        self.assertGreater(green[1], green[0])

    def test_page_out_of_range_is_refused(self):
        artifacts, _ = self.runs["png"]
        completed = subprocess.run([TOOL, "--artifacts", artifacts, "--page", "2", "--output",
                                    os.path.join(self.temp.name, "x.png")], capture_output=True, text=True)
        self.assertNotEqual(completed.returncode, 0)
        self.assertIn("page 2 not in result.json", completed.stderr)


if __name__ == "__main__":
    unittest.main()
