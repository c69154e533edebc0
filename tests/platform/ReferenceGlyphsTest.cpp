#include "platform/ReferenceGlyphs.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kvo::recognition::Plane;

class ReferenceGlyphs : public ::testing::Test {
 protected:
  void SetUp() override {
    if (glyphs_.typefaces() == 0) GTEST_SKIP() << "fonts-noto-cjk is not installed";
  }
  static float ink(const Plane& p) {
    float total = 0;
    for (float v : p.values) total += v;
    return total;
  }
  kvo::ReferenceGlyphs glyphs_;
};

TEST_F(ReferenceGlyphs, OpensBothTypefacesOfDebiansNotoCjk) { EXPECT_EQ(glyphs_.typefaces(), 2u); }

TEST_F(ReferenceGlyphs, DrawsACharacterOnAnEmSquareInEachTypeface) {
  const auto drawings = glyphs_.draw(U'說', true, 48);
  ASSERT_EQ(drawings.size(), 2u);
  for (const Plane& p : drawings) {
    EXPECT_EQ(p.width, 48);
    EXPECT_EQ(p.height, 48);
    EXPECT_GT(ink(p), 48.0f);
  }
}

TEST_F(ReferenceGlyphs, TheTraditionalFormHoldsMoreInkThanTheSimplified) {
  EXPECT_GT(ink(glyphs_.draw(U'說', true, 48)[0]), ink(glyphs_.draw(U'说', false, 48)[0]));
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
