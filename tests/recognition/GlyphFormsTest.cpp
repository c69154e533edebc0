#include "recognition/GlyphForms.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using kvo::recognition::Box;
using kvo::recognition::FormPair;
using kvo::recognition::Plane;

// Two made-up forms of one character, drawn on an em square as tall as a
// Han glyph: the "Simplified" one a post down the left and a bar across,
// the "Traditional" one those and a second post on the right (more strokes,
// more ink).
class GlyphForms : public ::testing::Test {
 protected:
  static Plane form(bool traditional, int em) {
    Plane p{em, em, std::vector<float>(static_cast<size_t>(em) * em, 0.0f)};
    for (int y = 0; y < em; ++y)
      for (int x = 0; x < em; ++x) {
        const bool tall = y >= em / 20 && y < em * 19 / 20;
        const bool left = tall && x >= em / 10 && x < em / 4;
        const bool bar = y >= em * 4 / 10 && y < em * 6 / 10 && x >= em / 10 && x < em * 9 / 10;
        const bool right = traditional && tall && x >= em * 7 / 10 && x < em * 17 / 20;
        if (left || bar || right) p.values[static_cast<size_t>(y) * em + x] = 1.0f;
      }
    return p;
  }
  static std::vector<Plane> draw(char32_t, bool traditional, int em) { return {form(traditional, em)}; }
  // A white page with a line of three glyphs of `traditional` form drawn
  // dark, `em` pixels square, the middle one at (left, top); the pair is
  // the middle one.
  void page(bool traditional, int em, int left, int top) {
    width_ = 240;
    height_ = 120;
    grey_.assign(static_cast<size_t>(width_) * height_, 240);
    const Plane glyph = form(traditional, em);
    for (int at = left - em; at <= left + em; at += em)
      for (int y = 0; y < em; ++y)
        for (int x = 0; x < em; ++x)
          if (glyph.at(x, y) > 0) grey_[static_cast<size_t>(top + y) * width_ + at + x] = 20;
    const Box line{left - em - 5, top + em / 20, left + 2 * em + 5, top + em * 19 / 20};
    // The recogniser's boxes are rough: a few pixels off and taller than the glyph.
    pair_ = FormPair{U'说', U'說', Box{left + 3, 0, left + em + 3, height_}, Box{left - 2, 0, left + em, height_}, line};
  }
  std::vector<double> leans(const std::vector<FormPair>& pairs, bool firstTraditional = false,
                            const kvo::recognition::FormDrawer& draw = &GlyphForms::draw) {
    return kvo::recognition::formLeans(grey_.data(), width_, height_, pairs, firstTraditional, draw);
  }
  // The lean of the one pair; 0 when it could not be compared.
  double lean(bool firstTraditional = false) {
    const std::vector<double> each = leans({pair_}, firstTraditional);
    return each.empty() ? 0 : each.front();
  }
  std::vector<uint8_t> grey_;
  int width_ = 0, height_ = 0;
  FormPair pair_;
};

TEST_F(GlyphForms, BlurKeepsTheInkAndSpreadsIt) {
  Plane p{9, 9, std::vector<float>(81, 0.0f)};
  p.values[4 * 9 + 4] = 1.0f;
  const Plane b = kvo::recognition::blurred(p, 1.0);
  float total = 0;
  for (float v : b.values) total += v;
  EXPECT_NEAR(total, 1.0f, 1e-4);
  EXPECT_LT(b.at(4, 4), 1.0f);
  EXPECT_GT(b.at(3, 4), 0.0f);
  EXPECT_FLOAT_EQ(b.at(3, 4), b.at(5, 4));
}

TEST_F(GlyphForms, ALikenessIsTheBestCorrelationOverThePlacesSearched) {
  const Plane shape = form(true, 20);
  Plane ink{40, 40, std::vector<float>(1600, 0.0f)};
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 20; ++x) ink.values[static_cast<size_t>(y + 7) * 40 + x + 11] = shape.at(x, y);
  EXPECT_NEAR(kvo::recognition::likeness(ink, shape, 1), 1.0, 1e-6);
  EXPECT_LT(kvo::recognition::likeness(ink, form(false, 20), 1), 0.9);
}

TEST_F(GlyphForms, NothingIsLikeAFormWithoutContrast) {
  const Plane blank{20, 20, std::vector<float>(400, 0.0f)};
  const Plane ink{40, 40, std::vector<float>(1600, 1.0f)};
  EXPECT_EQ(kvo::recognition::likeness(ink, form(true, 20), 1), -1);
  EXPECT_EQ(kvo::recognition::likeness(ink, blank, 1), -1);
  EXPECT_EQ(kvo::recognition::likeness(form(true, 10), form(true, 20), 1), -1);  // no window fits
}

TEST_F(GlyphForms, LeansToTheFormTheGlyphIsDrawnIn) {
  page(true, 40, 60, 30);
  EXPECT_LT(lean(), 0);     // the second model's (Traditional) forms
  EXPECT_GT(lean(true), 0);  // the same forms, the first model's
  page(false, 40, 60, 30);
  EXPECT_GT(lean(), 0);
}

TEST_F(GlyphForms, FindsTheGlyphWhereTheBoxesMissItByLessThanHalfAnEm) {
  page(false, 40, 60, 30);
  pair_.firstBox.left += 15;
  pair_.firstBox.right += 15;
  pair_.secondBox.left += 15;
  pair_.secondBox.right += 15;
  EXPECT_GT(lean(), 0);
}

TEST_F(GlyphForms, ReadsLightInkOnADarkGroundAlike) {
  page(false, 40, 60, 30);
  for (uint8_t& v : grey_) v = static_cast<uint8_t>(255 - v);
  EXPECT_GT(lean(), 0);
}

TEST_F(GlyphForms, AGlyphBlurredIntoABlockSaysNothing) {
  page(false, 40, 60, 30);
  // The glyph's whole box inked: more like a block than like either form.
  for (int y = 30; y < 70; ++y)
    for (int x = 62; x < 99; ++x) grey_[static_cast<size_t>(y) * width_ + x] = 20;
  EXPECT_TRUE(leans({pair_}).empty());
}

TEST_F(GlyphForms, ComparesOnlyInTypefacesThatDrawBothForms) {
  page(false, 40, 60, 30);
  // The second typeface lacks the first form: only the first one counts.
  const auto partly = [](char32_t, bool traditional, int em) {
    return std::vector<Plane>{form(traditional, em), traditional ? form(true, em) : Plane{}};
  };
  const double both = lean();
  const std::vector<double> one = leans({pair_}, false, partly);
  ASSERT_EQ(one.size(), 1u);
  EXPECT_DOUBLE_EQ(one.front(), both);
}

TEST_F(GlyphForms, GivesEachGlyphItsOwnLeanInOrder) {
  page(false, 40, 60, 30);
  FormPair left = pair_;  // the glyph an em to the left, in the same form
  left.firstBox.left -= 40;
  left.firstBox.right -= 40;
  left.secondBox.left -= 40;
  left.secondBox.right -= 40;
  const std::vector<double> each = leans({pair_, left});
  ASSERT_EQ(each.size(), 2u);
  EXPECT_GT(each[0], 0);
  EXPECT_GT(each[1], 0);
  EXPECT_DOUBLE_EQ(each[0], lean());
}

TEST_F(GlyphForms, NoPairsOrNoDrawingsLeanNowhere) {
  page(false, 40, 60, 30);
  EXPECT_TRUE(leans({}).empty());
  const auto none = [](char32_t, bool, int) { return std::vector<Plane>{}; };
  EXPECT_TRUE(leans({pair_}, false, none).empty());
}

}  // namespace
