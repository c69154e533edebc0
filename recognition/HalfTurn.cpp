#include "recognition/HalfTurn.h"

#include <algorithm>
#include <cmath>

#include "recognition/ScriptSample.h"

namespace kvo::recognition {

bool doubtfulReading(const std::vector<TextObservation>& observations) {
  std::vector<float> confidences;
  for (const TextObservation& o : observations)
    if (o.candidate) confidences.push_back(o.candidate->confidence);
  if (confidences.empty()) return false;
  const auto middle = confidences.begin() + static_cast<std::ptrdiff_t>(confidences.size() / 2);
  std::nth_element(confidences.begin(), middle, confidences.end());
  return *middle < kDoubtfulConfidence;
}

std::vector<Box> boxesWithText(const std::vector<TextObservation>& observations, int width, int height) {
  std::vector<Box> boxes;
  for (const TextObservation& o : observations) {
    if (!o.candidate) continue;
    double left = width, top = height, right = 0, bottom = 0;
    for (const NormalizedPoint& p : {o.topLeft, o.topRight, o.bottomRight, o.bottomLeft}) {
      // Corners are normalised with the origin at the bottom left.
      const double x = p.x * width, y = (1 - p.y) * height;
      left = std::min(left, x);
      right = std::max(right, x);
      top = std::min(top, y);
      bottom = std::max(bottom, y);
    }
    if (right <= left || bottom <= top) continue;
    // Rounded: the corners were pixel positions before they were normalised.
    boxes.push_back(Box{static_cast<int>(std::lround(left)), static_cast<int>(std::lround(top)),
                        static_cast<int>(std::lround(right)), static_cast<int>(std::lround(bottom))});
  }
  return boxes;
}

bool readsUpsideDown(const std::vector<Box>& lines, const LineConfidence& confidence) {
  std::vector<Box> sampleable;
  std::copy_if(lines.begin(), lines.end(), std::back_inserter(sampleable), isSampleLine);
  Votes differences;
  size_t read = 0;
  for (const Box& line : sampleOrder(sampleable)) {
    if (read++ == kMostHalfTurnLines) break;
    const int standing = confidence(line, false);
    const int turned = confidence(line, true);
    if (standing < 0 || turned < 0) continue;
    differences.add(static_cast<double>(turned - standing));
    if (settled(differences)) break;
  }
  return settled(differences) && differences.rankSum() > 0;
}

}  // namespace kvo::recognition
