// JPEG through the codec: EXIF orientation, CMYK, grayscale.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/StandardImageCodecFixture.h"

namespace {

using namespace kvo::codec_tests;

// ---------------------------------------------------------------------------
// JPEG

TEST_F(StandardImageCodec, AppliesExifMirrorAndHalfTurnOrientations) {
  for (int orientation = 1; orientation <= 4; ++orientation) {
    const std::string name = "orientation-" + std::to_string(orientation) + ".jpg";
    expectUprightQuadrants(name);
    expectStoredSize(name, 64, 48);
  }
}

TEST_F(StandardImageCodec, AppliesExifQuarterTurnAndTransposeOrientationsSwappingTheSize) {
  for (int orientation = 5; orientation <= 8; ++orientation) {
    const std::string name = "orientation-" + std::to_string(orientation) + ".jpg";
    expectUprightQuadrants(name);
    expectStoredSize(name, 48, 64);
  }
}

TEST_F(StandardImageCodec, TreatsExifOrientationOutsideOneToEightAsNormal) {
  expectUprightQuadrants("orientation-0.jpg");
  expectUprightQuadrants("orientation-9.jpg");
}

TEST_F(StandardImageCodec, ConvertsCmykJpegToRgb) {
  const Bitmap b = decode("cmyk.jpg");
  ASSERT_NO_FATAL_FAILURE(expectSize(b, 64, 16));
  EXPECT_EQ(b.format(), PixelFormat::rgb8);
  expectNear(b, 8, 8, kWhite);
  expectNear(b, 24, 8, {0, 255, 255});
  expectNear(b, 40, 8, kBlack);
  expectNear(b, 56, 8, {255, 255, 0});
}

TEST_F(StandardImageCodec, ExpandsGrayscaleJpegToRgb) {
  const Bitmap b = decode("gray.jpg");
  ASSERT_NO_FATAL_FAILURE(expectSize(b, 32, 16));
  EXPECT_EQ(b.format(), PixelFormat::rgb8);
  expectNear(b, 4, 8, kBlack);
  expectNear(b, 28, 8, kWhite);
}


}  // namespace
