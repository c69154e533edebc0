#include "recognition/PagePreparation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <vector>

namespace {

using kvo::recognition::enlargement;
using kvo::recognition::GreyImage;
using kvo::recognition::hasDarkGround;
using kvo::recognition::kMaxEnlargement;
using kvo::recognition::kReadableLineHeight;
using kvo::recognition::SkewMeasure;

class PagePreparation : public ::testing::Test {
 protected:
  // A page of `ground` with `inkShare` of its pixels (the first ones) at `ink`.
  static std::vector<uint8_t> page(uint8_t ground, uint8_t ink, double inkShare, int width = 100, int height = 50) {
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height, ground);
    const auto inked = static_cast<size_t>(inkShare * static_cast<double>(pixels.size()));
    for (size_t i = 0; i < inked; ++i) pixels[i] = ink;
    return pixels;
  }
  static bool dark(const std::vector<uint8_t>& p) { return hasDarkGround(p.data(), 100, 50); }

  static SkewMeasure measure(double degrees, double confidence) { return SkewMeasure{true, degrees, confidence}; }
  static SkewMeasure notFound() { return SkewMeasure{}; }
  static std::optional<double> angle(const SkewMeasure& whole, std::optional<SkewMeasure> top = std::nullopt,
                                     std::optional<SkewMeasure> bottom = std::nullopt) {
    return kvo::recognition::straighteningAngle(whole, top, bottom);
  }

  // A width × height grey image holding `levels`.
  static void fill(GreyImage& image, const std::vector<uint8_t>& levels, int width, int height) {
    ASSERT_EQ(levels.size(), static_cast<size_t>(width) * static_cast<size_t>(height));
    ASSERT_TRUE(image.allocate(width, height));
    std::memcpy(image.data, levels.data(), levels.size());
  }
  static std::vector<uint8_t> turned(const std::vector<uint8_t>& levels, int width, int height, bool clockwise) {
    GreyImage in, out;
    fill(in, levels, width, height);
    EXPECT_TRUE(kvo::recognition::turnGreyQuarter(in, clockwise, out));
    EXPECT_EQ(out.width, height);
    EXPECT_EQ(out.height, width);
    return std::vector<uint8_t>(out.data, out.data + levels.size());
  }
  static std::vector<uint8_t> enlarged(const std::vector<uint8_t>& levels, int width, int height, int factor) {
    GreyImage in, out;
    fill(in, levels, width, height);
    EXPECT_TRUE(kvo::recognition::enlargeGrey(in, factor, out));
    EXPECT_EQ(out.width, width * factor);
    EXPECT_EQ(out.height, height * factor);
    return std::vector<uint8_t>(out.data, out.data + static_cast<size_t>(width * factor) * (height * factor));
  }
};

TEST_F(PagePreparation, DarkTextOnALightGroundIsNotInverted) {
  EXPECT_FALSE(dark(page(250, 20, 0.1)));
  // A dim photograph of paper: grey ground, darker ink.
  EXPECT_FALSE(dark(page(110, 30, 0.2)));
  // Dense bold text still covers less than the ground.
  EXPECT_FALSE(dark(page(255, 0, 0.45)));
}

TEST_F(PagePreparation, LightTextOnADarkGroundIsInverted) {
  EXPECT_TRUE(dark(page(30, 220, 0.1)));
  EXPECT_TRUE(dark(page(60, 140, 0.3)));
}

TEST_F(PagePreparation, PageOfOneLevelHasNoDarkGround) {
  EXPECT_FALSE(dark(page(0, 0, 0)));
  EXPECT_FALSE(dark(page(255, 255, 0)));
}

TEST_F(PagePreparation, SeparatingLevelLiesBetweenInkAndGround) {
  const std::vector<uint8_t> faint = page(200, 150, 0.1);
  const int level = kvo::recognition::separatingLevel(faint.data(), 100, 50);
  EXPECT_GE(level, 150);
  EXPECT_LT(level, 200);
}

TEST_F(PagePreparation, OnePassGivesBothTheLevelAndTheGround) {
  const std::vector<uint8_t> dark = page(30, 220, 0.1);
  const kvo::recognition::GroundSplit split = kvo::recognition::splitGround(dark.data(), 100, 50);
  EXPECT_TRUE(split.darkGround);
  std::vector<uint8_t> inverted = dark;
  kvo::recognition::invertGrey(inverted.data(), inverted.size());
  EXPECT_EQ(split.level, kvo::recognition::separatingLevel(inverted.data(), 100, 50));
  EXPECT_EQ(split.givenLevel, kvo::recognition::separatingLevel(dark.data(), 100, 50));
  const std::vector<uint8_t> light = page(250, 20, 0.1);
  EXPECT_EQ(kvo::recognition::splitGround(light.data(), 100, 50).level,
            kvo::recognition::separatingLevel(light.data(), 100, 50));
  EXPECT_EQ(kvo::recognition::splitGround(light.data(), 100, 50).givenLevel,
            kvo::recognition::separatingLevel(light.data(), 100, 50));
}

TEST_F(PagePreparation, InvertingTurnsEachLevelAround) {
  std::vector<uint8_t> levels = {0, 1, 128, 254, 255};
  kvo::recognition::invertGrey(levels.data(), levels.size());
  EXPECT_EQ(levels, (std::vector<uint8_t>{255, 254, 127, 1, 0}));
}

TEST_F(PagePreparation, LinesAsTallAsTheReadableHeightAreNotEnlarged) {
  EXPECT_EQ(enlargement({kReadableLineHeight, kReadableLineHeight + 10, 40}, 2000, 2000, 32767), 1);
  EXPECT_EQ(enlargement({}, 2000, 2000, 32767), 1);
}

TEST_F(PagePreparation, SmallTextIsEnlargedToTheReadableHeightByTheMedianLine) {
  // Median 12: ceil(28 / 12) = 3; a stray tall line or a tiny speck does not move it.
  EXPECT_EQ(enlargement({12, 12, 12, 90, 2}, 1000, 800, 32767), 3);
  EXPECT_EQ(enlargement({kReadableLineHeight - 1}, 1000, 800, 32767), 2);
  EXPECT_EQ(enlargement({3, 3, 3}, 100, 100, 32767), kMaxEnlargement);
}

TEST_F(PagePreparation, MeasuresSkewOnAPageReducedToNoLessThanTheSweepWidth) {
  EXPECT_EQ(kvo::recognition::skewReduction(2480), 4);  // an A4 page at 300 dpi
  EXPECT_EQ(kvo::recognition::skewReduction(2400), 4);
  EXPECT_EQ(kvo::recognition::skewReduction(2399), 2);
  EXPECT_EQ(kvo::recognition::skewReduction(1200), 2);
  EXPECT_EQ(kvo::recognition::skewReduction(1199), 1);  // a 1200-pixel screenshot is measured as it is
  EXPECT_EQ(kvo::recognition::skewReduction(300), 1);
  EXPECT_EQ(kvo::recognition::skewReduction(1), 1);
}

TEST_F(PagePreparation, TurnsByAConfidentSkewOfAtLeastTheLeastAngle) {
  EXPECT_EQ(angle(measure(2.4, 20.4)), 2.4);    // English text: a high ratio
  EXPECT_EQ(angle(measure(-1.2, 3.0)), -1.2);   // Leptonica's own minimum
  EXPECT_EQ(angle(measure(0.1, 9.0)), 0.1);
  EXPECT_EQ(angle(measure(-0.09, 30.0)), std::nullopt);  // too small to matter
  EXPECT_EQ(angle(measure(0.0, 30.0)), std::nullopt);
  EXPECT_EQ(angle(notFound()), std::nullopt);
}

TEST_F(PagePreparation, AsksForTheHalvesOnlyWhenAnUnsureSkewIsBeyondHalfASweepStep) {
  EXPECT_TRUE(kvo::recognition::asksForHalves(measure(3.7, 1.9)));
  EXPECT_TRUE(kvo::recognition::asksForHalves(measure(-0.5, 2.9)));
  EXPECT_FALSE(kvo::recognition::asksForHalves(measure(-0.49, 2.9)));  // the sweep's best step was 0°
  EXPECT_FALSE(kvo::recognition::asksForHalves(measure(3.7, 3.0)));    // sure: no halves needed
  EXPECT_FALSE(kvo::recognition::asksForHalves(notFound()));
}

TEST_F(PagePreparation, TrustsAnUnsureSkewThatBothHalvesOfThePageFind) {
  // Chinese text turned 3.7°: the ratio is low, the angle exact.
  EXPECT_EQ(angle(measure(3.734, 1.9), measure(3.719, 2.5), measure(3.734, 1.9)), 3.734);
  EXPECT_EQ(angle(measure(1.0, 2.6), measure(1.09, 2.8), measure(0.91, 2.9)), 1.0);  // within the least angle
  EXPECT_EQ(angle(measure(1.0, 2.6), measure(1.11, 2.8), measure(1.0, 2.9)), std::nullopt);
  EXPECT_EQ(angle(measure(1.0, 2.6), measure(1.0, 2.8), measure(0.5, 1.6)), std::nullopt);  // one half disagrees
  EXPECT_EQ(angle(measure(-3.0, 2.6), measure(-3.0, 2.6), measure(3.0, 2.6)), std::nullopt);
  EXPECT_EQ(angle(measure(2.0, 2.0), measure(2.0, 2.0), notFound()), std::nullopt);  // a half with too little ink
  EXPECT_EQ(angle(measure(2.0, 2.0)), std::nullopt);  // no halves measured
}

TEST_F(PagePreparation, LeavesAStraightPageWhoseUnsureSkewIsAFewTenthsOff) {
  // Short lines of Chinese at 150 dpi, not turned at all: whole page and
  // both halves agree on a slope that is not there.
  EXPECT_EQ(angle(measure(-0.312, 1.56), measure(-0.312, 1.6), measure(-0.312, 1.67)), std::nullopt);
}

TEST_F(PagePreparation, EnlargementStaysWithinTheLargestSideAndThePixelBudget) {
  EXPECT_EQ(enlargement({10}, 10000, 100, 32767), 3);   // 30000 fits, 40000 does not
  EXPECT_EQ(enlargement({10}, 5000, 5000, 32767), 1);   // 10000 × 10000 is over the budget
  EXPECT_EQ(enlargement({10}, 4000, 3000, 32767), 1);   // 8000 × 6000 is over it too
  EXPECT_EQ(enlargement({10}, 3000, 3000, 32767), 2);   // 6000 × 6000 is within it, 9000 × 9000 is not
}

TEST_F(PagePreparation, QuarterTurnsMovePixelsAsTheScreenTurns) {
  // 3 × 2:  1 2 3      clockwise (2 × 3):  4 1     counter-clockwise:  3 6
  //         4 5 6                          5 2                         2 5
  //                                        6 3                         1 4
  const std::vector<uint8_t> levels = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(turned(levels, 3, 2, true), (std::vector<uint8_t>{4, 1, 5, 2, 6, 3}));
  EXPECT_EQ(turned(levels, 3, 2, false), (std::vector<uint8_t>{3, 6, 2, 5, 1, 4}));
}

TEST_F(PagePreparation, EnlargingKeepsFlatAreasAndInterpolatesBetweenPixelCentres) {
  // Two pixels, 0 and 200, enlarged twice: centres at 0.25 and 0.75 of each pixel.
  EXPECT_EQ(enlarged({0, 200}, 2, 1, 2), (std::vector<uint8_t>{0, 50, 150, 200, 0, 50, 150, 200}));
  EXPECT_EQ(enlarged({77}, 1, 1, 3), std::vector<uint8_t>(9, 77));
}

}  // namespace

namespace {

// A 40 × 20 photograph: a desk of `desk` round a sheet of `sheet` (x 10..29,
// y 5..14) with a stroke of print of `print` on it (row 9, x 14..25).
std::vector<uint8_t> sheetOnDesk(uint8_t desk, uint8_t sheet, uint8_t print) {
  std::vector<uint8_t> p(40 * 20, desk);
  for (int y = 5; y < 15; ++y)
    for (int x = 10; x < 30; ++x) p[static_cast<size_t>(y) * 40 + x] = sheet;
  for (int x = 14; x < 26; ++x) p[9 * 40 + x] = print;
  return p;
}

}  // namespace

TEST_F(PagePreparation, MakesTheSurfaceRoundASheetSheet) {
  GreyImage in, out;
  fill(in, sheetOnDesk(50, 200, 140), 40, 20);
  ASSERT_TRUE(kvo::recognition::clearSurround(in, 100, out));
  EXPECT_EQ(out.width, 40);
  EXPECT_EQ(out.height, 20);
  EXPECT_EQ(out.data[0], 200);             // the desk, now at the sheet's level
  EXPECT_EQ(out.data[19 * 40 + 39], 200);
  EXPECT_EQ(out.data[9 * 40 + 20], 140);   // the print stays
  EXPECT_EQ(out.data[6 * 40 + 12], 200);   // and so does the sheet
  // Print and sheet are then what the levels separate.
  const int level = kvo::recognition::separatingLevel(out.data, 40, 20);
  EXPECT_GE(level, 140);
  EXPECT_LT(level, 200);
}

TEST_F(PagePreparation, ClearsASurfaceLitUnevenlyInRounds) {
  std::vector<uint8_t> p = sheetOnDesk(50, 200, 140);
  // The right end of the desk catches the light: above the first level.
  for (int y = 0; y < 20; ++y)
    for (int x = 34; x < 40; ++x) p[static_cast<size_t>(y) * 40 + x] = 120;
  GreyImage in, out;
  fill(in, p, 40, 20);
  ASSERT_TRUE(kvo::recognition::clearSurround(in, 100, out));
  EXPECT_EQ(out.data[10 * 40 + 38], 200);
  EXPECT_EQ(out.data[9 * 40 + 20], 140);
}

TEST_F(PagePreparation, LeavesAPageWithNothingDarkOnItsEdge) {
  GreyImage in, out;
  fill(in, sheetOnDesk(220, 200, 40), 40, 20);  // a light margin round it: a scan
  EXPECT_FALSE(kvo::recognition::clearSurround(in, 120, out));
  EXPECT_EQ(out.data, nullptr);
}

namespace {

// A page whose level falls off from left to right (light falling off across
// a photographed sheet): column x has level 240 - x.
std::vector<uint8_t> litFromTheLeft(int width, int height) {
  std::vector<uint8_t> levels(static_cast<size_t>(width) * height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) levels[static_cast<size_t>(y) * width + x] = static_cast<uint8_t>(240 - x);
  return levels;
}

}  // namespace

TEST_F(PagePreparation, TheGroundIsTheMedianOfTheLevelsAboveTheSeparatingOne) {
  // 10 % ink at 20, the ground spread over 121..240.
  std::vector<uint8_t> levels = litFromTheLeft(120, 10);
  for (size_t i = 0; i < levels.size(); i += 10) levels[i] = 20;
  GreyImage page;
  fill(page, levels, 120, 10);
  const int ground = kvo::recognition::groundLevel(page, 100);
  EXPECT_GE(ground, 178);
  EXPECT_LE(ground, 183);
  // Nothing above the level: the level itself.
  EXPECT_EQ(kvo::recognition::groundLevel(page, 250), 250);
}

TEST_F(PagePreparation, CornersATurnBringsInTakeTheGroundLevel) {
  const int width = 120, height = 80;
  const std::vector<uint8_t> levels = litFromTheLeft(width, height);
  const auto turn = kvo::recognition::PageTurn::of(width, height, 5.0 * M_PI / 180.0);
  ASSERT_GT(turn.turnedWidth, width);
  // The turned page as a library brings it in: the page's pixels where the
  // page is, white wherever it is not.
  std::vector<uint8_t> canvas(static_cast<size_t>(turn.turnedWidth) * turn.turnedHeight, 255);
  for (int y = 0; y < turn.turnedHeight; ++y)
    for (int x = 0; x < turn.turnedWidth; ++x) {
      const auto p = turn.toPage(x + 0.5, y + 0.5);
      if (p.x >= 0 && p.x < width && p.y >= 0 && p.y < height)
        canvas[static_cast<size_t>(y) * turn.turnedWidth + x] =
            levels[static_cast<size_t>(p.y) * width + static_cast<size_t>(p.x)];
    }
  GreyImage turned;
  fill(turned, canvas, turn.turnedWidth, turn.turnedHeight);
  kvo::recognition::fillTurnedCorners(turn, 180, turned);
  int white = 0, ground = 0;
  for (size_t i = 0; i < canvas.size(); ++i) {
    const uint8_t v = turned.data[i];
    // Every pixel holds a level the page itself has: no white is left, so a
    // binarisation of the whole canvas sees the page's own levels only.
    EXPECT_GE(v, 240 - (width - 1));
    EXPECT_LE(v, 240);
    if (v == 255) ++white;
    if (v == 180 && canvas[i] == 255) ++ground;
  }
  EXPECT_EQ(white, 0);
  EXPECT_GT(ground, 0);
  // The canvas's corners are off the page.
  EXPECT_EQ(turned.data[0], 180);
  EXPECT_EQ(turned.data[canvas.size() - 1], 180);
}

TEST_F(PagePreparation, PixelsWellInsideATurnedPageAreLeftAlone) {
  const int width = 60, height = 40;
  const auto turn = kvo::recognition::PageTurn::of(width, height, 3.0 * M_PI / 180.0);
  GreyImage turned;
  fill(turned, std::vector<uint8_t>(static_cast<size_t>(turn.turnedWidth) * turn.turnedHeight, 7), turn.turnedWidth,
       turn.turnedHeight);
  kvo::recognition::fillTurnedCorners(turn, 100, turned);
  // The middle of the canvas is the middle of the page: what the turn put
  // there (7 here) stays.
  EXPECT_EQ(turned.data[static_cast<size_t>(turn.turnedHeight / 2) * turn.turnedWidth + turn.turnedWidth / 2], 7);
  // So does a pixel two pixels inside the page's edge, on the middle row.
  const auto inside = [&] {
    for (int x = 0; x < turn.turnedWidth; ++x)
      if (turn.toPage(x + 0.5, turn.turnedHeight / 2 + 0.5).x >= 2.0) return x;
    return -1;
  }();
  ASSERT_GE(inside, 0);
  EXPECT_EQ(turned.data[static_cast<size_t>(turn.turnedHeight / 2) * turn.turnedWidth + inside], 7);
  EXPECT_EQ(turned.data[static_cast<size_t>(turn.turnedHeight / 2) * turn.turnedWidth + inside - 2], 100);
}
