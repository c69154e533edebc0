#pragma once

// What the Tesseract adapter reads off Tesseract and Leptonica for a page:
// regions recognised on their own, the lines and words of a recognition,
// the layout, and the page turned straight. Used by TesseractEngine only.

#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "recognition/PageRaster.h"
#include "recognition/PageTurn.h"
#include "recognition/ReadLine.h"
#include "recognition/ScriptDecision.h"

namespace kvo::tesseract_reading {

using recognition::Box;
using recognition::GreyImage;
using recognition::HanReading;
using recognition::InkBits;
using recognition::ReadLine;
using recognition::ScriptForms;

// Largest side Tesseract's layout analysis accepts.
constexpr int64_t kMaxSide = 32767;

// Tesseract's binarised page (1 = ink), on which the blanks between words
// are measured.
class InkMap {
 public:
  // Takes over `binary`; uses it only when it has the page's size.
  InkMap(Pix* binary, int width, int height) : pix_(binary) {
    if (pix_ != nullptr && pixGetDepth(pix_) == 1 && static_cast<int>(pixGetWidth(pix_)) == width &&
        static_cast<int>(pixGetHeight(pix_)) == height)
      bits_ = InkBits{pixGetData(pix_), static_cast<int>(pixGetWpl(pix_)), width, height};
  }
  ~InkMap() { pixDestroy(&pix_); }
  InkMap(const InkMap&) = delete;
  InkMap& operator=(const InkMap&) = delete;
  // Null when the page image is not available.
  const InkBits* bits() const { return bits_.words != nullptr ? &bits_ : nullptr; }

 private:
  Pix* pix_;
  InkBits bits_;
};

// Recognises the part of the page inside `region`, clipped to the page, on
// its own with `api`. Returns false when none of it is on the page or
// recognition fails; the caller reads the result and then clears `api`.
bool recognizeRegion(tesseract::TessBaseAPI& api, const GreyImage& grey, int width, int height, const Box& wanted,
                     int resolution);

// The Han characters of what `api` recognised last, their boxes moved by
// (dx, dy) into page coordinates.
HanReading hanReading(tesseract::TessBaseAPI& api, const ScriptForms& forms, int dx, int dy);

// The lines of a recognition, boxes moved by (dx, dy) into page
// coordinates, blanks between words measured on `ink` (the page's).
std::vector<ReadLine> readLines(tesseract::TessBaseAPI& api, const InkBits* ink, int dx = 0, int dy = 0);

// What the layout analysis of a page finds.
struct Layout {
  // Its text lines, in reading order.
  std::vector<Box> lines;
  // The area of the lines that run across the page, and of those that run
  // from top to bottom. Tesseract takes lines of the second kind for
  // vertical writing and reads them turned a quarter, whichever way the
  // glyphs stand; it cannot tell a page turned clockwise from one turned
  // the other way.
  int64_t across = 0, down = 0;
  bool mostlyDown() const { return down > across; }
};

// The layout analysis of `api`'s page.
Layout analyseLayout(tesseract::TessBaseAPI& api);

// How a region is turned before it is read.
enum class RegionTurn { none, clockwise, counterClockwise, half };

// How sure `api` is of its reading of `region` of the page, turned as
// `turn` says, as its mean word confidence (0..100); -1 when it cannot be
// read.
int readingConfidence(tesseract::TessBaseAPI& api, const GreyImage& grey, int width, int height,
                      const Box& wanted, RegionTurn turn);

// How thick each line is: its height, or its width when it stands upright.
std::vector<int> lineThicknesses(const std::vector<Box>& lines);

// A Leptonica copy of a grey page; null when the memory cannot be had.
Pix* greyPix(const GreyImage& grey, int width, int height);

// The page's ink as a local threshold finds it (Sauvola's, Leptonica's),
// for measuring what a reading left unread (recognition/UnreadInk:
// unreadWidth): each pixel is set against the levels within `halfWindow`
// pixels of it, so light falling off across a photographed sheet does not
// move the ink. Found on the page reduced to half its size (each pixel the
// mean of 2 × 2; the page as read has lines at least
// recognition::kReadableLineHeight pixels thick, so half of that still
// shows glyphs), `halfWindow` and all, which takes a quarter of the time;
// the result is (width / 2) × (height / 2), and the caller owns it. Null
// when memory runs out or the page is too small.
Pix* localInkAtHalf(const GreyImage& grey, int width, int height, int halfWindow);

// The page straightened when its text lines slope, found on the page
// binarised with ink at levels up to `inkLevel`: `turned` holds the
// straight page and the result says how it maps back. nullopt when the page
// is straight, no slope is found with confidence, or memory runs out.
std::optional<recognition::PageTurn> straighten(const GreyImage& grey, int width, int height, int inkLevel,
                                                GreyImage& turned);

}  // namespace kvo::tesseract_reading
