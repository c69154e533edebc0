#include "recognition/PageReading.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "fakes/FakeTextReader.h"
#include "recognition/HalfTurn.h"
#include "recognition/ReadingPlan.h"

namespace {

using kvo::Bitmap;
using kvo::InkPage;
using kvo::TextObservation;
using kvo::TextReader;
using kvo::fakes::FakeTextReader;
using kvo::fakes::inkWith;
using kvo::recognition::Box;
using kvo::recognition::PageReading;
using kvo::recognition::ReadingPlan;
using kvo::recognition::ReadLine;
using Symbols = std::vector<TextReader::Symbol>;

class PageReadingTest : public ::testing::Test {
 protected:
  static constexpr int kWidth = 800, kHeight = 600;

  // A grey page: `ground` everywhere, `surround` in a band `band` pixels wide
  // along the edges.
  static Bitmap page(uint8_t ground = 255, int band = 0, uint8_t surround = 255, double ppi = 0) {
    Bitmap b = Bitmap::allocate(kWidth, kHeight, kvo::PixelFormat::rgb8);
    for (int y = 0; y < kHeight; ++y) {
      uint8_t* row = b.row(y);
      for (int x = 0; x < kWidth; ++x) {
        const bool edge = x < band || y < band || x >= kWidth - band || y >= kHeight - band;
        std::fill_n(row + 3 * x, 3, edge ? surround : ground);
      }
    }
    b.setPixelsPerInch(ppi);
    return b;
  }

  // A placed line of `words`, each 60 pixels wide with 20 between them.
  static ReadLine line(const Box& box, const std::vector<std::string>& words, float confidence = 90) {
    ReadLine l;
    l.box = box;
    l.placed = true;
    l.confidence = confidence;
    int x = box.left;
    for (const auto& w : words) {
      kvo::recognition::Word word;
      word.text = w;
      word.gapBefore = l.words.empty() ? 0 : 20;
      l.words.push_back(word);
      l.boxes.push_back(Box{x, box.top, x + 60, box.bottom});
      l.confidences.push_back(confidence);
      x += 80;
    }
    return l;
  }

  static TextReader::PageText text(std::vector<ReadLine> lines, InkPage ink = {}) {
    TextReader::PageText t;
    t.lines = std::move(lines);
    t.ink = std::move(ink);
    return t;
  }

  // `count` sample lines across the page, 30 pixels tall.
  static TextReader::Layout across(int count) {
    TextReader::Layout layout;
    for (int i = 0; i < count; ++i) layout.lines.push_back(Box{20, 20 + 50 * i, 700, 50 + 50 * i});
    layout.across = 1;
    return layout;
  }

  // Each character of `chars` (UTF-8 code points) as a symbol of a line read in `region`.
  static Symbols symbolsOf(const std::vector<std::string>& chars, double confidence, const Box& region) {
    Symbols found;
    int x = region.left;
    for (const auto& c : chars) {
      found.push_back(TextReader::Symbol{c, confidence, Box{x, region.top, x + 30, region.bottom}});
      x += 32;
    }
    return found;
  }

  // The page's ink at half size, for a page whose first line is across(1)'s:
  // glyphs all along that line, to x = 700 of the page.
  static InkPage glyphsAlongTheFirstLine(int width, int height) {
    std::vector<Box> ink;
    for (int x = 12; x < 340; x += 16) ink.push_back(Box{x, 11, x + 10, 24});
    return inkWith(width / 2, height / 2, ink);
  }

  static std::vector<std::string> texts(const std::vector<TextObservation>& observations) {
    std::vector<std::string> found;
    for (const auto& o : observations) found.push_back(o.candidate ? o.candidate->text : "<none>");
    return found;
  }

  // Simplified readings at `simplified`, Traditional ones at `traditional`.
  void chineseSample(double simplified, double traditional) {
    reader.layout = [](int, int) { return across(3); };
    reader.symbols = [simplified, traditional](const std::string& models, const Box& region) {
      if (models == "chi_sim") return symbolsOf({"说", "话", "这", "来", "时", "们"}, simplified, region);
      return symbolsOf({"說", "話", "這", "來", "時", "們"}, traditional, region);
    };
  }

  FakeTextReader reader;
};

TEST_F(PageReadingTest, APageWhoseSampleHoldsNoHanIsReadWithTheLatinModelsFirst) {
  reader.layout = [](int, int) { return across(3); };
  reader.symbols = [](const std::string&, const Box& region) { return symbolsOf({"a", "b"}, 90, region); };
  reader.pageText = [](const FakeTextReader::PageCall&) {
    return std::optional(text({line(Box{20, 20, 700, 50}, {"hello", "world"})}));
  };
  PageReading reading(reader, ReadingPlan::forModels("chi_sim+chi_tra+eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_EQ(texts(*result), std::vector<std::string>{"hello world"});
  EXPECT_EQ(reader.calls("page "), std::vector<std::string>{"page eng+chi_sim page global 800x600"});
  EXPECT_TRUE(reader.calls("symbols chi_tra").empty()) << "a line without Han is not read with the second model";
}

TEST_F(PageReadingTest, APageTheVotesGiveToTheSecondModelIsReadWithIt) {
  chineseSample(60, 95);
  reader.pageText = [](const FakeTextReader::PageCall&) {
    return std::optional(text({line(Box{20, 20, 700, 50}, {"說話"})}));
  };
  PageReading reading(reader, ReadingPlan::forModels("chi_sim+chi_tra+eng"));
  ASSERT_TRUE(reading.read(page()));
  EXPECT_EQ(reader.calls("page "), std::vector<std::string>{"page chi_tra page global 800x600"});
}

TEST_F(PageReadingTest, TheLatinRunsOfAChinesePageAreReadAgainWithTheLatinModels) {
  chineseSample(95, 60);
  reader.pageText = [](const FakeTextReader::PageCall&) {
    return std::optional(text({line(Box{20, 20, 700, 50}, {"中文", "heIlo"}, 40)}));
  };
  reader.region = [](const std::string&, const Box& region) {
    return std::optional(std::vector<ReadLine>{line(region, {"hello"}, 95)});
  };
  PageReading reading(reader, ReadingPlan::forModels("chi_sim+chi_tra+eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_EQ(reader.calls("page "), std::vector<std::string>{"page chi_sim page global 800x600"});
  ASSERT_EQ(reader.calls("region eng ").size(), 1u);
  ASSERT_EQ(result->size(), 1u);
  EXPECT_NE((*result)[0].candidate->text.find("hello"), std::string::npos) << (*result)[0].candidate->text;
  EXPECT_EQ((*result)[0].candidate->text.find("heIlo"), std::string::npos);
}

TEST_F(PageReadingTest, LatinModelsThatFailToLoadFailThePage) {
  chineseSample(95, 60);
  reader.missing = {"eng"};
  reader.pageText = [](const FakeTextReader::PageCall&) {
    return std::optional(text({line(Box{20, 20, 700, 50}, {"中文", "heIlo"}, 40)}));
  };
  PageReading reading(reader, ReadingPlan::forModels("chi_sim+chi_tra+eng"));
  EXPECT_FALSE(reading.read(page()));
  EXPECT_TRUE(reader.failed());
}

TEST_F(PageReadingTest, ASampleModelThatFailsToLoadFailsThePageBeforeItIsRead) {
  chineseSample(95, 60);
  reader.missing = {"chi_tra"};
  PageReading reading(reader, ReadingPlan::forModels("chi_sim+chi_tra+eng"));
  EXPECT_FALSE(reading.read(page()));
  EXPECT_TRUE(reader.calls("page ").empty());
}

TEST_F(PageReadingTest, LinesTheLayoutDroppedAreFoundAsSparseTextWhereTheyHoldUnreadInk) {
  // Glyph-sized ink on the line read and on a line 280 pixels below it.
  std::vector<Box> ink;
  for (int x = 30; x < 600; x += 40) {
    ink.push_back(Box{x, 22, x + 24, 48});
    ink.push_back(Box{x, 302, x + 24, 328});
  }
  reader.layout = [](int, int) { return across(1); };
  reader.pageText = [&ink](const FakeTextReader::PageCall& call) {
    if (call.segmentation == TextReader::Segmentation::sparse)
      return std::optional(text({line(Box{20, 298, 620, 332}, {"second"}), line(Box{20, 500, 620, 530}, {"ghost"})}));
    return std::optional(text({line(Box{20, 18, 620, 52}, {"first"})}, inkWith(kWidth, kHeight, ink)));
  };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_EQ(texts(*result), (std::vector<std::string>{"first", "second"}));
  EXPECT_EQ(reader.calls("page "),
            (std::vector<std::string>{"page eng page global 800x600", "page eng sparse global 800x600"}));
}

TEST_F(PageReadingTest, APageWhoseLinesRunDownItIsTurnedTheWayItsLongestLineReadsBest) {
  reader.layout = [](int width, int height) {
    TextReader::Layout layout;
    if (width > height) {  // as given: lines running down the page
      layout.lines = {Box{100, 20, 130, 580}, Box{200, 20, 230, 400}};
      layout.down = 30 * 560;
    } else {
      layout = across(1);
    }
    return layout;
  };
  reader.confidence = [](const std::string&, const Box&, TextReader::RegionTurn turn) {
    return turn == TextReader::RegionTurn::clockwise ? 90 : 10;
  };
  reader.pageText = [](const FakeTextReader::PageCall&) {
    return std::optional(text({line(Box{20, 20, 580, 50}, {"upright"})}));
  };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_EQ(reader.calls("layout "),
            (std::vector<std::string>{"layout eng 800x600 ppi 0", "layout eng 600x800 ppi 0"}));
  // The longest line, its padding a quarter of its width.
  EXPECT_EQ(reader.calls("confidence "),
            (std::vector<std::string>{"confidence eng 93,13,137,587 clockwise",
                                      "confidence eng 93,13,137,587 counterClockwise"}));
  EXPECT_EQ(reader.calls("page "), std::vector<std::string>{"page eng page global 600x800"});
  // A line across the top of the upright page runs down the page as given.
  const std::vector<Box> boxes = kvo::recognition::boxesWithText(*result, kWidth, kHeight);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_GT(boxes[0].height(), 500);
  EXPECT_LE(boxes[0].width(), 32);
}

TEST_F(PageReadingTest, ACrookedPageIsReadStraightAndItsLinesMappedBackAslant) {
  reader.skew = [](int, int) { return kvo::SkewMeasure{true, 3.0, 10.0}; };
  reader.layout = [](int, int) { return across(1); };
  reader.pageText = [](const FakeTextReader::PageCall&) {
    return std::optional(text({line(Box{20, 20, 600, 50}, {"straight"})}));
  };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  ASSERT_EQ(reader.calls("rotate ").size(), 1u);
  const auto turn = kvo::recognition::PageTurn::of(kWidth, kHeight, 3.0 * M_PI / 180.0);
  const std::string turned = std::to_string(turn.turnedWidth) + "x" + std::to_string(turn.turnedHeight);
  EXPECT_EQ(reader.calls("page "), std::vector<std::string>{"page eng page global " + turned});
  ASSERT_EQ(result->size(), 1u);
  // Turned back by 3°: the line's top edge rises or falls across 580 pixels by about 30.
  const double rise = ((*result)[0].topRight.y - (*result)[0].topLeft.y) * kHeight;
  EXPECT_NEAR(std::abs(rise), 580 * std::tan(3.0 * M_PI / 180.0), 2.0);
}

TEST_F(PageReadingTest, SmallTextIsReadFromThePageEnlargedAndComesBackInThePageGiven) {
  reader.layout = [](int width, int) {
    TextReader::Layout layout;
    const int f = width / kWidth;
    layout.lines = {Box{20 * f, 20 * f, 700 * f, 27 * f}, Box{20 * f, 40 * f, 700 * f, 47 * f}};
    layout.across = 1;
    return layout;
  };
  reader.pageText = [](const FakeTextReader::PageCall& call) {
    const int f = call.width / kWidth;
    return std::optional(text({line(Box{20 * f, 20 * f, 700 * f, 27 * f}, {"small"})}));
  };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page(255, 0, 255, 100));
  ASSERT_TRUE(result);
  const auto layouts = reader.calls("layout ");
  ASSERT_EQ(layouts.size(), 2u);
  EXPECT_EQ(layouts[0], "layout eng 800x600 ppi 100");
  EXPECT_EQ(layouts[1], "layout eng 3200x2400 ppi 400") << "7-pixel lines enlarged 4 times reach 28";
  ASSERT_EQ(result->size(), 1u);
  EXPECT_DOUBLE_EQ((*result)[0].topLeft.x, 20.0 / kWidth);
}

TEST_F(PageReadingTest, ADoubtfulReadingThatReadsBetterTurnedHalfIsReadTurnedHalf) {
  reader.layout = [](int, int) { return across(8); };
  int pages = 0;
  reader.pageText = [&pages](const FakeTextReader::PageCall&) {
    const float confidence = pages++ == 0 ? 30 : 90;
    std::vector<ReadLine> lines;
    for (int i = 0; i < 8; ++i) lines.push_back(line(Box{20, 20 + 50 * i, 700, 50 + 50 * i}, {"line"}, confidence));
    return std::optional(text(lines));
  };
  reader.confidence = [](const std::string&, const Box&, TextReader::RegionTurn turn) {
    return turn == TextReader::RegionTurn::half ? 90 : 10;
  };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_EQ(reader.calls("layout ").size(), 2u) << "read again, turned";
  ASSERT_EQ(result->size(), 8u);
  EXPECT_FLOAT_EQ((*result)[0].candidate->confidence, 0.9f);
  // The first line of the turned page is the last of the page given.
  const std::vector<Box> boxes = kvo::recognition::boxesWithText(*result, kWidth, kHeight);
  EXPECT_NEAR(boxes[0].bottom, kHeight - 20, 1);
}

TEST_F(PageReadingTest, AReadingThatLeftHalfOfEveryLineUnreadIsReplacedByTheLocalThresholdOne) {
  reader.layout = [](int, int) { return across(1); };
  reader.pageText = [](const FakeTextReader::PageCall& call) {
    if (call.thresholding == TextReader::Thresholding::local)
      return std::optional(text({line(Box{20, 20, 700, 50}, {"the", "whole", "line"})}));
    return std::optional(text({line(Box{20, 20, 300, 50}, {"the"})}));
  };
  reader.localInk = glyphsAlongTheFirstLine;
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_EQ(texts(*result), std::vector<std::string>{"the whole line"});
}

TEST_F(PageReadingTest, AReadingThatLeftNoInkUnreadIsKept) {
  reader.layout = [](int, int) { return across(1); };
  reader.pageText = [](const FakeTextReader::PageCall& call) {
    if (call.thresholding == TextReader::Thresholding::local)
      return std::optional(text({line(Box{20, 20, 700, 50}, {"other"})}));
    return std::optional(text({line(Box{20, 20, 700, 50}, {"the", "whole", "line"})}));
  };
  reader.localInk = glyphsAlongTheFirstLine;
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_EQ(texts(*result), std::vector<std::string>{"the whole line"});
  EXPECT_TRUE(reader.calls("page eng page local").empty());
}

TEST_F(PageReadingTest, APageOnADarkSurroundThatReadAsNothingIsReadAgainWithTheSurroundMadeSheet) {
  reader.layout = [](int, int) { return across(1); };
  int reads = 0;
  reader.pageText = [&reads](const FakeTextReader::PageCall& call) {
    if (call.thresholding == TextReader::Thresholding::global && reads++ > 0)
      return std::optional(text({line(Box{80, 80, 700, 110}, {"sheet"})}));
    return std::optional(text({}));
  };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page(220, 60, 40));
  ASSERT_TRUE(result);
  EXPECT_EQ(texts(*result), std::vector<std::string>{"sheet"});
  EXPECT_EQ(reader.calls("layout ").size(), 2u);
}

TEST_F(PageReadingTest, APageThatReadsAsNothingOnAPlainGroundIsNothing) {
  reader.layout = [](int, int) { return across(1); };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  const auto result = reading.read(page());
  ASSERT_TRUE(result);
  EXPECT_TRUE(result->empty());
  EXPECT_EQ(reader.calls("layout ").size(), 1u) << "no surround to clear";
}

TEST_F(PageReadingTest, ABitmapLargerThanTheReaderTakesIsRefusedUnread) {
  reader.largest = 700;
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  EXPECT_FALSE(reading.read(page()));
  EXPECT_TRUE(reader.log.empty());
}

TEST_F(PageReadingTest, MemoryRunningOutFailsThePage) {
  reader.layout = [](int, int) { return across(1); };
  reader.pageText = [](const FakeTextReader::PageCall&) -> std::optional<TextReader::PageText> { throw std::bad_alloc(); };
  PageReading reading(reader, ReadingPlan::forModels("eng"));
  EXPECT_FALSE(reading.read(page()));
}

}  // namespace
