#include "recognition/UnreadInk.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace kvo::recognition {

namespace {

bool holds(const Box& b, int x, int y) { return x >= b.left && x < b.right && y >= b.top && y < b.bottom; }

// A line read, with the blank kept around it, on a page of width × height.
Box withPadding(const Box& line, int width, int height) {
  const int pad = linePadding(line);
  return Box{std::max(0, line.left - pad), std::max(0, line.top - pad), std::min(width, line.right + pad),
             std::min(height, line.bottom + pad)};
}

}  // namespace

int medianThickness(const std::vector<Box>& lines) {
  std::vector<int> thickness;
  thickness.reserve(lines.size());
  for (const Box& b : lines) thickness.push_back(b.thickness());
  const auto middle = thickness.begin() + static_cast<std::ptrdiff_t>(thickness.size() / 2);
  std::nth_element(thickness.begin(), middle, thickness.end());
  return *middle;
}

std::vector<Box> unreadGlyphs(const InkBits& page, const std::vector<Box>& lines) {
  std::vector<Box> glyphs;
  if (lines.empty() || page.width <= 0 || page.height <= 0) return glyphs;
  const int thickness = medianThickness(lines);
  if (thickness <= 0) return glyphs;
  const int w = page.width, h = page.height;
  // Covered: inside a read line's padded box. Ink there was read and stops
  // a stretch; a page read whole costs one pass over its pixels. Every page
  // is searched, so the marks are a bit a pixel, as the ink itself is.
  std::vector<bool> seen(static_cast<size_t>(w) * static_cast<size_t>(h), false);
  std::vector<Box> covered;
  covered.reserve(lines.size());
  for (const Box& line : lines) {
    const Box b = covered.emplace_back(withPadding(line, w, h));
    for (int y = b.top; y < b.bottom && b.left < b.right; ++y)
      std::fill(seen.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(y) * w + b.left),
                seen.begin() + static_cast<std::ptrdiff_t>(static_cast<size_t>(y) * w + b.right), true);
  }
  std::vector<size_t> todo;
  for (int y0 = 0; y0 < h; ++y0)
    for (int x0 = 0; x0 < w; ++x0) {
      const size_t start = static_cast<size_t>(y0) * w + x0;
      if (seen[start] || !page.ink(x0, y0)) continue;
      // One stretch of uncovered ink: its box. Ink inside a line's box
      // stops it, as that ink was read.
      Box box{x0, y0, x0 + 1, y0 + 1};
      seen[start] = true;
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
            if (seen[next] || !page.ink(nx, ny)) continue;
            seen[next] = true;
            todo.push_back(next);
          }
      }
      const int cx = (box.left + box.right) / 2, cy = (box.top + box.bottom) / 2;
      const bool outside =
          std::none_of(covered.begin(), covered.end(), [&](const Box& b) { return holds(b, cx, cy); });
      const bool glyphSized = 2 * box.height() >= thickness && 2 * box.height() <= 3 * thickness &&
                              box.width() <= kMostGlyphsInAStretch * thickness;
      if (outside && glyphSized) glyphs.push_back(box);
    }
  return glyphs;
}

bool blankLines(const GreyImage& grey, const std::vector<Box>& lines, GreyImage& rest) {
  const int width = grey.width, height = grey.height;
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto* data = static_cast<uint8_t*>(std::malloc(count));
  if (data == nullptr) return false;
  std::memcpy(data, grey.data, count);
  for (const Box& line : lines) {
    const Box b = withPadding(line, width, height);
    for (int y = b.top; y < b.bottom && b.left < b.right; ++y)
      std::memset(data + static_cast<size_t>(y) * width + b.left, 255, static_cast<size_t>(b.right - b.left));
  }
  std::free(rest.data);
  rest.data = data;
  rest.width = width;
  rest.height = height;
  return true;
}

bool holdsUnreadGlyph(const Box& line, const std::vector<Box>& glyphs) {
  return std::any_of(glyphs.begin(), glyphs.end(), [&](const Box& g) {
    return holds(line, (g.left + g.right) / 2, (g.top + g.bottom) / 2);
  });
}

UnreadWidth unreadWidth(const InkBits& page, const std::vector<Box>& lines) {
  UnreadWidth width;
  if (lines.empty()) return width;
  std::vector<int> widths;
  widths.reserve(lines.size());
  for (const Box& b : lines) widths.push_back(b.width());
  const auto middle = widths.begin() + static_cast<std::ptrdiff_t>(widths.size() / 2);
  std::nth_element(widths.begin(), middle, widths.end());
  width.typicalLine = *middle;
  for (const Box& g : unreadGlyphs(page, lines)) width.unread += g.width();
  return width;
}

bool leavesALineUnread(const UnreadWidth& first) {
  return first.typicalLine > 0 && 2 * first.unread >= first.typicalLine;
}

bool readsClearlyMore(const UnreadWidth& second, const UnreadWidth& first) {
  return second.typicalLine > 0 && 2 * second.unread <= first.unread;
}

}  // namespace kvo::recognition
