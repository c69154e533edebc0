// WebP through the codec: stills and animations.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/StandardImageCodecFixture.h"

namespace {

using namespace kvo::codec_tests;

// ---------------------------------------------------------------------------
// WebP

TEST_F(StandardImageCodec, CountsAnimatedWebpFramesAndDecodesTheFirst) {
  EXPECT_EQ(imageCountOf("animated.webp"), 3);
  expectStoredSize("animated.webp", 24, 16);
  const Bitmap b = decode("animated.webp");
  ASSERT_NO_FATAL_FAILURE(expectSize(b, 24, 16));
  expectNear(b, 0, 0, kRed, 0);
  expectNear(b, 23, 15, kRed, 0);
}

TEST_F(StandardImageCodec, CountsOneImageInAStillWebp) { EXPECT_EQ(imageCountOf("opaque.webp"), 1); }


}  // namespace
