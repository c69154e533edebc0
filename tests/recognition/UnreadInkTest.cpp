#include "recognition/UnreadInk.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using kvo::recognition::blankLines;
using kvo::recognition::Box;
using kvo::recognition::GreyImage;
using kvo::recognition::holdsUnreadGlyph;
using kvo::recognition::InkBits;
using kvo::recognition::unreadGlyphs;

class UnreadInk : public ::testing::Test {
 protected:
  static constexpr int kWidth = 400, kHeight = 300;
  UnreadInk() : words_((kWidth + 31) / 32 * kHeight, 0) {}

  // Ink over `b`.
  void ink(const Box& b) {
    for (int y = b.top; y < b.bottom; ++y)
      for (int x = b.left; x < b.right; ++x) words_[y * wordsPerRow() + x / 32] |= 1u << (31 - x % 32);
  }
  // A line of `glyphs` glyphs 20 pixels tall, with 4 pixels between them, its box returned.
  Box lineOfGlyphs(int left, int top, int glyphs) {
    for (int i = 0; i < glyphs; ++i) ink(Box{left + 24 * i, top, left + 24 * i + 20, top + 20});
    return Box{left, top, left + 24 * glyphs - 4, top + 20};
  }
  std::vector<Box> unread(const std::vector<Box>& lines) const {
    return unreadGlyphs(InkBits{words_.data(), wordsPerRow(), kWidth, kHeight}, lines);
  }
  kvo::recognition::UnreadWidth width(const std::vector<Box>& lines) const {
    return kvo::recognition::unreadWidth(InkBits{words_.data(), wordsPerRow(), kWidth, kHeight}, lines);
  }
  static int wordsPerRow() { return (kWidth + 31) / 32; }

 private:
  std::vector<uint32_t> words_;
};

TEST_F(UnreadInk, FindsTheGlyphsOfALineNoLineReadCovers) {
  const Box read = lineOfGlyphs(10, 10, 5);
  lineOfGlyphs(10, 100, 3);
  const std::vector<Box> glyphs = unread({read});
  ASSERT_EQ(glyphs.size(), 3u);
  EXPECT_EQ(glyphs[0].left, 10);
  EXPECT_EQ(glyphs[0].top, 100);
  EXPECT_EQ(glyphs[0].bottom, 120);
}

TEST_F(UnreadInk, FindsNothingWhenEveryLineWasRead) {
  const Box first = lineOfGlyphs(10, 10, 5), second = lineOfGlyphs(10, 60, 8);
  EXPECT_TRUE(unread({first, second}).empty());
}

TEST_F(UnreadInk, TakesInkWithinALinesPaddingAsRead) {
  // A descender or an accent sticking out of the box by less than a quarter of its height.
  const Box read = lineOfGlyphs(10, 10, 5);
  ink(Box{30, 30, 34, 34});
  EXPECT_TRUE(unread({read}).empty());
}

TEST_F(UnreadInk, LeavesOutSpecksFramesAndRules) {
  const Box read = lineOfGlyphs(10, 10, 5);
  ink(Box{200, 200, 204, 204});  // a speck: a fifth of a line
  ink(Box{0, 150, kWidth, 152});  // a rule
  ink(Box{300, 40, 340, 100});    // a picture, three lines tall
  EXPECT_TRUE(unread({read}).empty());
}

TEST_F(UnreadInk, GlyphsRunTogetherAreOneStretchUpToEightGlyphsWide) {
  const Box read = lineOfGlyphs(10, 10, 5);
  ink(Box{10, 100, 10 + 8 * 20, 120});   // eight glyphs run together
  ink(Box{10, 200, 10 + 9 * 20, 220});   // nine: a bar, not glyphs
  const std::vector<Box> glyphs = unread({read});
  ASSERT_EQ(glyphs.size(), 1u);
  EXPECT_EQ(glyphs[0].top, 100);
}

TEST_F(UnreadInk, GoesByTheMedianLineThickness) {
  // Lines 20 pixels thick: glyphs 10 to 30 pixels tall count.
  const Box a = lineOfGlyphs(10, 10, 5), b = lineOfGlyphs(10, 40, 5), c = lineOfGlyphs(10, 70, 5);
  ink(Box{10, 150, 20, 159});  // 9 pixels
  ink(Box{40, 150, 50, 160});  // 10
  ink(Box{70, 150, 80, 180});  // 30
  ink(Box{100, 150, 110, 181});  // 31
  const std::vector<Box> glyphs = unread({a, b, c});
  ASSERT_EQ(glyphs.size(), 2u);
  EXPECT_EQ(glyphs[0].left, 40);
  EXPECT_EQ(glyphs[1].left, 70);
}

TEST_F(UnreadInk, FindsNothingWithoutLinesToTakeTheGlyphSizeFrom) {
  lineOfGlyphs(10, 100, 3);
  EXPECT_TRUE(unread({}).empty());
}

TEST_F(UnreadInk, KeepsALineOfTheSecondReadingOnlyWhereItHoldsAnUnreadGlyph) {
  const std::vector<Box> glyphs = {Box{10, 100, 30, 120}, Box{34, 100, 54, 120}};
  EXPECT_TRUE(holdsUnreadGlyph(Box{5, 95, 200, 125}, glyphs));
  EXPECT_FALSE(holdsUnreadGlyph(Box{5, 150, 200, 170}, glyphs));
  // Holding a glyph's edge is not holding the glyph.
  EXPECT_FALSE(holdsUnreadGlyph(Box{0, 95, 15, 125}, glyphs));
}

TEST_F(UnreadInk, BlanksTheLinesReadAndTheirPaddingOnACopy) {
  constexpr int w = 40, h = 20;
  GreyImage page;
  ASSERT_TRUE(page.allocate(w, h));
  std::memset(page.data, 0, w * h);
  GreyImage rest;
  ASSERT_TRUE(blankLines(page, {Box{10, 8, 30, 16}}, rest));
  EXPECT_EQ(rest.width, w);
  EXPECT_EQ(rest.height, h);
  // Padding: a quarter of the line's height, 2 pixels.
  EXPECT_EQ(rest.data[6 * w + 8], 255);
  EXPECT_EQ(rest.data[17 * w + 31], 255);
  EXPECT_EQ(rest.data[5 * w + 8], 0);
  EXPECT_EQ(rest.data[10 * w + 7], 0);
  EXPECT_EQ(rest.data[19 * w + 20], 0);
  EXPECT_EQ(page.data[10 * w + 20], 0) << "the page itself is left as it is";
}

}  // namespace

// Three lines of ten glyphs (236 pixels wide each) on the page's ink; a
// reading whose binarisation took the end of every line for ground read
// each only as far as its fifth glyph.
TEST_F(UnreadInk, MeasuresTheGlyphsLeftUnreadAgainstTheTypicalLine) {
  std::vector<Box> whole;
  for (int top : {10, 60, 110}) whole.push_back(lineOfGlyphs(10, top, 10));
  const auto all = width(whole);
  EXPECT_EQ(all.unread, 0);
  EXPECT_EQ(all.typicalLine, 236);
  EXPECT_FALSE(kvo::recognition::leavesALineUnread(all));

  std::vector<Box> cut;
  for (const Box& line : whole) cut.push_back(Box{line.left, line.top, line.left + 5 * 24 - 4, line.bottom});
  const auto half = width(cut);
  // The last five glyphs of each line, 20 pixels each, are unread; the
  // first pixel column of the first of them lies within the cut line's
  // padding (5 pixels), which counts as read.
  EXPECT_EQ(half.typicalLine, 116);
  EXPECT_EQ(half.unread, 3 * (19 + 4 * 20));
  EXPECT_TRUE(kvo::recognition::leavesALineUnread(half));
  // The whole reading leaves clearly less unread than the cut one; the cut
  // one does not read clearly more than the whole one.
  EXPECT_TRUE(kvo::recognition::readsClearlyMore(all, half));
  EXPECT_FALSE(kvo::recognition::readsClearlyMore(half, all));
}

TEST_F(UnreadInk, AFewGlyphsLeftUnreadAreNoReasonToReadAgain) {
  std::vector<Box> lines;
  for (int top : {10, 60, 110}) lines.push_back(lineOfGlyphs(10, top, 10));
  // A page number below the text: two glyphs no line read.
  lineOfGlyphs(200, 200, 2);
  const auto left = width(lines);
  EXPECT_EQ(left.unread, 40);
  EXPECT_FALSE(kvo::recognition::leavesALineUnread(left));
}

TEST_F(UnreadInk, NearlyEqualReadingsKeepTheFirst) {
  kvo::recognition::UnreadWidth first{400, 236}, second{220, 236};
  EXPECT_FALSE(kvo::recognition::readsClearlyMore(second, first));
  second.unread = 200;
  EXPECT_TRUE(kvo::recognition::readsClearlyMore(second, first));
  // A reading with no line at all keeps nothing.
  EXPECT_FALSE(kvo::recognition::readsClearlyMore(kvo::recognition::UnreadWidth{0, 0}, first));
}
