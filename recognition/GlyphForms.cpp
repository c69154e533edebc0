#include "recognition/GlyphForms.h"

#include <algorithm>
#include <cmath>

#include "recognition/PagePreparation.h"

namespace kvo::recognition {

namespace {

// `plane` convolved with `kernel` (odd length, centred) along x (`acrossRows`)
// or along y, edges clamped.
Plane convolved(const Plane& plane, const std::vector<float>& kernel, bool acrossRows) {
  const int w = plane.width, h = plane.height;
  const int radius = static_cast<int>(kernel.size() / 2);
  Plane result{w, h, std::vector<float>(plane.values.size(), 0.0f)};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float sum = 0;
      for (int i = -radius; i <= radius; ++i)
        sum += kernel[static_cast<size_t>(i + radius)] *
               (acrossRows ? plane.at(std::clamp(x + i, 0, w - 1), y) : plane.at(x, std::clamp(y + i, 0, h - 1)));
      result.values[static_cast<size_t>(y) * w + x] = sum;
    }
  return result;
}

}  // namespace

Plane blurred(const Plane& plane, double sigma) {
  if (sigma <= 0 || plane.width <= 0 || plane.height <= 0) return plane;
  const int radius = std::max(1, static_cast<int>(std::ceil(3 * sigma)));
  std::vector<float> kernel(static_cast<size_t>(2 * radius + 1));
  float total = 0;
  for (int i = -radius; i <= radius; ++i)
    total += kernel[static_cast<size_t>(i + radius)] = static_cast<float>(std::exp(-i * i / (2 * sigma * sigma)));
  for (float& k : kernel) k /= total;
  return convolved(convolved(plane, kernel, true), kernel, false);
}

double likeness(const Plane& ink, const Plane& form, int step) {
  const int w = form.width, h = form.height;
  if (w <= 0 || h <= 0 || ink.width < w || ink.height < h) return -1;
  step = std::max(1, step);
  const double n = static_cast<double>(w) * h;
  double formSum = 0, formSquares = 0;
  for (const float v : form.values) {
    formSum += v;
    formSquares += static_cast<double>(v) * v;
  }
  const double formSpread = formSquares - formSum * formSum / n;
  if (formSpread <= 0) return -1;
  double best = -1;
  for (int top = 0; top + h <= ink.height; top += step)
    for (int left = 0; left + w <= ink.width; left += step) {
      double sum = 0, squares = 0, products = 0;
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const double v = ink.at(left + x, top + y);
          sum += v;
          squares += v * v;
          products += v * form.at(x, y);
        }
      const double spread = squares - sum * sum / n;
      if (spread <= 0) continue;
      best = std::max(best, (products - sum * formSum / n) / std::sqrt(spread * formSpread));
    }
  return best;
}

namespace {

// The ink of `page` in the square of side `side` centred on (cx, cy): 1 on
// the smaller side of the level that separates the square's own grey levels
// best (Otsu), since a photographed page's light falls off across it; off
// the page is ground.
Plane inkAround(const uint8_t* page, int width, int height, int cx, int cy, int side) {
  const int left = cx - side / 2, top = cy - side / 2;
  std::vector<uint8_t> grey(static_cast<size_t>(side) * side, 255);
  for (int y = 0; y < side; ++y) {
    const int py = top + y;
    if (py < 0 || py >= height) continue;
    for (int x = 0; x < side; ++x) {
      const int px = left + x;
      if (px >= 0 && px < width) grey[static_cast<size_t>(y) * side + x] = page[static_cast<size_t>(py) * width + px];
    }
  }
  const int level = separatingLevel(grey.data(), side, side);
  const auto dark = static_cast<size_t>(std::count_if(grey.begin(), grey.end(), [level](uint8_t v) { return v <= level; }));
  // Strokes cover less of a square of text than its ground does: ink is
  // the smaller side, whichever way the page was handed over.
  const bool darkInk = 2 * dark <= grey.size();
  Plane plane{side, side, std::vector<float>(grey.size(), 0.0f)};
  for (size_t i = 0; i < grey.size(); ++i)
    if ((grey[i] <= level) == darkInk) plane.values[i] = 1.0f;
  return plane;
}

int middle(const FormPair& p) {
  return (std::min(p.firstBox.left, p.secondBox.left) + std::max(p.firstBox.right, p.secondBox.right)) / 2;
}

// How tall the ink of the glyph of `p` is: from the first row of its line
// to the last with ink within half the line's height of the glyph's middle;
// 0 when there is none.
int inkHeight(const uint8_t* page, int width, int height, const FormPair& p) {
  const int thickness = p.line.height();
  if (thickness <= 0) return 0;
  const int side = 2 * thickness;
  const int cy = (p.line.top + p.line.bottom) / 2;
  const Plane ink = inkAround(page, width, height, middle(p), cy, side);
  const int top = cy - side / 2;
  int first = -1, last = -1;
  for (int y = p.line.top - top; y < p.line.bottom - top; ++y)
    for (int x = side / 2 - thickness / 2; x <= side / 2 + thickness / 2 && x < side; ++x)
      if (y >= 0 && y < side && ink.at(x, y) > 0) {
        if (first < 0) first = y;
        last = y;
        break;
      }
  return first < 0 ? 0 : last - first + 1;
}

// A block filling the box both drawings' ink lies in: what a glyph too
// blurred or too small to show its strokes looks like.
Plane blockOf(const Plane& a, const Plane& b) {
  int left = a.width, top = a.height, right = -1, bottom = -1;
  for (const Plane* plane : {&a, &b})
    for (int y = 0; y < plane->height; ++y)
      for (int x = 0; x < plane->width; ++x)
        if (plane->at(x, y) >= 0.5f) {
          left = std::min(left, x);
          right = std::max(right, x);
          top = std::min(top, y);
          bottom = std::max(bottom, y);
        }
  Plane block{a.width, a.height, std::vector<float>(a.values.size(), 0.0f)};
  for (int y = top; y <= bottom; ++y)
    for (int x = left; x <= right; ++x) block.values[static_cast<size_t>(y) * block.width + x] = 1.0f;
  return block;
}

}  // namespace

std::vector<double> formLeans(const uint8_t* page, int width, int height, const std::vector<FormPair>& pairs,
                              bool firstTraditional, const FormDrawer& draw) {
  std::vector<double> leans;
  if (page == nullptr || pairs.empty() || !draw) return leans;
  std::vector<int> heights;
  for (const FormPair& p : pairs)
    if (const int h = inkHeight(page, width, height, p); h > 0) heights.push_back(h);
  if (heights.empty()) return leans;
  std::nth_element(heights.begin(), heights.begin() + heights.size() / 2, heights.end());
  const int em = static_cast<int>(std::lround(heights[heights.size() / 2] / kInkPerEm));
  if (em < kLeastEm) return leans;
  const double sigma = em / 16.0;
  const int step = std::max(1, em / 16);
  // The window: the em and half an em of search on every side.
  const int side = 2 * em;
  for (const FormPair& p : pairs) {
    const std::vector<Plane> firstForms = draw(p.first, firstTraditional, em);
    const std::vector<Plane> secondForms = draw(p.second, !firstTraditional, em);
    const size_t faces = std::min(firstForms.size(), secondForms.size());
    if (faces == 0) continue;
    const int cx = middle(p);
    const int cy = (p.line.top + p.line.bottom) / 2;
    const Plane ink = blurred(inkAround(page, width, height, cx, cy, side), sigma);
    double lean = 0;
    bool compared = false;
    for (size_t f = 0; f < faces; ++f) {
      if (firstForms[f].values.empty() || secondForms[f].values.empty()) continue;
      const double one = likeness(ink, blurred(firstForms[f], sigma), step);
      const double other = likeness(ink, blurred(secondForms[f], sigma), step);
      // Ink that looks no more like either form than like a block shows no
      // strokes, and the denser form is always the likelier block.
      const double block = likeness(ink, blurred(blockOf(firstForms[f], secondForms[f]), sigma), step);
      if (one > -1 && other > -1 && std::max(one, other) > block) {
        lean += one - other;
        compared = true;
      }
    }
    if (compared) leans.push_back(lean);
  }
  return leans;
}

}  // namespace kvo::recognition
