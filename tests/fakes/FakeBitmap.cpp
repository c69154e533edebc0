#include "fakes/FakeBitmap.h"

#include <cstdlib>
#include <cstring>
#include <set>

namespace kvo::fakes {

namespace {

int live = 0;

std::set<const void*>& placeholders() {
  static std::set<const void*> set;
  return set;
}

void releaseCounted(void* data) {
  placeholders().erase(data);
  std::free(data);
  --live;
}

}  // namespace

Bitmap makeFakeBitmap(int64_t width, int64_t height, uint8_t fill) {
  const size_t stride = static_cast<size_t>(width) * 4;
  const bool real = width > 0 && height > 0 && width * height <= kRealPixelLimit;
  const size_t bytes = real ? stride * static_cast<size_t>(height) : 1;
  auto* data = static_cast<uint8_t*>(std::malloc(bytes));
  std::memset(data, fill, bytes);
  if (!real) placeholders().insert(data);
  ++live;
  return Bitmap::adopt(width, height, stride, PixelFormat::rgba8, data, &releaseCounted);
}

int liveFakeBitmaps() { return live; }

bool isPlaceholder(const Bitmap& bitmap) { return placeholders().count(bitmap.data()) != 0; }

std::optional<bool> isAllWhite(const Bitmap& bitmap) {
  if (!bitmap.valid() || isPlaceholder(bitmap)) return std::nullopt;
  for (int64_t y = 0; y < bitmap.height(); ++y) {
    const uint8_t* row = bitmap.row(y);
    for (size_t x = 0; x < static_cast<size_t>(bitmap.width()) * 4; ++x) {
      if (row[x] != 0xFF) return false;
    }
  }
  return true;
}

}  // namespace kvo::fakes
