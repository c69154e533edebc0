#include "platform/image/EncodedSource.h"

#include <cstdlib>
#include <limits>

namespace kvo::image {

size_t pixelBytes(uint64_t width, uint64_t height, unsigned channels) {
  if (width == 0 || height == 0) return 0;
  const uint64_t max = std::numeric_limits<size_t>::max() / 2;
  if (width > max / channels || height > max / (width * channels)) return 0;
  return static_cast<size_t>(width * channels * height);
}

// Turns a malloc'd buffer filled by one of the C-style decoders into a Bitmap.
Bitmap adoptPixels(uint8_t* pixels, uint32_t width, uint32_t height, unsigned channels) {
  return Bitmap::adopt(width, height, size_t{width} * channels,
                       channels == 4 ? PixelFormat::rgba8 : PixelFormat::rgb8, pixels, &std::free);
}

}  // namespace kvo::image
