#include "platform/image/ImageOrientation.h"

#include <algorithm>
#include <cstring>

namespace kvo::image {

// every output pixel (x, y) is taken from stored pixel
// (x0 + x·xx + y·xy, y0 + x·yx + y·yy). Works in tiles so that the column
// walks of the transposing orientations stay in cache.
Bitmap orientUpright(Bitmap stored, int orientation) {
  if (orientation < 2 || orientation > 8 || !stored.valid()) return stored;
  const int64_t w = stored.width(), h = stored.height();
  const bool swaps = orientation >= 5;
  Bitmap upright = Bitmap::allocate(swaps ? h : w, swaps ? w : h, stored.format());
  if (!upright.valid()) return {};

  int64_t x0 = 0, y0 = 0, xx = 0, xy = 0, yx = 0, yy = 0;
  switch (orientation) {
    case 2: x0 = w - 1; xx = -1; yy = 1; break;                  // mirror horizontal
    case 3: x0 = w - 1; y0 = h - 1; xx = -1; yy = -1; break;     // rotate 180
    case 4: y0 = h - 1; xx = 1; yy = -1; break;                  // mirror vertical
    case 5: xy = 1; yx = 1; break;                               // transpose
    case 6: y0 = h - 1; xy = 1; yx = -1; break;                  // rotate 90 clockwise
    case 7: x0 = w - 1; y0 = h - 1; xy = -1; yx = -1; break;     // transverse
    case 8: x0 = w - 1; xy = -1; yx = 1; break;                  // rotate 270 clockwise
  }
  const int bpp = bytesPerPixel(stored.format());
  constexpr int64_t kTile = 64;
  for (int64_t ty = 0; ty < upright.height(); ty += kTile) {
    const int64_t yEnd = std::min(ty + kTile, upright.height());
    for (int64_t tx = 0; tx < upright.width(); tx += kTile) {
      const int64_t xEnd = std::min(tx + kTile, upright.width());
      for (int64_t y = ty; y < yEnd; ++y) {
        uint8_t* out = upright.row(y) + tx * bpp;
        for (int64_t x = tx; x < xEnd; ++x, out += bpp) {
          const int64_t sx = x0 + x * xx + y * xy, sy = y0 + x * yx + y * yy;
          std::memcpy(out, stored.row(sy) + sx * bpp, static_cast<size_t>(bpp));
        }
      }
    }
  }
  return upright;
}

}  // namespace kvo::image
