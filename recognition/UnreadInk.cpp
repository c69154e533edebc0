#include "recognition/UnreadInk.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace kvo::recognition {

namespace {

bool holds(const Box& b, int x, int y) { return x >= b.left && x < b.right && y >= b.top && y < b.bottom; }

int medianThickness(const std::vector<Box>& lines) {
  std::vector<int> thickness;
  thickness.reserve(lines.size());
  for (const Box& b : lines) thickness.push_back(b.thickness());
  const auto middle = thickness.begin() + static_cast<std::ptrdiff_t>(thickness.size() / 2);
  std::nth_element(thickness.begin(), middle, thickness.end());
  return *middle;
}

}  // namespace

std::vector<Box> unreadGlyphs(const InkBits& page, const std::vector<Box>& lines) {
  std::vector<Box> glyphs;
  if (lines.empty() || page.width <= 0 || page.height <= 0) return glyphs;
  const int thickness = medianThickness(lines);
  if (thickness <= 0) return glyphs;
  const int w = page.width, h = page.height;
  // Covered: inside a read line's padded box. Only the ink outside is
  // followed, so a page read whole costs one pass over its lines' boxes.
  std::vector<uint8_t> seen(static_cast<size_t>(w) * static_cast<size_t>(h), 0);
  for (const Box& line : lines) {
    const int pad = linePadding(line);
    const int left = std::max(0, line.left - pad), right = std::min(w, line.right + pad);
    const int top = std::max(0, line.top - pad), bottom = std::min(h, line.bottom + pad);
    for (int y = top; y < bottom; ++y)
      std::fill(seen.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(y) * w + left),
                seen.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(y) * w + right), 1);
  }
  std::vector<size_t> todo;
  for (int y0 = 0; y0 < h; ++y0)
    for (int x0 = 0; x0 < w; ++x0) {
      const size_t start = static_cast<size_t>(y0) * w + x0;
      if (seen[start] != 0 || !page.ink(x0, y0)) continue;
      // One stretch of uncovered ink: its box. Ink inside a line's box
      // stops it, as that ink was read.
      Box box{x0, y0, x0 + 1, y0 + 1};
      seen[start] = 1;
      todo.assign(1, start);
      while (!todo.empty()) {
        const size_t at = todo.back();
        todo.pop_back();
        const int x = static_cast<int>(at % w), y = static_cast<int>(at / w);
        box.left = std::min(box.left, x);
        box.right = std::max(box.right, x + 1);
        box.top = std::min(box.top, y);
        box.bottom = std::max(box.bottom, y + 1);
        for (int ny = std::max(0, y - 1); ny <= std::min(h - 1, y + 1); ++ny)
          for (int nx = std::max(0, x - 1); nx <= std::min(w - 1, x + 1); ++nx) {
            const size_t next = static_cast<size_t>(ny) * w + nx;
            if (seen[next] != 0 || !page.ink(nx, ny)) continue;
            seen[next] = 1;
            todo.push_back(next);
          }
      }
      const int cx = (box.left + box.right) / 2, cy = (box.top + box.bottom) / 2;
      const bool outside = std::none_of(lines.begin(), lines.end(), [&](const Box& line) {
        const int pad = linePadding(line);
        return holds(Box{line.left - pad, line.top - pad, line.right + pad, line.bottom + pad}, cx, cy);
      });
      const bool glyphSized = 2 * box.height() >= thickness && 2 * box.height() <= 3 * thickness &&
                              box.width() <= kMostGlyphsInAStretch * thickness;
      if (outside && glyphSized) glyphs.push_back(box);
    }
  return glyphs;
}

bool blankLines(const GreyImage& grey, int width, int height, const std::vector<Box>& lines, GreyImage& rest) {
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto* data = static_cast<uint8_t*>(std::malloc(count));
  if (data == nullptr) return false;
  std::memcpy(data, grey.data, count);
  for (const Box& line : lines) {
    const int pad = linePadding(line);
    const int left = std::max(0, line.left - pad), right = std::min(width, line.right + pad);
    const int top = std::max(0, line.top - pad), bottom = std::min(height, line.bottom + pad);
    for (int y = top; y < bottom && left < right; ++y)
      std::memset(data + static_cast<size_t>(y) * width + left, 255, static_cast<size_t>(right - left));
  }
  std::free(rest.data);
  rest.data = data;
  return true;
}

bool holdsUnreadGlyph(const Box& line, const std::vector<Box>& glyphs) {
  return std::any_of(glyphs.begin(), glyphs.end(), [&](const Box& g) {
    return holds(line, (g.left + g.right) / 2, (g.top + g.bottom) / 2);
  });
}

}  // namespace kvo::recognition
