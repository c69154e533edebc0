#pragma once

// Text as an engine read it: lines of words, each placed on the page.

#include <string>
#include <vector>

#include "interfaces/PageImage.h"

namespace kvo {

// One recognised word of a line.
struct Word {
  std::string text;  // UTF-8, no white space
  // Blank pixels between the ink of the previous word and this one along the
  // line (0 for the first word).
  int gapBefore = 0;
};

// One text line as an engine read it: its box and the words on it.
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

}  // namespace kvo
