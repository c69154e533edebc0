#include "recognition/GreyPage.h"
#include "recognition/LineGeometry.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <vector>

namespace {

using kvo::Bitmap;
using kvo::PixelFormat;
using kvo::recognition::Box;
using kvo::recognition::InkBits;

class LineGeometry : public ::testing::Test {
 protected:
  // A binarised page of `width` × `height` with ink in the columns (or rows) listed.
  struct Page {
    int width, height;
    std::vector<uint32_t> words;
    int wpl() const { return (width + 31) / 32; }
    Page(int w, int h) : width(w), height(h), words(static_cast<size_t>(wpl()) * h, 0) {}
    void ink(int x, int y) { words[static_cast<size_t>(y) * wpl() + x / 32] |= 1u << (31 - x % 32); }
    void column(int x, int y0, int y1) {
      for (int y = y0; y < y1; ++y) ink(x, y);
    }
    InkBits bits() const { return InkBits{words.data(), wpl(), width, height}; }
  };
};

TEST_F(LineGeometry, MeasuresALinesThicknessAcrossItWhicheverWayItRuns) {
  EXPECT_EQ((Box{10, 40, 510, 70}.thickness()), 30);   // across the page
  EXPECT_EQ((Box{10, 40, 40, 540}.thickness()), 30);   // down it
  EXPECT_EQ((Box{10, 40, 50, 80}.thickness()), 40);    // one square glyph
}

TEST_F(LineGeometry, ConvertsColourToLeptonicasLuminance) {
  EXPECT_EQ(kvo::recognition::luminance(255, 255, 255), 255u);
  EXPECT_EQ(kvo::recognition::luminance(0, 0, 0), 0u);
  EXPECT_EQ(kvo::recognition::luminance(255, 0, 0), 77u);
  EXPECT_EQ(kvo::recognition::luminance(0, 255, 0), 128u);
  EXPECT_EQ(kvo::recognition::luminance(0, 0, 255), 51u);
}

TEST_F(LineGeometry, CompositesTransparentPixelsOverWhite) {
  Bitmap rgba = Bitmap::allocate(3, 1, PixelFormat::rgba8);
  const uint8_t pixels[] = {0, 0, 0, 255, 0, 0, 0, 0, 0, 0, 0, 128};
  std::copy(std::begin(pixels), std::end(pixels), rgba.data());
  kvo::recognition::GreyImage grey;
  ASSERT_TRUE(kvo::recognition::toGrey(rgba, grey));
  EXPECT_EQ(grey.data[0], 0);
  EXPECT_EQ(grey.data[1], 255);
  EXPECT_EQ(grey.data[2], 127);
}

TEST_F(LineGeometry, SkipsRowPaddingOfRgbBitmaps) {
  auto* data = static_cast<uint8_t*>(std::malloc(16));
  const uint8_t rows[] = {255, 255, 255, 0, 0, 0, 9, 9, 0, 0, 255, 255, 0, 0, 9, 9};
  std::copy(std::begin(rows), std::end(rows), data);
  const Bitmap rgb = Bitmap::adopt(2, 2, 8, PixelFormat::rgb8, data, &std::free);
  kvo::recognition::GreyImage grey;
  ASSERT_TRUE(kvo::recognition::toGrey(rgb, grey));
  EXPECT_EQ(grey.width, 2);
  EXPECT_EQ(grey.height, 2);
  EXPECT_EQ(std::vector<int>(grey.data, grey.data + 4), (std::vector<int>{255, 0, 51, 77}));
}

TEST_F(LineGeometry, RoundsTheResolution) {
  EXPECT_EQ(kvo::recognition::roundedResolution(0), 0);
  EXPECT_EQ(kvo::recognition::roundedResolution(-5), 0);
  EXPECT_EQ(kvo::recognition::roundedResolution(199.6), 200);
  EXPECT_EQ(kvo::recognition::roundedResolution(1e30), INT_MAX);
}

TEST_F(LineGeometry, MeasuresTheLongestBlankBetweenTwoWords) {
  Page page(100, 20);
  // Words at 0-20 and 60-80; ink at 30 and 45 between them.
  page.column(30, 5, 6);
  page.column(45, 12, 13);
  const InkBits bits = page.bits();
  const Box line{0, 0, 100, 20}, a{0, 0, 20, 20}, b{60, 0, 80, 20};
  // From the middle of a (10) to the middle of b (70): runs 10..29, 31..44, 46..69.
  EXPECT_EQ(kvo::recognition::blankBetween(&bits, line, a, b), 24);
  // Ink below the line does not count.
  EXPECT_EQ(kvo::recognition::blankBetween(&bits, Box{0, 0, 100, 5}, a, b), 60);
  // Without the page, the distance between the boxes.
  EXPECT_EQ(kvo::recognition::blankBetween(nullptr, line, a, b), 40);
}

TEST_F(LineGeometry, MeasuresAVerticalLineAlongItsRows) {
  Page page(40, 100);
  for (int x = 0; x < 40; ++x) page.ink(x, 50);
  const InkBits bits = page.bits();
  const Box line{0, 0, 20, 100}, a{0, 0, 20, 20}, b{0, 80, 20, 100};
  EXPECT_EQ(kvo::recognition::blankBetween(&bits, line, a, b), 40);  // 10..49 and 51..89
  EXPECT_EQ(kvo::recognition::blankBetween(nullptr, line, a, b), 60);
}

TEST_F(LineGeometry, TrustsOnlyAPlausibleBaselineDrop) {
  const Box line{0, 0, 400, 40};
  EXPECT_DOUBLE_EQ(kvo::recognition::baselineDrop(0, 30, 200, 40, line), 20);
  EXPECT_DOUBLE_EQ(kvo::recognition::baselineDrop(0, 30, 200, 20, line), -20);
  EXPECT_DOUBLE_EQ(kvo::recognition::baselineDrop(0, 30, 400, 31, line), 0);    // under 2 pixels
  EXPECT_DOUBLE_EQ(kvo::recognition::baselineDrop(0, 0, 100, 10, line), 0);     // 40: no room for text
  EXPECT_DOUBLE_EQ(kvo::recognition::baselineDrop(0, 0, 0, 10, line), 0);       // no direction
  EXPECT_DOUBLE_EQ(kvo::recognition::baselineDrop(0, 0, 10, 5, Box{0, 0, 40, 40}), 0);  // not horizontal
}

TEST_F(LineGeometry, GivesASlopedLineTheParallelogramAlongItsBaseline) {
  const Box line{100, 100, 300, 150};
  const auto level = kvo::recognition::lineCorners(line, 0, 400, 200);
  EXPECT_DOUBLE_EQ(level.topLeft.x, 0.25);
  EXPECT_DOUBLE_EQ(level.topLeft.y, 0.5);
  EXPECT_DOUBLE_EQ(level.bottomRight.x, 0.75);
  EXPECT_DOUBLE_EQ(level.bottomRight.y, 0.25);
  const auto dropping = kvo::recognition::lineCorners(line, 20, 400, 200);
  EXPECT_DOUBLE_EQ(dropping.topLeft.y, 0.5);
  EXPECT_DOUBLE_EQ(dropping.topRight.y, 1 - 120.0 / 200);
  EXPECT_DOUBLE_EQ(dropping.bottomRight.y, 0.25);
  EXPECT_DOUBLE_EQ(dropping.bottomLeft.y, 1 - 130.0 / 200);
  const auto rising = kvo::recognition::lineCorners(line, -20, 400, 200);
  EXPECT_DOUBLE_EQ(rising.topLeft.y, 1 - 120.0 / 200);
  EXPECT_DOUBLE_EQ(rising.bottomRight.y, 1 - 130.0 / 200);
}

TEST_F(LineGeometry, ClipsRegionsToThePage) {
  const auto inside = kvo::recognition::clipToPage(Box{-5, -5, 50, 500}, 40, 100);
  ASSERT_TRUE(inside.has_value());
  EXPECT_EQ(inside->left, 0);
  EXPECT_EQ(inside->top, 0);
  EXPECT_EQ(inside->right, 40);
  EXPECT_EQ(inside->bottom, 100);
  EXPECT_FALSE(kvo::recognition::clipToPage(Box{50, 0, 60, 10}, 40, 100).has_value());
}

TEST_F(LineGeometry, ReadsASampleLineWithPaddingUpToTheWidestAllowed) {
  const Box line{100, 100, 1000, 140};
  const Box whole = kvo::recognition::sampleRegion(line, 2000, INT_MAX);
  EXPECT_EQ(whole.left, 90);
  EXPECT_EQ(whole.right, 1010);
  EXPECT_EQ(whole.top, 90);
  EXPECT_EQ(whole.bottom, 150);
  EXPECT_EQ(kvo::recognition::sampleRegion(line, 2000, 480).right, 570);
  EXPECT_EQ(kvo::recognition::linePadding(Box{0, 0, 10, 4}), 2);
}

}  // namespace
