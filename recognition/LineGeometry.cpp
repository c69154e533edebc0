#include "recognition/LineGeometry.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace kvo::recognition {

namespace {

// A baseline that drops less than this many pixels across its line is level.
constexpr double kLeastDrop = 2;
// A drop that leaves less than a fifth of the box's height for the text is not trusted.
constexpr double kMostDropOfHeight = 0.8;
// The least blank kept around a line read on its own, and its share of the line's height.
constexpr int kLeastPadding = 2;
constexpr int kPaddingPerHeight = 4;

}  // namespace

int blankBetween(const InkBits* page, const Box& line, const Box& a, const Box& b) {
  const bool vertical = line.height() > line.width();
  const int boxGap = vertical ? b.top - a.bottom : b.left - a.right;
  if (page == nullptr) return boxGap;
  const int w = page->width, h = page->height;
  const int from = vertical ? (a.top + a.bottom) / 2 : (a.left + a.right) / 2;
  const int to = vertical ? (b.top + b.bottom) / 2 : (b.left + b.right) / 2;
  const int across0 = std::max(vertical ? line.left : line.top, 0);
  const int across1 = std::min(vertical ? line.right : line.bottom, vertical ? w : h);
  const int along0 = std::max(from, 0), along1 = std::min(to, vertical ? h : w);
  if (along0 >= along1 || across0 >= across1) return std::max(boxGap, 0);
  int longest = 0, run = 0;
  for (int along = along0; along < along1; ++along) {
    bool ink = false;
    for (int across = across0; across < across1 && !ink; ++across)
      ink = vertical ? page->ink(across, along) : page->ink(along, across);
    run = ink ? 0 : run + 1;
    longest = std::max(longest, run);
  }
  return longest;
}

double baselineDrop(int x1, int y1, int x2, int y2, const Box& box) {
  if (x2 == x1 || box.width() <= box.height()) return 0;
  const double drop = static_cast<double>(y2 - y1) / (x2 - x1) * box.width();
  return std::abs(drop) >= kLeastDrop && std::abs(drop) <= kMostDropOfHeight * box.height() ? drop : 0;
}

Corners lineCorners(const Box& b, double drop, double width, double height) {
  auto normalised = [&](double px, double py) { return NormalizedPoint{px / width, 1.0 - py / height}; };
  const double down = std::max(drop, 0.0), up = std::max(-drop, 0.0);
  return {normalised(b.left, b.top + up), normalised(b.right, b.top + down), normalised(b.right, b.bottom - up),
          normalised(b.left, b.bottom - down)};
}

std::optional<Box> clipToPage(Box region, int width, int height) {
  region.left = std::max(region.left, 0);
  region.top = std::max(region.top, 0);
  region.right = std::min(region.right, width);
  region.bottom = std::min(region.bottom, height);
  if (region.width() <= 0 || region.height() <= 0) return std::nullopt;
  return region;
}

int linePadding(const Box& line) { return std::max(kLeastPadding, line.height() / kPaddingPerHeight); }

Box sampleRegion(const Box& b, int pageWidth, int widest) {
  const int pad = linePadding(b);
  const int left = std::max(b.left - pad, 0);
  // `widest` may be INT_MAX: compare before adding so nothing overflows.
  const int right = widest < pageWidth - left ? std::min(b.right + pad, left + widest) : b.right + pad;
  return Box{left, b.top - pad, right, b.bottom + pad};
}

}  // namespace kvo::recognition
