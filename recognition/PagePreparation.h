#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "recognition/PageRaster.h"

namespace kvo::recognition {

// How a grey page is prepared before it is read. Both steps leave the
// geometry of the result alone: inverting moves no pixel, and enlarging by a
// whole factor keeps the page's proportions, so corners normalised to the
// prepared page stand for the same points of the page as given.

// True when the page's ground is darker than its ink (light text on a dark
// ground, as in dark-mode screenshots). The page's grey levels are split in
// two at the level that separates them best (Otsu's criterion); the side
// holding more pixels is the ground, since text covers a minority of any
// page, and the ground is dark when that side is the darker one. A page of
// one level has no ink and is not dark.
bool hasDarkGround(const uint8_t* grey, int width, int height);

// The grey level that best separates the page's ink from its ground
// (Otsu's criterion): levels at or below it are one side, above it the other.
int separatingLevel(const uint8_t* grey, int width, int height);

// Both answers from one pass over the page: whether its ground is dark,
// and the separating level of the page as it is read, that is after
// inverting it when its ground is dark.
struct GroundSplit {
  int level = 127;
  bool darkGround = false;
};
GroundSplit splitGround(const uint8_t* grey, int width, int height);

// Turns every level v into 255 - v.
void invertGrey(uint8_t* grey, size_t count);

// The whole factor (1 when none) by which a page of width × height pixels
// whose text lines are `lineHeights` pixels tall is enlarged before it is
// read, so that its typical (median) line reaches kReadableLineHeight: the
// recogniser reads a line at a fixed height, but the page is binarised and
// its lines found before that, at the size it was given, where strokes of
// small text run together. At most kMaxEnlargement, and never beyond
// `largestSide` pixels a side or kMaxEnlargedPixels in all.
int enlargement(std::vector<int> lineHeights, int width, int height, int largestSide);

// Line height, in pixels, below which a page is enlarged.
constexpr int kReadableLineHeight = 28;
constexpr int kMaxEnlargement = 4;
// Pixels an enlarged page may have (one byte each, plus the recogniser's copies).
constexpr int64_t kMaxEnlargedPixels = 40'000'000;

// The factor (1, 2 or 4) a page `width` pixels wide is reduced by while the
// skew of its lines is measured: the largest that leaves it at least
// kLeastSkewSweepWidth pixels wide. The usual reduction of 4 was made for
// 300-dpi scans some 2500 pixels wide; on a screenshot or a 100-dpi page it
// shrinks the lines to a few pixels, whose slope no longer shows.
int skewReduction(int width);
constexpr int kLeastSkewSweepWidth = 600;

// `grey` (width × height) turned a quarter clockwise (on the screen) or
// counter-clockwise into `out`, which is height × width. False when the
// memory cannot be had.
bool turnGreyQuarter(const GreyImage& grey, int width, int height, bool clockwise, GreyImage& out);

// `grey` (width × height) enlarged `factor` times by bilinear interpolation
// between pixel centres, into `out`. False when the memory cannot be had.
bool enlargeGrey(const GreyImage& grey, int width, int height, int factor, GreyImage& out);

}  // namespace kvo::recognition
