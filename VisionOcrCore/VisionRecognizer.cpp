#include "VisionOcrCore/VisionRecognizer.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "VisionOcrCore/Text.h"

namespace kvo {

namespace {

// NaN and negative values become 0, values beyond the edge become the edge.
double clampToEdge(double value, double edge) {
  if (!(value >= 0)) return 0;
  return value > edge ? edge : value;
}

std::optional<OcrRegion> regionFrom(const TextObservation& observation, double width, double height) {
  if (!observation.candidate) return std::nullopt;
  std::string text = trimWhitespaceAndNewlines(makeValidUtf8(observation.candidate->text));
  if (text.empty()) return std::nullopt;

  const float c = observation.candidate->confidence;
  double confidence = c >= 0 ? static_cast<double>(c) : 0.0;  // NaN fails the test too
  confidence = std::min(confidence, 1.0);

  OcrRegion region{std::move(text), confidence, {}};
  region.polygon.reserve(4);
  for (const NormalizedPoint& corner :
       {observation.topLeft, observation.topRight, observation.bottomRight, observation.bottomLeft}) {
    region.polygon.push_back({clampToEdge(corner.x * width, width), clampToEdge((1 - corner.y) * height, height)});
  }
  return region;
}

double top(const OcrRegion& region) {
  if (region.polygon.empty()) return 0;
  double minimum = region.polygon.front().at(1);
  for (const auto& point : region.polygon) {
    if (point.at(1) < minimum) minimum = point.at(1);
  }
  return minimum;
}

double left(const OcrRegion& region) { return region.polygon.empty() ? 0 : region.polygon.front().at(0); }

// A stable merge sort that stays within bounds for any comparator: reading
// order is not a strict weak order (tolerance chains), which the standard
// sorts do not allow.
template <typename T, typename Less>
void stableMergeSort(std::vector<T>& items, Less less) {
  std::vector<T> buffer(items.size());
  for (size_t width = 1; width < items.size(); width *= 2) {
    for (size_t lo = 0; lo < items.size(); lo += 2 * width) {
      size_t mid = std::min(lo + width, items.size()), hi = std::min(lo + 2 * width, items.size());
      size_t i = lo, j = mid, k = lo;
      while (i < mid && j < hi) buffer[k++] = less(items[j], items[i]) ? std::move(items[j++]) : std::move(items[i++]);
      while (i < mid) buffer[k++] = std::move(items[i++]);
      while (j < hi) buffer[k++] = std::move(items[j++]);
    }
    items.swap(buffer);
  }
}

}  // namespace

RecognitionRequest VisionRecognizer::request() {
  return RecognitionRequest{RecognitionLevel::accurate, {"zh-Hans", "zh-Hant", "en-US"}, true};
}

OcrPage VisionRecognizer::recognize(const Bitmap& image, int64_t pageNumber,
                                    std::optional<std::string> imagePath) const {
  auto observations = engine_.recognize(image, request());
  if (!observations) {
    throw HelperError(HelperErrorCode::localRuntimeFailed, "Apple Vision text recognition failed");
  }
  const double width = static_cast<double>(image.width());
  const double height = static_cast<double>(image.height());
  std::vector<OcrRegion> regions;
  for (const auto& observation : *observations) {
    if (auto region = regionFrom(observation, width, height)) regions.push_back(std::move(*region));
  }
  stableMergeSort(regions, &VisionRecognizer::readingOrder);

  std::string text;
  for (size_t i = 0; i < regions.size(); ++i) {
    if (i > 0) text += '\n';
    text += regions[i].text;
  }
  return OcrPage{pageNumber, std::move(text), image.width(), image.height(), std::move(imagePath),
                 std::move(regions)};
}

bool VisionRecognizer::readingOrder(const OcrRegion& a, const OcrRegion& b) {
  const double topA = top(a), topB = top(b);
  if (std::fabs(topA - topB) >= kLineTolerance) return topA < topB;
  return left(a) < left(b);
}

}  // namespace kvo
