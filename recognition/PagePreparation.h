#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "recognition/LineGeometry.h"
#include "recognition/PageTurn.h"

namespace kvo::recognition {

using kvo::SkewMeasure;

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
// inverting it when its ground is dark; and that of the page as given
// (separatingLevel), the same when its ground is light.
struct GroundSplit {
  int level = 127;
  bool darkGround = false;
  int givenLevel = 127;
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

// How thick each line is: its height, or its width when it stands upright.
std::vector<int> lineThicknesses(const std::vector<Box>& lines);

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


// How the skew is measured: a sweep over ±kSkewSweepDegrees in steps of
// kSkewSweepStep, then a search around the best step down to
// kSkewLeastSearchStep (Leptonica's usual steps).
constexpr double kSkewSweepDegrees = 7.0;
constexpr double kSkewSweepStep = 1.0;
constexpr double kSkewLeastSearchStep = 0.01;

// The angle in degrees a page is turned by to straighten it, from the
// measure of the whole page and, when `asksForHalves` says so, of its top
// and bottom halves measured apart; nullopt leaves the page as it is.
//
// A turn must reach kLeastSkewDegrees; smaller slopes do the reading no
// harm, and turning resamples every pixel. The angle is trusted as found
// when the confidence reaches kLeastSkewConfidence, the minimum of
// Leptonica's own deskewing. Chinese text rarely gets there: its square
// glyphs fill their lines evenly, so the page scores high at every angle
// and the ratio stays low even when the angle is exact. Below that
// confidence an angle is trusted when
// - the sweep itself found the page off straight: the angle is at least
//   half a sweep step, so the best step was not 0°. A search refining 0°
//   on a flat score lands a few tenths of a degree off on straight pages
//   of short lines; and
// - both halves, each a measure of its own lines, find it too, to within
//   kLeastSkewDegrees: printed lines slope alike all down a page, while an
//   angle found in pictures, rules, noise or lines running down the page
//   is not the same in both.
// Without both halves' measures such a page is left as it is.
std::optional<double> straighteningAngle(const SkewMeasure& whole, const std::optional<SkewMeasure>& top,
                                         const std::optional<SkewMeasure>& bottom);
// True when straighteningAngle needs the halves to decide on `whole`.
bool asksForHalves(const SkewMeasure& whole);
constexpr double kLeastSkewDegrees = 0.1;
constexpr double kLeastSkewConfidence = 3.0;

// The level of a page's ground: the median of its levels above `level`
// (its separating level), the side that holds the ground. 255 when the page
// holds nothing; `level` when nothing lies above it.
int groundLevel(const GreyImage& grey, int level);

// The corners of a page turned straight that the page as given does not
// cover: in `turned` (a page turned by `turn`, on its canvas of
// turn.turnedWidth × turn.turnedHeight), every pixel whose centre lies less
// than kTurnedEdgeBand pixels inside the page as given, or outside it, is
// set to `ground`, the page's ground level (groundLevel). The turn brings
// in those corners white; white on a photograph whose sheet is grey and lit
// unevenly is a level lighter than all of the sheet, and a binarisation
// that separates the page's levels globally (as Tesseract's does) then puts
// the sheet's darker part on the ink's side and its text with it: every
// line loses the part that lies where the light falls off. At the ground's
// own level, the corners join the ground's side of any separation without
// adding a level of their own. The band takes in the pixels along the edge
// that the turn blended with the corners.
void fillTurnedCorners(const PageTurn& turn, int ground, GreyImage& turned);
constexpr double kTurnedEdgeBand = 1.0;

// `grey` (width × height) turned a quarter clockwise (on the screen) or
// counter-clockwise into `out`, which is height × width. False when the
// memory cannot be had.
bool turnGreyQuarter(const GreyImage& grey, bool clockwise, GreyImage& out);

// `grey` (width × height) turned half a turn (upside down) into `out`, of
// the same size. False when the memory cannot be had.
bool turnGreyHalf(const GreyImage& grey, GreyImage& out);

// `grey` (width × height) enlarged `factor` times by bilinear interpolation
// between pixel centres, into `out`. False when the memory cannot be had.
bool enlargeGrey(const GreyImage& grey, int factor, GreyImage& out);

// A sheet photographed on a darker surface, as the page's ground: `out` is
// `grey` with every pixel at or below `level` (the page's separating level)
// that joins the page's edge through such pixels (4-neighbours) set to the
// median level of the pixels above `level`. On such a photograph the page's
// grey levels separate best between the surface and the sheet, and grey
// print on the sheet falls on the sheet's side, so a binarisation at that
// level holds no text; with the surface made sheet, the levels separate
// between print and sheet again. A surface lit unevenly keeps a lighter
// part above `level`, which the new levels separate from the sheet in turn:
// the clearing is repeated at the separating level of what it left, until
// no pixel on the darker side touches the edge, at most kMostSurroundRounds
// times. False (and `out` untouched) when no such pixel touches the edge to
// begin with, nothing lies above `level`, or the memory cannot be had.
bool clearSurround(const GreyImage& grey, int level, GreyImage& out);
constexpr int kMostSurroundRounds = 4;

}  // namespace kvo::recognition
