#pragma once

// What the Tesseract adapter reads off Tesseract and Leptonica for a page:
// regions recognised on their own, the lines and words of a recognition,
// the layout, the skew and turn of a page, and its ink as a local threshold
// finds it. Used by TesseractEngine only.

#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "recognition/LineGeometry.h"
#include "recognition/PageTurn.h"
#include "recognition/ReadLine.h"
#include "interfaces/TextReader.h"

namespace kvo::tesseract_reading {

using recognition::Box;
using recognition::GreyImage;
using recognition::InkBits;
using recognition::ReadLine;

// Largest side Tesseract's layout analysis accepts.
constexpr int64_t kMaxSide = 32767;

// Tesseract's or Leptonica's binarised page (1 = ink) as a page the
// reader hands over; no page unless `binary` is one bit deep and width ×
// height. Takes over and destroys `binary`.
InkPage takeInk(Pix* binary, int width, int height);

// Recognises the part of the page inside `region`, clipped to the page, on
// its own with `api`. Returns false when none of it is on the page or
// recognition fails; the caller reads the result and then clears `api`.
bool recognizeRegion(tesseract::TessBaseAPI& api, const GreyImage& grey, const Box& wanted, int resolution);

// The symbols of what `api` recognised last, their boxes moved by (dx, dy)
// into page coordinates.
std::vector<TextReader::Symbol> symbols(tesseract::TessBaseAPI& api, int dx, int dy);

// The lines of a recognition, boxes moved by (dx, dy) into page
// coordinates, blanks between words measured on `ink` (the page's).
std::vector<ReadLine> readLines(tesseract::TessBaseAPI& api, const InkBits* ink, int dx = 0, int dy = 0);

// The layout analysis of `api`'s page.
TextReader::Layout analyseLayout(tesseract::TessBaseAPI& api);

// How sure `api` is of its reading of `region` of the page, turned as
// `turn` says, as its mean word confidence (0..100); -1 when it cannot be
// read.
int readingConfidence(tesseract::TessBaseAPI& api, const GreyImage& grey, const Box& wanted,
                      TextReader::RegionTurn turn);

// A Leptonica copy of a grey page; null when the memory cannot be had.
Pix* greyPix(const GreyImage& grey);

// The page's ink as a local threshold finds it (Sauvola's, Leptonica's),
// for measuring what a reading left unread (recognition/UnreadInk:
// unreadWidth): each pixel is set against the levels within `halfWindow`
// pixels of it, so light falling off across a photographed sheet does not
// move the ink. Found on the page reduced to half its size (each pixel the
// mean of 2 × 2; the page as read has lines at least
// recognition::kReadableLineHeight pixels thick, so half of that still
// shows glyphs), `halfWindow` and all, which takes a quarter of the time;
// the result is (width / 2) × (height / 2). No page when memory runs out
// or the page is too small.
InkPage localInkAtHalf(const GreyImage& grey, int halfWindow);

// The skew of rows [top, bottom) of `grey` binarised with ink at levels up
// to `inkLevel`, measured with Leptonica's sweep and search on the
// binarisation reduced `reduction` times.
SkewMeasure measureSkew(const GreyImage& grey, int top, int bottom, int inkLevel, int reduction);

// `grey` turned clockwise by `radians` onto the smallest canvas holding all
// of it (Leptonica's area-mapped rotation, corners white) into `turned`.
bool rotate(const GreyImage& grey, double radians, GreyImage& turned);

}  // namespace kvo::tesseract_reading
