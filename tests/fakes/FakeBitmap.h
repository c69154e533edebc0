#pragma once

#include <cstdint>
#include <optional>

#include "interfaces/Bitmap.h"

namespace kvo::fakes {

// Bitmaps for fakes. Small ones (at most kRealPixelLimit pixels) own real
// RGBA pixels filled with `fill`; larger ones are placeholders that report
// their size but hold a single byte, so a 5,000 × 5,000 page costs nothing.
// The pipeline only passes bitmaps on and never reads their pixels, which
// is what makes placeholders safe.
inline constexpr int64_t kRealPixelLimit = 1 << 20;

Bitmap makeFakeBitmap(int64_t width, int64_t height, uint8_t fill = 0xFF);

// Number of fake bitmaps alive right now (made and not yet released).
int liveFakeBitmaps();

// Whether `bitmap` is a placeholder without real pixels.
bool isPlaceholder(const Bitmap& bitmap);

// For a bitmap with real pixels: whether every byte is 0xFF (opaque white).
// nullopt for placeholders.
std::optional<bool> isAllWhite(const Bitmap& bitmap);

}  // namespace kvo::fakes
