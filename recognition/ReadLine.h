#pragma once

#include <vector>

#include "recognition/LineText.h"
#include "recognition/PageRaster.h"

namespace kvo::recognition {

// One text line as recognition read it: its box and the words on it.
struct ReadLine {
  Box box;
  bool placed = false;  // false for a line without a box, which is left out
  // How far the baseline drops (positive) or rises from the left edge of
  // the box to the right edge, in pixels; 0 for a level line.
  double drop = 0;
  float confidence = 0;  // 0..100
  std::vector<Word> words;
  // Parallel to `words`: each one's box and confidence (0..100).
  std::vector<Box> boxes;
  std::vector<float> confidences;
};

}  // namespace kvo::recognition
