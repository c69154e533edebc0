#pragma once

// Where a text line lies on its page: the blanks between its words, its
// slope, its corners, the padding kept around it when it is read alone.

#include <optional>

#include "interfaces/PageImage.h"
#include "interfaces/TextRecognitionEngine.h"

namespace kvo::recognition {

using kvo::Box;
using kvo::GreyImage;
using kvo::InkBits;

// The blank between words `a` and `b` of `line`: the longest run of ink-free
// columns (rows for a vertical line) across the line between the middles of
// the two boxes. The boxes LSTM recognition reports for single characters
// can be off by half a character, too rough to tell characters set solid
// from a real gap. Without a page (`page` null), the distance between the boxes.
int blankBetween(const InkBits* page, const Box& line, const Box& a, const Box& b);

// How far the baseline from (x1, y1) to (x2, y2) drops (positive) or rises
// across a horizontal line's `box`, when that is large enough to matter and
// small enough to trust; 0 otherwise.
double baselineDrop(int x1, int y1, int x2, int y2, const Box& box);

// The corners of a line for its observation, normalised to the page: its
// box, or for a sloped line (`drop` != 0) the parallelogram between two
// parallels to the baseline, since the box of a line on a page fed in askew
// is mostly blank and overlaps the lines next to it.
struct Corners {
  NormalizedPoint topLeft, topRight, bottomRight, bottomLeft;
};
Corners lineCorners(const Box& line, double drop, double pageWidth, double pageHeight);

// `region` clipped to a page of width × height; nullopt when none of it is on it.
std::optional<Box> clipToPage(Box region, int width, int height);

// Blank kept around a line read on its own: a quarter of its height, at least 2 pixels.
int linePadding(const Box& line);

// The region a sample line is read from: the line with its padding, at most
// `widest` pixels wide from its padded left edge (any int, INT_MAX included).
Box sampleRegion(const Box& line, int pageWidth, int widest);

}  // namespace kvo::recognition
