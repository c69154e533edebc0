#include "platform/ReferenceGlyphs.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kvo::recognition::Plane;

class ReferenceGlyphs : public ::testing::Test {
 protected:
  void SetUp() override {
    if (glyphs_.typefaces() < 3) GTEST_SKIP() << "fonts-noto-cjk, fonts-arphic-gkai00mp or -bkai00mp is not installed";
  }
  static float ink(const Plane& p) {
    float total = 0;
    for (float v : p.values) total += v;
    return total;
  }
  kvo::ReferenceGlyphs glyphs_;
};

TEST_F(ReferenceGlyphs, DrawsACharacterOnAnEmSquareInEachTypeface) {
  const auto drawings = glyphs_.draw(U'說', true, 48);
  ASSERT_EQ(drawings.size(), 3u);
  for (const Plane& p : drawings) {
    EXPECT_EQ(p.width, 48);
    EXPECT_EQ(p.height, 48);
    EXPECT_GT(ink(p), 48.0f);
  }
}

TEST_F(ReferenceGlyphs, TheTraditionalFormHoldsMoreInkThanTheSimplified) {
  EXPECT_GT(ink(glyphs_.draw(U'說', true, 48)[0]), ink(glyphs_.draw(U'说', false, 48)[0]));
}

TEST_F(ReferenceGlyphs, KeepsTheTypefacesPlaceForOneThatLacksTheCharacter) {
  // KaitiM GB draws the mainland's characters only.
  const auto drawings = glyphs_.draw(U'說', false, 48);
  ASSERT_EQ(drawings.size(), 3u);
  EXPECT_FALSE(drawings[0].values.empty());
  EXPECT_TRUE(drawings[2].values.empty());
}

TEST_F(ReferenceGlyphs, DrawsNothingOutsideTheSizesItServes) {
  EXPECT_TRUE(glyphs_.draw(U'說', true, 2).empty());
  EXPECT_TRUE(glyphs_.draw(U'說', true, 100000).empty());
}

TEST(ReferenceGlyphsWithoutFonts, DrawsNothing) {
  kvo::ReferenceGlyphs none("/nonexistent");
  EXPECT_EQ(none.typefaces(), 0u);
  EXPECT_TRUE(none.draw(U'說', true, 48).empty());
}

}  // namespace
