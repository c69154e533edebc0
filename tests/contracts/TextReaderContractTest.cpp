// The reader port's contract (interfaces/TextReader.h), run against the
// scripted fake the page-reading policy's tests use and against Tesseract:
// what a reader reports is in the pixels of the page it was handed, a region
// read on its own comes back in the page's pixels too, and a model that
// fails to load fails the reader for good. The page: a line of known text,
// "Hello World", drawn at a known place (tests/fixtures/make_ocr_fixtures.py).

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fakes/FakeTextReader.h"
#include "platform/TesseractEngine.h"
#include "platform/TesseractReader.h"
#include "recognition/GreyPage.h"
#include "support/TestSupport.h"

namespace {

using kvo::TextReader;
using kvo::recognition::Box;
using kvo::recognition::GreyImage;
using kvo::recognition::ReadLine;

// Where the fixture's line was drawn (ocr_runs.txt: ocr_hello).
const Box kDrawn{64, 73, 332, 111};
constexpr int kWidth = 800, kHeight = 240;

bool within(const Box& inner, const Box& outer, int slack) {
  return inner.left >= outer.left - slack && inner.top >= outer.top - slack && inner.right <= outer.right + slack &&
         inner.bottom <= outer.bottom + slack;
}

std::string words(const ReadLine& line) {
  std::string joined;
  for (const auto& w : line.words) joined += (joined.empty() ? "" : " ") + w.text;
  return joined;
}

// A fake scripted with the fixture's page: "Hello World" on one line where
// it was drawn; a region holding the line reads it, nothing else does.
std::unique_ptr<TextReader> scriptedFake() {
  auto fake = std::make_unique<kvo::fakes::FakeTextReader>();
  auto helloLine = [] {
    ReadLine line;
    line.box = kDrawn;
    line.placed = true;
    line.confidence = 90;
    line.words = {{"Hello", 0}, {"World", 20}};
    line.boxes = {Box{64, 73, 180, 111}, Box{200, 73, 332, 111}};
    line.confidences = {90, 90};
    return line;
  };
  fake->missing = {"xyz"};
  fake->layout = [](int, int) {
    TextReader::Layout layout;
    layout.lines = {kDrawn};
    layout.across = kDrawn.width() * kDrawn.height();
    return layout;
  };
  fake->pageText = [helloLine](const kvo::fakes::FakeTextReader::PageCall& call) {
    TextReader::PageText text;
    text.lines = {helloLine()};
    text.ink = kvo::fakes::inkWith(call.width, call.height, {kDrawn});
    return std::optional(std::move(text));
  };
  fake->region = [helloLine](const std::string&, const Box& region) {
    std::optional<std::vector<ReadLine>> lines;
    if (within(kDrawn, region, 0)) lines = std::vector<ReadLine>{helloLine()};
    return lines;
  };
  fake->symbols = [](const std::string&, const Box& region) {
    std::vector<TextReader::Symbol> found;
    if (!within(kDrawn, region, 0)) return found;
    const std::string text = "HelloWorld";
    for (size_t i = 0; i < text.size(); ++i)
      found.push_back({text.substr(i, 1), 90, Box{64 + 26 * static_cast<int>(i), 73, 88 + 26 * static_cast<int>(i), 111}});
    return found;
  };
  fake->confidence = [](const std::string&, const Box&, TextReader::RegionTurn turn) {
    return turn == TextReader::RegionTurn::none ? 90 : 20;
  };
  return fake;
}

std::unique_ptr<TextReader> tesseract() {
  auto reader = std::make_unique<kvo::TesseractReader>(kvo::TesseractEngine::defaultTessdataDir());
  reader->configure("eng", true);
  return reader;
}

struct Implementation {
  const char* name;
  std::unique_ptr<TextReader> (*make)();
};

class TextReaderContract : public ::testing::TestWithParam<Implementation> {
 protected:
  void SetUp() override {
    reader_ = GetParam().make();
    const kvo::Bitmap image = kvo::test::fixtureBitmap("ocr_hello.ppm");
    ASSERT_TRUE(image.valid());
    ASSERT_EQ(image.width(), kWidth);
    ASSERT_TRUE(kvo::recognition::toGrey(image, page_));
  }
  std::unique_ptr<TextReader> reader_;
  GreyImage page_;
};

TEST_P(TextReaderContract, FindsTheLineWhereItWasDrawn) {
  const auto layout = reader_->findLayout("eng", page_, 0);
  ASSERT_TRUE(layout);
  ASSERT_EQ(layout->lines.size(), 1u);
  EXPECT_TRUE(within(kDrawn, layout->lines[0], 4)) << "the line's box holds its ink";
  EXPECT_TRUE(within(layout->lines[0], kDrawn, 12)) << "and little more";
  EXPECT_FALSE(layout->mostlyDown());
}

TEST_P(TextReaderContract, ReadsThePageIntoItsOwnPixels) {
  const auto text = reader_->readPage("eng", TextReader::Segmentation::page, TextReader::Thresholding::global, page_, 0);
  ASSERT_TRUE(text);
  ASSERT_EQ(text->lines.size(), 1u);
  const ReadLine& line = text->lines[0];
  EXPECT_EQ(words(line), "Hello World");
  EXPECT_TRUE(within(line.box, kDrawn, 12));
  ASSERT_EQ(line.boxes.size(), line.words.size());
  ASSERT_EQ(line.confidences.size(), line.words.size());
  for (const Box& b : line.boxes) EXPECT_TRUE(within(b, line.box, 0));
  ASSERT_NE(text->ink.bits(), nullptr) << "the page as binarised comes with it";
  EXPECT_EQ(text->ink.width(), kWidth);
  EXPECT_EQ(text->ink.height(), kHeight);
  EXPECT_TRUE(text->ink.bits()->ink(kDrawn.left + 2, (kDrawn.top + kDrawn.bottom) / 2) ||
              text->ink.bits()->ink(kDrawn.left + 4, (kDrawn.top + kDrawn.bottom) / 2 + 4));
}

TEST_P(TextReaderContract, ReadsARegionIntoThePagesPixels) {
  const Box region{kDrawn.left - 10, kDrawn.top - 10, kDrawn.right + 10, kDrawn.bottom + 10};
  const auto lines = reader_->readRegion("eng", page_, region, 0, nullptr);
  ASSERT_TRUE(lines);
  ASSERT_EQ(lines->size(), 1u);
  EXPECT_EQ(words((*lines)[0]), "Hello World");
  EXPECT_TRUE(within((*lines)[0].box, kDrawn, 12)) << "not in the region's own pixels";
}

TEST_P(TextReaderContract, ReadsTheSymbolsOfARegionIntoThePagesPixels) {
  const Box region{kDrawn.left - 10, kDrawn.top - 10, kDrawn.right + 10, kDrawn.bottom + 10};
  const auto symbols = reader_->readSymbols("eng", page_, region, 0);
  std::string text;
  for (const auto& s : symbols) {
    text += s.text;
    EXPECT_TRUE(within(s.box, kDrawn, 12)) << s.text;
    EXPECT_GE(s.confidence, 0);
    EXPECT_LE(s.confidence, 100);
  }
  EXPECT_EQ(text, "HelloWorld");
}

TEST_P(TextReaderContract, ReadsALineStandingWithMoreConfidenceThanTurned) {
  const Box region{kDrawn.left - 10, kDrawn.top - 10, kDrawn.right + 10, kDrawn.bottom + 10};
  const int standing = reader_->readingConfidence("eng", page_, region, TextReader::RegionTurn::none);
  const int turned = reader_->readingConfidence("eng", page_, region, TextReader::RegionTurn::half);
  EXPECT_GT(standing, turned);
  EXPECT_LE(standing, 100);
}

TEST_P(TextReaderContract, AModelThatFailsToLoadFailsTheReaderForGood) {
  EXPECT_FALSE(reader_->failed());
  EXPECT_FALSE(reader_->findLayout("xyz", page_, 0));
  EXPECT_TRUE(reader_->failed());
  EXPECT_FALSE(reader_->readPage("eng", TextReader::Segmentation::page, TextReader::Thresholding::global, page_, 0));
  EXPECT_TRUE(reader_->readSymbols("eng", page_, kDrawn, 0).empty());
}

INSTANTIATE_TEST_SUITE_P(Readers, TextReaderContract,
                         ::testing::Values(Implementation{"ScriptedFake", &scriptedFake},
                                           Implementation{"Tesseract", &tesseract}),
                         [](const ::testing::TestParamInfo<Implementation>& info) { return info.param.name; });

}  // namespace
