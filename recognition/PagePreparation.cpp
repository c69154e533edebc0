#include "recognition/PagePreparation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace kvo::recognition {

namespace {

using Histogram = std::array<uint64_t, 256>;

Histogram histogram(const uint8_t* grey, int width, int height) {
  Histogram h{};
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  for (size_t i = 0; i < count; ++i) ++h[grey[i]];
  return h;
}

// The level t that maximises the variance between levels <= t and levels > t.
int otsuLevel(const Histogram& h) {
  uint64_t total = 0;
  double sum = 0;
  for (int v = 0; v < 256; ++v) {
    total += h[v];
    sum += static_cast<double>(v) * static_cast<double>(h[v]);
  }
  uint64_t below = 0;
  double sumBelow = 0, best = -1;
  int level = 0;
  for (int t = 0; t < 255; ++t) {
    below += h[t];
    sumBelow += static_cast<double>(t) * static_cast<double>(h[t]);
    if (below == 0 || below == total) continue;
    const double above = static_cast<double>(total - below);
    const double meanBelow = sumBelow / static_cast<double>(below);
    const double meanAbove = (sum - sumBelow) / above;
    const double between = static_cast<double>(below) * above * (meanBelow - meanAbove) * (meanBelow - meanAbove);
    if (between > best) {
      best = between;
      level = t;
    }
  }
  return level;
}

}  // namespace

GroundSplit splitGround(const uint8_t* grey, int width, int height) {
  GroundSplit split;
  if (grey == nullptr || width <= 0 || height <= 0) return split;
  const Histogram h = histogram(grey, width, height);
  split.level = split.givenLevel = otsuLevel(h);
  uint64_t dark = 0, light = 0;
  for (int v = 0; v < 256; ++v) (v <= split.level ? dark : light) += h[v];
  split.darkGround = light > 0 && dark > light;
  if (split.darkGround) {
    Histogram inverted{};
    for (int v = 0; v < 256; ++v) inverted[255 - v] = h[v];
    split.level = otsuLevel(inverted);
  }
  return split;
}

bool hasDarkGround(const uint8_t* grey, int width, int height) {
  return splitGround(grey, width, height).darkGround;
}

int separatingLevel(const uint8_t* grey, int width, int height) {
  if (grey == nullptr || width <= 0 || height <= 0) return 127;
  return otsuLevel(histogram(grey, width, height));
}

void invertGrey(uint8_t* grey, size_t count) {
  for (size_t i = 0; i < count; ++i) grey[i] = static_cast<uint8_t>(255 - grey[i]);
}

int enlargement(std::vector<int> lineHeights, int width, int height, int largestSide) {
  lineHeights.erase(std::remove_if(lineHeights.begin(), lineHeights.end(), [](int h) { return h <= 0; }),
                    lineHeights.end());
  if (lineHeights.empty() || width <= 0 || height <= 0) return 1;
  auto middle = lineHeights.begin() + static_cast<std::ptrdiff_t>(lineHeights.size() / 2);
  std::nth_element(lineHeights.begin(), middle, lineHeights.end());
  const int typical = *middle;
  int factor = std::min(kMaxEnlargement, (kReadableLineHeight + typical - 1) / typical);
  const auto fits = [&](int f) {
    return static_cast<int64_t>(width) * f <= largestSide && static_cast<int64_t>(height) * f <= largestSide &&
           static_cast<int64_t>(width) * f * static_cast<int64_t>(height) * f <= kMaxEnlargedPixels;
  };
  while (factor > 1 && !fits(factor)) --factor;
  return std::max(factor, 1);
}

bool turnGreyQuarter(const GreyImage& grey, bool clockwise, GreyImage& out) {
  const int width = grey.width, height = grey.height;
  auto* data = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(width) * static_cast<size_t>(height)));
  if (data == nullptr) return false;
  // The turned page is `height` pixels wide. Clockwise, the source's last
  // row becomes the first column; counter-clockwise, its first row becomes
  // the first column, read from the bottom.
  const size_t outWidth = static_cast<size_t>(height);
  for (int y = 0; y < height; ++y) {
    const uint8_t* src = grey.data + static_cast<size_t>(y) * width;
    for (int x = 0; x < width; ++x) {
      const size_t ox = clockwise ? static_cast<size_t>(height - 1 - y) : static_cast<size_t>(y);
      const size_t oy = clockwise ? static_cast<size_t>(x) : static_cast<size_t>(width - 1 - x);
      data[oy * outWidth + ox] = src[x];
    }
  }
  std::free(out.data);
  out.data = data;
  out.width = height;
  out.height = width;
  return true;
}

int groundLevel(const GreyImage& grey, int level) {
  const int width = grey.width, height = grey.height;
  if (grey.data == nullptr || width <= 0 || height <= 0) return 255;
  const Histogram h = histogram(grey.data, width, height);
  uint64_t light = 0;
  for (int v = level + 1; v < 256; ++v) light += h[static_cast<size_t>(v)];
  if (light == 0) return std::clamp(level, 0, 255);
  int ground = level + 1;
  for (uint64_t seen = 0; ground < 255; ++ground)
    if ((seen += h[static_cast<size_t>(ground)]) * 2 >= light) break;
  return ground;
}

void fillTurnedCorners(const PageTurn& turn, int ground, GreyImage& turned) {
  if (turned.data == nullptr || turn.width <= 0 || turn.height <= 0 || turned.width != turn.turnedWidth ||
      turned.height != turn.turnedHeight)
    return;
  const double inside = kTurnedEdgeBand;
  const auto level = static_cast<uint8_t>(std::clamp(ground, 0, 255));
  for (int y = 0; y < turn.turnedHeight; ++y) {
    uint8_t* row = turned.data + static_cast<size_t>(y) * static_cast<size_t>(turn.turnedWidth);
    for (int x = 0; x < turn.turnedWidth; ++x) {
      const NormalizedPoint p = turn.toPage(x + 0.5, y + 0.5);
      if (p.x >= inside && p.x <= turn.width - inside && p.y >= inside && p.y <= turn.height - inside) continue;
      row[x] = level;
    }
  }
}

bool turnGreyHalf(const GreyImage& grey, GreyImage& out) {
  const int width = grey.width, height = grey.height;
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  auto* data = static_cast<uint8_t*>(std::malloc(count));
  if (data == nullptr) return false;
  std::reverse_copy(grey.data, grey.data + count, data);
  std::free(out.data);
  out.data = data;
  out.width = width;
  out.height = height;
  return true;
}

bool enlargeGrey(const GreyImage& grey, int factor, GreyImage& out) {
  const int width = grey.width, height = grey.height;
  const size_t outWidth = static_cast<size_t>(width) * static_cast<size_t>(factor);
  const size_t outHeight = static_cast<size_t>(height) * static_cast<size_t>(factor);
  auto* data = static_cast<uint8_t*>(std::malloc(outWidth * outHeight));
  if (data == nullptr) return false;
  std::free(out.data);
  out.data = data;
  out.width = static_cast<int>(outWidth);
  out.height = static_cast<int>(outHeight);
  // Output pixel centre (x + 0.5) / factor - 0.5 in source pixels, in units
  // of 1 / (2 factor) so that the weights stay integers.
  const int den = 2 * factor;
  for (size_t y = 0; y < outHeight; ++y) {
    const int sy = std::clamp(static_cast<int>(2 * y + 1) - factor, 0, (height - 1) * den);
    const int y0 = sy / den, wy = sy % den, y1 = std::min(y0 + 1, height - 1);
    const uint8_t* r0 = grey.data + static_cast<size_t>(y0) * width;
    const uint8_t* r1 = grey.data + static_cast<size_t>(y1) * width;
    uint8_t* dst = data + y * outWidth;
    for (size_t x = 0; x < outWidth; ++x) {
      const int sx = std::clamp(static_cast<int>(2 * x + 1) - factor, 0, (width - 1) * den);
      const int x0 = sx / den, wx = sx % den, x1 = std::min(x0 + 1, width - 1);
      const int top = r0[x0] * (den - wx) + r0[x1] * wx;
      const int bottom = r1[x0] * (den - wx) + r1[x1] * wx;
      dst[x] = static_cast<uint8_t>((top * (den - wy) + bottom * wy + den * den / 2) / (den * den));
    }
  }
  return true;
}

int skewReduction(int width) {
  int reduction = 4;
  while (reduction > 1 && width / reduction < kLeastSkewSweepWidth) reduction /= 2;
  return reduction;
}

namespace {

bool confident(const SkewMeasure& m) {
  return m.found && m.confidence >= kLeastSkewConfidence && std::abs(m.degrees) >= kLeastSkewDegrees;
}

}  // namespace

bool asksForHalves(const SkewMeasure& whole) {
  return whole.found && whole.confidence < kLeastSkewConfidence && std::abs(whole.degrees) >= kSkewSweepStep / 2;
}

std::optional<double> straighteningAngle(const SkewMeasure& whole, const std::optional<SkewMeasure>& top,
                                         const std::optional<SkewMeasure>& bottom) {
  if (confident(whole)) return whole.degrees;
  if (!asksForHalves(whole)) return std::nullopt;
  auto agrees = [&](const std::optional<SkewMeasure>& half) {
    return half && half->found && std::abs(half->degrees - whole.degrees) <= kLeastSkewDegrees;
  };
  if (agrees(top) && agrees(bottom)) return whole.degrees;
  return std::nullopt;
}

namespace {

// One round of clearSurround on `page` in place, `h` its histogram: false
// when no pixel at or below `level` touches the edge, or nothing lies above it.
bool clearSurroundOnce(uint8_t* page, int width, int height, const Histogram& h, int level) {
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  // The sheet's level: the median of the levels above `level`.
  uint64_t light = 0;
  for (int v = level + 1; v < 256; ++v) light += h[static_cast<size_t>(v)];
  if (light == 0) return false;
  int sheet = level + 1;
  for (uint64_t seen = 0; sheet < 255; ++sheet)
    if ((seen += h[static_cast<size_t>(sheet)]) * 2 >= light) break;
  // The dark pixels joined to the edge, by a flood from every dark pixel on it.
  std::vector<bool> surround(count, false);
  std::vector<uint32_t> todo;  // a page has fewer pixels than 2^32 (kMaxEnlargedPixels)
  auto reach = [&](int x, int y) {
    const auto i = static_cast<uint32_t>(static_cast<size_t>(y) * width + x);
    if (!surround[i] && page[i] <= level) {
      surround[i] = true;
      todo.push_back(i);
    }
  };
  for (int x = 0; x < width; ++x) {
    reach(x, 0);
    reach(x, height - 1);
  }
  for (int y = 0; y < height; ++y) {
    reach(0, y);
    reach(width - 1, y);
  }
  if (todo.empty()) return false;
  while (!todo.empty()) {
    const uint32_t i = todo.back();
    todo.pop_back();
    const int x = static_cast<int>(i % width), y = static_cast<int>(i / width);
    if (x > 0) reach(x - 1, y);
    if (x + 1 < width) reach(x + 1, y);
    if (y > 0) reach(x, y - 1);
    if (y + 1 < height) reach(x, y + 1);
  }
  for (size_t i = 0; i < count; ++i)
    if (surround[i]) page[i] = static_cast<uint8_t>(sheet);
  return true;
}

}  // namespace

bool clearSurround(const GreyImage& grey, int level, GreyImage& out) {
  const int width = grey.width, height = grey.height;
  if (grey.data == nullptr || width <= 0 || height <= 0) return false;
  const size_t count = static_cast<size_t>(width) * static_cast<size_t>(height);
  if (count > kMaxEnlargedPixels) return false;
  auto* page = static_cast<uint8_t*>(std::malloc(count));
  if (page == nullptr) return false;
  std::copy(grey.data, grey.data + count, page);
  bool cleared = false;
  for (int round = 0; round < kMostSurroundRounds; ++round) {
    const Histogram h = histogram(page, width, height);
    if (round > 0) level = otsuLevel(h);
    if (!clearSurroundOnce(page, width, height, h, level)) break;
    cleared = true;
  }
  if (!cleared) {
    std::free(page);
    return false;
  }
  std::free(out.data);
  out.data = page;
  out.width = width;
  out.height = height;
  return true;
}

std::vector<int> lineThicknesses(const std::vector<Box>& lines) {
  std::vector<int> thicknesses;
  thicknesses.reserve(lines.size());
  for (const Box& b : lines) thicknesses.push_back(b.thickness());
  return thicknesses;
}

}  // namespace kvo::recognition
