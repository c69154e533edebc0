#include "platform/image/ImageOrientation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvo::Bitmap;
using kvo::PixelFormat;

class ImageOrientation : public ::testing::Test {
 protected:
  // A 3 × 2 rgb8 bitmap whose pixel (x, y) has red = 'a' + 3y + x:
  //   a b c
  //   d e f
  static Bitmap stored(PixelFormat format = PixelFormat::rgb8) {
    Bitmap b = Bitmap::allocate(3, 2, format);
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 3; ++x) {
        uint8_t* p = b.row(y) + x * kvo::bytesPerPixel(format);
        p[0] = static_cast<uint8_t>('a' + 3 * y + x);
        p[1] = static_cast<uint8_t>(x);
        p[2] = static_cast<uint8_t>(y);
        if (format == PixelFormat::rgba8) p[3] = static_cast<uint8_t>(200 + 3 * y + x);
      }
    return b;
  }
  // The red letters of `b`, one string per row.
  static std::vector<std::string> letters(const Bitmap& b) {
    std::vector<std::string> rows;
    for (int64_t y = 0; y < b.height(); ++y) {
      std::string row;
      for (int64_t x = 0; x < b.width(); ++x) row += static_cast<char>(b.row(y)[x * kvo::bytesPerPixel(b.format())]);
      rows.push_back(row);
    }
    return rows;
  }
  static std::vector<std::string> upright(int orientation) {
    return letters(kvo::image::orientUpright(stored(), orientation));
  }
  using Rows = std::vector<std::string>;
};

TEST_F(ImageOrientation, LeavesOrientationOneAndUnknownValuesAsStored) {
  EXPECT_EQ(upright(1), (Rows{"abc", "def"}));
  EXPECT_EQ(upright(0), (Rows{"abc", "def"}));
  EXPECT_EQ(upright(9), (Rows{"abc", "def"}));
  EXPECT_EQ(upright(-3), (Rows{"abc", "def"}));
}

TEST_F(ImageOrientation, MirrorsForTwoAndFour) {
  EXPECT_EQ(upright(2), (Rows{"cba", "fed"}));
  EXPECT_EQ(upright(4), (Rows{"def", "abc"}));
}

TEST_F(ImageOrientation, RotatesHalfATurnForThree) { EXPECT_EQ(upright(3), (Rows{"fed", "cba"})); }

TEST_F(ImageOrientation, TransposesForFiveAndSeven) {
  EXPECT_EQ(upright(5), (Rows{"ad", "be", "cf"}));
  EXPECT_EQ(upright(7), (Rows{"fc", "eb", "da"}));
}

TEST_F(ImageOrientation, RotatesAQuarterTurnForSixAndEight) {
  // 6: stored rotated 90° counter-clockwise, turned clockwise to stand up.
  EXPECT_EQ(upright(6), (Rows{"da", "eb", "fc"}));
  EXPECT_EQ(upright(8), (Rows{"cf", "be", "ad"}));
}

TEST_F(ImageOrientation, MovesWholePixelsOfEitherFormat) {
  const Bitmap rgba = kvo::image::orientUpright(stored(PixelFormat::rgba8), 6);
  ASSERT_TRUE(rgba.valid());
  EXPECT_EQ(rgba.format(), PixelFormat::rgba8);
  EXPECT_EQ(rgba.width(), 2);
  EXPECT_EQ(rgba.height(), 3);
  // Upright (0, 0) is stored (0, 1): 'd', green 0, blue 1, alpha 203.
  const uint8_t* p = rgba.row(0);
  EXPECT_EQ(std::vector<int>(p, p + 4), (std::vector<int>{'d', 0, 1, 203}));
}

TEST_F(ImageOrientation, PassesAnInvalidBitmapThrough) {
  EXPECT_FALSE(kvo::image::orientUpright(Bitmap{}, 6).valid());
}

}  // namespace
