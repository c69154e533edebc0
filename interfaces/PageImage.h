#pragma once

// The page as engines are handed it and what they measure on it, in page
// pixels (top-left origin).

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace kvo {

// A box in page pixels, top-left origin, right and bottom exclusive.
struct Box {
  int left = 0, top = 0, right = 0, bottom = 0;
  int width() const { return right - left; }
  int height() const { return bottom - top; }
  // A text line's size across itself, whichever way the line runs.
  int thickness() const { return width() < height() ? width() : height(); }
};

// One byte per pixel, rows `width` bytes apart: a page as it is read.
// Owns its pixels.
struct GreyImage {
  uint8_t* data = nullptr;
  int width = 0, height = 0;
  GreyImage() = default;
  ~GreyImage() { std::free(data); }
  GreyImage(const GreyImage&) = delete;
  GreyImage& operator=(const GreyImage&) = delete;
  // Pixels for a width × height page, their levels undefined, replacing
  // any held. False (and the image empty) when the memory cannot be had.
  bool allocate(int w, int h) {
    std::free(data);
    data = w > 0 && h > 0 ? static_cast<uint8_t*>(std::malloc(static_cast<size_t>(w) * static_cast<size_t>(h)))
                          : nullptr;
    width = data != nullptr ? w : 0;
    height = data != nullptr ? h : 0;
    return data != nullptr;
  }
  size_t pixels() const { return static_cast<size_t>(width) * static_cast<size_t>(height); }
  const uint8_t* row(int y) const { return data + static_cast<size_t>(y) * static_cast<size_t>(width); }
  uint8_t* row(int y) { return data + static_cast<size_t>(y) * static_cast<size_t>(width); }
};

// A binarised page (1 = ink) as Leptonica lays one out, and engines hand
// back: rows of 32-bit words, the leftmost pixel in the most significant bit.
struct InkBits {
  const uint32_t* words = nullptr;
  int wordsPerRow = 0;
  int width = 0, height = 0;
  bool ink(int x, int y) const {
    return ((words[static_cast<size_t>(y) * wordsPerRow + (x >> 5)] >> (31 - (x & 31))) & 1) != 0;
  }
};

// Grey levels 0..1 (1 = ink), row by row.
struct Plane {
  int width = 0, height = 0;
  std::vector<float> values;
  float at(int x, int y) const { return values[static_cast<size_t>(y) * width + x]; }
};

// One measure of the slope of a page's text lines (Leptonica's skew
// finder): the angle in degrees, clockwise positive, and the finder's
// confidence, the ratio of the best angle's score to the worst one's over
// the sweep. `found` is false when the finder failed or had too little ink
// to score (it then reports a confidence of 0).
struct SkewMeasure {
  bool found = false;
  double degrees = 0;
  double confidence = 0;
};

}  // namespace kvo
