#include "VisionOcrCore/VisionRecognizer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "VisionOcrCore/Json.h"
#include "fakes/Expectations.h"
#include "fakes/FakeBitmap.h"
#include "fakes/ScriptedTextEngine.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using kvo::NormalizedPoint;
using kvo::OcrPage;
using kvo::OcrRegion;
using kvo::RecognitionLevel;
using kvo::TextObservation;
using namespace kvo::fakes;

using Polygon = std::vector<std::vector<double>>;

class VisionRecognizer : public ::testing::Test {
 protected:
  ScriptedTextEngine engine;
  kvo::VisionRecognizer recognizer{engine};
  kvo::Bitmap bitmap = makeFakeBitmap(800, 600);

  OcrPage recognize(std::vector<TextObservation> observations, std::optional<std::string> imagePath = std::nullopt,
                    int64_t pageNumber = 1) {
    engine.respond(std::move(observations));
    return recognizer.recognize(bitmap, pageNumber, std::move(imagePath));
  }

  // The polygon of a single observation whose four corners are all `corner`.
  Polygon cornerPolygon(NormalizedPoint corner) {
    const OcrPage page = recognize({observation("x", 0.5f, corner, corner, corner, corner)});
    EXPECT_EQ(page.regions.size(), 1u);
    return page.regions.empty() ? Polygon{} : page.regions[0].polygon;
  }

  double confidenceOf(float confidence) {
    const OcrPage page = recognize({observation("x", confidence, {0, 1}, {1, 1}, {1, 0}, {0, 0})});
    EXPECT_EQ(page.regions.size(), 1u);
    return page.regions.empty() ? -1 : page.regions[0].confidence;
  }
};

// ---- the request -----------------------------------------------------------------------------

TEST_F(VisionRecognizer, RunsOneAccurateRequestWithTheThreeLanguagesAndCorrection) {
  recognize({});
  ASSERT_EQ(engine.calls().size(), 1u);
  const auto& request = engine.calls()[0].request;
  EXPECT_EQ(request.level, RecognitionLevel::accurate);
  EXPECT_EQ(request.languages, (std::vector<std::string>{"zh-Hans", "zh-Hant", "en-US"}));
  EXPECT_TRUE(request.usesLanguageCorrection);
}

TEST_F(VisionRecognizer, RecognisesTheWholeBitmapItWasGiven) {
  recognize({});
  EXPECT_EQ(engine.calls()[0].width, 800);
  EXPECT_EQ(engine.calls()[0].height, 600);
}

TEST_F(VisionRecognizer, EngineFailureIsALocalRuntimeFailureWithNoPartialPage) {
  engine.fail();
  EXPECT_TRUE(throwsHelperError([&] { recognizer.recognize(bitmap, 1, std::nullopt); },
                                HelperErrorCode::localRuntimeFailed, "Apple Vision text recognition failed"));
}

// ---- texts ------------------------------------------------------------------------------------------

TEST_F(VisionRecognizer, BlankCandidateIsDropped) {
  const OcrPage page = recognize({textBox("  \n ", 0.1, 0.1, 0.5, 0.2), textBox("kept", 0.1, 0.5, 0.5, 0.6)});
  ASSERT_EQ(page.regions.size(), 1u);
  EXPECT_EQ(page.regions[0].text, "kept");
  EXPECT_EQ(page.text, "kept");
}

TEST_F(VisionRecognizer, OuterWhitespaceIsTrimmedInnerWhitespaceKept) {
  const OcrPage page = recognize({textBox(" a b ", 0.1, 0.1, 0.5, 0.2)});
  ASSERT_EQ(page.regions.size(), 1u);
  EXPECT_EQ(page.regions[0].text, "a b");
}

TEST_F(VisionRecognizer, UnicodeSpacesAndLineBreaksAreTrimmedRunsInsideKept) {
  const OcrPage page = recognize({textBox("\xE3\x80\x80\t x \xC2\xA0  y\r\n\xC2\x85", 0.1, 0.1, 0.5, 0.2)});
  ASSERT_EQ(page.regions.size(), 1u);
  EXPECT_EQ(page.regions[0].text, "x \xC2\xA0  y");
}

TEST_F(VisionRecognizer, ObservationWithoutCandidateIsDropped) {
  const OcrPage page = recognize({withoutCandidate(), textBox("b", 0.1, 0.5, 0.5, 0.6)});
  ASSERT_EQ(page.regions.size(), 1u);
  EXPECT_EQ(page.text, "b");
}

TEST_F(VisionRecognizer, EveryRegionGetsItsOwnLineEvenOnASharedVisualLine) {
  const OcrPage page = recognize({textBox("Total", 0.1, 0.5, 0.3, 0.55), textBox("42", 0.7, 0.5, 0.8, 0.55),
                                  textBox("Invoice", 0.1, 0.2, 0.4, 0.25)});
  EXPECT_EQ(page.text, "Invoice\nTotal\n42");
}

TEST_F(VisionRecognizer, PageWhereNothingIsFoundIsEmptyWithItsRealSize) {
  const OcrPage page = recognize({});
  EXPECT_EQ(page.text, "");
  EXPECT_TRUE(page.regions.empty());
  EXPECT_EQ(page.width, 800);
  EXPECT_EQ(page.height, 600);
  EXPECT_EQ(kvo::encodeJson(page), R"({"height":600,"page":1,"regions":[],"text":"","width":800})");
}

TEST_F(VisionRecognizer, PageWhereEverythingIsBlankIsEmpty) {
  const OcrPage page = recognize({textBox(" ", 0, 0, 1, 1), withoutCandidate()});
  EXPECT_EQ(page.text, "");
  EXPECT_TRUE(page.regions.empty());
}

TEST_F(VisionRecognizer, IllFormedTextFromTheEngineBecomesValidText) {
  const OcrPage page = recognize({textBox("a\xFF" "b", 0.1, 0.1, 0.5, 0.2)});
  EXPECT_EQ(page.text, "a\xEF\xBF\xBD" "b");
}

// ---- geometry ---------------------------------------------------------------------------------------------

TEST_F(VisionRecognizer, BottomLeftCornerBecomesThePageBottomLeft) {
  EXPECT_EQ(cornerPolygon({0, 0}), (Polygon{{0, 600}, {0, 600}, {0, 600}, {0, 600}}));
}

TEST_F(VisionRecognizer, TopRightCornerBecomesThePageTopRight) {
  EXPECT_EQ(cornerPolygon({1, 1}), (Polygon{{800, 0}, {800, 0}, {800, 0}, {800, 0}}));
}

TEST_F(VisionRecognizer, InnerPointIsScaledAndFlipped) {
  EXPECT_EQ(cornerPolygon({0.25, 0.5}), (Polygon{{200, 300}, {200, 300}, {200, 300}, {200, 300}}));
}

TEST_F(VisionRecognizer, PointOutsideTheImageIsClampedOntoItsEdge) {
  EXPECT_EQ(cornerPolygon({1.02, -0.1}), (Polygon{{800, 600}, {800, 600}, {800, 600}, {800, 600}}));
  EXPECT_EQ(cornerPolygon({-0.5, 1.5}), (Polygon{{0, 0}, {0, 0}, {0, 0}, {0, 0}}));
}

TEST_F(VisionRecognizer, CoordinateThatIsNotANumberBecomesZero) {
  const double nan = std::nan("");
  EXPECT_EQ(cornerPolygon({nan, nan}), (Polygon{{0, 0}, {0, 0}, {0, 0}, {0, 0}}));
}

TEST_F(VisionRecognizer, CornersRunTopLeftTopRightBottomRightBottomLeft) {
  const OcrPage page = recognize({observation("w", 0.5f, {0.1, 0.9}, {0.6, 0.8}, {0.65, 0.7}, {0.15, 0.75})});
  ASSERT_EQ(page.regions.size(), 1u);
  const Polygon& p = page.regions[0].polygon;
  ASSERT_EQ(p.size(), 4u);
  EXPECT_DOUBLE_EQ(p[0][0], 80);
  EXPECT_DOUBLE_EQ(p[0][1], 60);
  EXPECT_DOUBLE_EQ(p[1][0], 480);
  EXPECT_DOUBLE_EQ(p[1][1], 120);
  EXPECT_DOUBLE_EQ(p[2][0], 520);
  EXPECT_DOUBLE_EQ(p[2][1], 180);
  EXPECT_DOUBLE_EQ(p[3][0], 120);
  EXPECT_DOUBLE_EQ(p[3][1], 150);
}

TEST_F(VisionRecognizer, CoordinatesAreNotRounded) {
  const OcrPage page = recognize({observation("w", 0.5f, {0.3333, 0.1234}, {1, 1}, {1, 0}, {0, 0})});
  EXPECT_EQ(page.regions[0].polygon[0][0], 0.3333 * 800);
  EXPECT_EQ(page.regions[0].polygon[0][1], (1 - 0.1234) * 600);
}

// ---- confidence ---------------------------------------------------------------------------------------------

TEST_F(VisionRecognizer, ConfidenceOfOneStaysOne) { EXPECT_EQ(confidenceOf(1.0f), 1.0); }

TEST_F(VisionRecognizer, ConfidenceAboveOneBecomesOne) { EXPECT_EQ(confidenceOf(1.5f), 1.0); }

TEST_F(VisionRecognizer, NegativeConfidenceBecomesZero) { EXPECT_EQ(confidenceOf(-0.2f), 0.0); }

TEST_F(VisionRecognizer, ConfidenceThatIsNotANumberBecomesZero) {
  EXPECT_EQ(confidenceOf(std::numeric_limits<float>::quiet_NaN()), 0.0);
}

TEST_F(VisionRecognizer, ConfidenceIsTheExactlyWidenedFloat) {
  EXPECT_EQ(confidenceOf(0.3f), 0.30000001192092896);
  EXPECT_EQ(confidenceOf(0.0f), 0.0);
}

// ---- page fields ------------------------------------------------------------------------------------------------

TEST_F(VisionRecognizer, ImagePathIsReturnedUnchanged) {
  EXPECT_EQ(recognize({}, "pages/page-0001.png").imagePath, "pages/page-0001.png");
}

TEST_F(VisionRecognizer, AbsentImagePathStaysAbsent) {
  const OcrPage page = recognize({textBox("a", 0.1, 0.1, 0.2, 0.2)});
  EXPECT_EQ(page.imagePath, std::nullopt);
  EXPECT_EQ(kvo::encodeJson(page).find("imagePath"), std::string::npos);
}

TEST_F(VisionRecognizer, PageNumberIsPassedThrough) { EXPECT_EQ(recognize({}, std::nullopt, 42).page, 42); }

TEST_F(VisionRecognizer, CallsAreIndependent) {
  recognize({textBox("first", 0.1, 0.1, 0.2, 0.2)});
  const OcrPage second = recognize({});
  EXPECT_EQ(second.text, "");
  EXPECT_EQ(engine.calls().size(), 2u);
}

// ---- reading order -------------------------------------------------------------------------------------------------

class ReadingOrder : public ::testing::Test {
 protected:
  // A four-point upright box whose top-left corner is (left, top).
  static OcrRegion at(double top, double left, std::string text = "r") {
    return OcrRegion{std::move(text), 1, {{left, top}, {left + 40, top}, {left + 40, top + 8}, {left, top + 8}}};
  }
  static bool before(const OcrRegion& a, const OcrRegion& b) { return kvo::VisionRecognizer::readingOrder(a, b); }

  // The page text after the recogniser sorts observations given in this order.
  std::string sortedText(const std::vector<TextObservation>& observations) {
    engine.respond(observations);
    return recognizer.recognize(bitmap, 1, std::nullopt).text;
  }

  ScriptedTextEngine engine;
  kvo::VisionRecognizer recognizer{engine};
  kvo::Bitmap bitmap = makeFakeBitmap(1000, 1000);
};

TEST_F(ReadingOrder, TopsWithinTheToleranceCompareByLeft) {
  EXPECT_TRUE(before(at(105, 50), at(100, 300)));
  EXPECT_FALSE(before(at(100, 300), at(105, 50)));
}

TEST_F(ReadingOrder, TopsExactlyTheToleranceApartAreDifferentLines) {
  EXPECT_TRUE(before(at(100, 300), at(110, 50)));
  EXPECT_FALSE(before(at(110, 50), at(100, 300)));
}

TEST_F(ReadingOrder, TopsJustUnderTheToleranceAreOneLine) {
  EXPECT_TRUE(before(at(109.99, 50), at(100, 300)));
  EXPECT_FALSE(before(at(100, 300), at(109.99, 50)));
}

TEST_F(ReadingOrder, IdenticalPositionsNeitherComesFirstAndEngineOrderIsKept) {
  EXPECT_FALSE(before(at(100, 50), at(100, 50)));
  // Same box, three texts: the engine's order survives the sort.
  EXPECT_EQ(sortedText({textBox("one", 0.1, 0.1, 0.3, 0.2), textBox("two", 0.1, 0.1, 0.3, 0.2),
                        textBox("three", 0.1, 0.1, 0.3, 0.2)}),
            "one\ntwo\nthree");
}

TEST_F(ReadingOrder, EmptyPolygonSortsAtTheTopLeft) {
  const OcrRegion empty{"e", 1, {}};
  EXPECT_TRUE(before(empty, at(5, 10)));
  EXPECT_FALSE(before(at(5, 10), empty));
  EXPECT_TRUE(before(empty, at(10, 0)));
  EXPECT_FALSE(before(empty, at(3, 0)));
}

TEST_F(ReadingOrder, TopIsTheSmallestYOfAllPointsNotTheFirst) {
  const OcrRegion skewed{"s", 1, {{10, 120}, {200, 104}, {205, 130}, {15, 140}}};
  // top 104: on one line with a region at top 100, and further left.
  EXPECT_TRUE(before(skewed, at(100, 500)));
  EXPECT_FALSE(before(at(100, 500), skewed));
}

TEST_F(ReadingOrder, LeftIsTheFirstPointsXNotTheSmallest) {
  const OcrRegion leaning{"l", 1, {{300, 100}, {400, 100}, {400, 110}, {5, 110}}};
  EXPECT_TRUE(before(at(100, 200), leaning));
}

TEST_F(ReadingOrder, ToleranceChainsGiveAStableDeterministicOrder) {
  const OcrRegion a = at(0, 100), b = at(6, 50), c = at(12, 0);
  EXPECT_TRUE(before(b, a));
  EXPECT_TRUE(before(c, b));
  EXPECT_TRUE(before(a, c));
  const std::vector<TextObservation> chain = {textBox("A", 0.1, 0.0, 0.2, 0.005), textBox("B", 0.05, 0.006, 0.1, 0.01),
                                              textBox("C", 0.0, 0.012, 0.05, 0.02)};
  const std::string first = sortedText(chain);
  EXPECT_EQ(sortedText(chain), first);
  std::string letters = first;
  letters.erase(std::remove(letters.begin(), letters.end(), '\n'), letters.end());
  std::sort(letters.begin(), letters.end());
  EXPECT_EQ(letters, "ABC");
}

TEST_F(ReadingOrder, SingleRegionAndNoRegionAreLeftAsTheyAre) {
  EXPECT_EQ(sortedText({textBox("only", 0.5, 0.5, 0.6, 0.6)}), "only");
  EXPECT_EQ(sortedText({}), "");
}

TEST_F(ReadingOrder, LinesComeTopToBottomAndWordsLeftToRight) {
  EXPECT_EQ(sortedText({textBox("d", 0.6, 0.5, 0.7, 0.52), textBox("b", 0.5, 0.1, 0.6, 0.12),
                        textBox("c", 0.1, 0.504, 0.2, 0.52), textBox("a", 0.1, 0.105, 0.2, 0.12)}),
            "a\nb\nc\nd");
}

TEST_F(ReadingOrder, TopThatIsNotANumberPutsRegionsOnOneLine) {
  const OcrRegion odd{"n", 1, {{500, std::nan("")}, {600, 0}}};
  EXPECT_TRUE(before(at(900, 10), odd));
  EXPECT_FALSE(before(odd, at(900, 10)));
}

TEST_F(ReadingOrder, PointWithoutTwoNumbersIsABrokenInvariant) {
  const OcrRegion broken{"b", 1, {{5}}};
  EXPECT_THROW(before(broken, at(1, 1)), std::out_of_range);
}

}  // namespace
}  // namespace kvotest
