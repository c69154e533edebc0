// PNG through the codec: colour types, bit depths, writing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/StandardImageCodecFixture.h"

namespace {

using namespace kvo::codec_tests;

// ---------------------------------------------------------------------------
// PNG colour types and bit depths

TEST_F(StandardImageCodec, ScalesSixteenBitPngsToEightBits) {
  for (const char* name : {"gray16.png", "graya16.png", "rgb16.png", "rgba16.png"}) expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, DecodesPaletteWithTransparencyAsRgba) { expectDecodesAsExpected("pal8-trns.png"); }

TEST_F(StandardImageCodec, ExpandsLowBitDepthGrayAndPalettes) {
  for (const char* name : {"gray1.png", "gray2.png", "gray4.png", "pal1.png", "pal2.png", "pal4.png", "pal8.png"})
    expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, TurnsColourKeyTransparencyIntoAlpha) {
  for (const char* name : {"gray4-trns.png", "rgb8-trns.png", "rgb16-trns.png"}) expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, DecodesInterlacedPngs) {
  for (const char* name : {"rgb8-adam7.png", "rgba16-adam7.png", "pal2-adam7.png", "gray1-adam7.png"})
    expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, DecodesOpaqueImagesAsRgbAndImagesWithAlphaAsRgba) {
  for (const char* name : {"gray8.png", "rgb8.png", "opaque.webp"}) expectDecodesAsExpected(name);  // 3 channels
  for (const char* name : {"graya8.png", "rgba8.png", "alpha.webp"}) expectDecodesAsExpected(name);  // 4 channels
}

TEST_F(StandardImageCodec, LeavesResolutionUnknown) { EXPECT_EQ(decode("rgb8.png").pixelsPerInch(), 0); }

TEST_F(StandardImageCodec, DoesNotApplyPngExifOrientation) {
  expectUprightQuadrants("exif-orientation-6.png");
}

TEST_F(StandardImageCodec, HeaderOnlyPngHoldsNoImage) {
  const Walk w = walkFixture("header-only.png");
  EXPECT_EQ(w.type, ImageType::png);
  EXPECT_FALSE(w.accepted());
}


// ---------------------------------------------------------------------------
// Writing PNG

TEST_F(StandardImageCodec, WritesRgbPngThatDecodesToIdenticalPixels) {
  expectRoundTrip(patterned(37, 23, PixelFormat::rgb8, 5));
}

TEST_F(StandardImageCodec, WritesRgbaPngKeepingStraightAlphaExactly) {
  expectRoundTrip(patterned(41, 19, PixelFormat::rgba8, 3));
}

TEST_F(StandardImageCodec, WritesKnownResolutionIntoThePng) {
  kvo::test::TempDir dir;
  Bitmap b = patterned(4, 4, PixelFormat::rgb8, 0);
  b.setPixelsPerInch(300);
  ASSERT_EQ(codec.writePng(b, dir.file("dpi.png")), PngWriteResult::written);
  // 300 pixels per inch = 11811 per metre, in x and y, unit metre.
  const std::string pHYs = std::string("pHYs") + std::string("\0\0\x2e\x23\0\0\x2e\x23\x01", 9);
  EXPECT_NE(kvo::test::readFile(dir.file("dpi.png")).find(pHYs), std::string::npos);
}

TEST_F(StandardImageCodec, CannotCreatePngInAMissingDirectory) {
  kvo::test::TempDir dir;
  EXPECT_EQ(writeSilently(patterned(8, 8, PixelFormat::rgb8, 0), dir.file("missing/out.png")),
            PngWriteResult::cannotCreate);
}

TEST_F(StandardImageCodec, CannotFinishPngOnAFullDevice) {
  EXPECT_EQ(writeSilently(patterned(8, 8, PixelFormat::rgb8, 0), "/dev/full"), PngWriteResult::cannotFinish);
  EXPECT_EQ(writeSilently(patterned(300, 300, PixelFormat::rgba8, 0), "/dev/full"), PngWriteResult::cannotFinish);
}

TEST_F(StandardImageCodec, WritesNoFileForAnEmptyBitmap) {
  kvo::test::TempDir dir;
  EXPECT_EQ(writeSilently(Bitmap{}, dir.file("empty.png")), PngWriteResult::cannotFinish);
  EXPECT_FALSE(std::filesystem::exists(dir.file("empty.png")));
}


}  // namespace
