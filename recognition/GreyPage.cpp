#include "recognition/GreyPage.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kvo::recognition {

uint32_t luminance(uint32_t r, uint32_t g, uint32_t b) { return (77 * r + 128 * g + 51 * b + 128) >> 8; }

bool toGrey(const Bitmap& image, GreyImage& grey) {
  const auto width = static_cast<size_t>(image.width());
  const auto height = static_cast<size_t>(image.height());
  if (!grey.allocate(static_cast<int>(width), static_cast<int>(height))) return false;
  const bool alpha = image.format() == PixelFormat::rgba8;
  const size_t step = alpha ? 4 : 3;
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* src = image.row(static_cast<int64_t>(y));
    uint8_t* dst = grey.data + y * width;
    for (size_t x = 0; x < width; ++x, src += step) {
      uint32_t v = luminance(src[0], src[1], src[2]);
      if (alpha) {
        const uint32_t a = src[3];
        v = (v * a + 255 * (255 - a) + 127) / 255;
      }
      dst[x] = static_cast<uint8_t>(v);
    }
  }
  return true;
}

int roundedResolution(double pixelsPerInch) {
  return pixelsPerInch > 0
             ? static_cast<int>(std::lround(std::min(pixelsPerInch, static_cast<double>(std::numeric_limits<int>::max()))))
             : 0;
}

}  // namespace kvo::recognition
