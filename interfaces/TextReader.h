#pragma once

// The reader port: what the page-reading policy (recognition/PageReading)
// needs of a recognition engine, and no more. The policy decides in what
// order a page is prepared, sampled and read, and with which models; a
// reader only runs the engine on the grey page it is handed and reports what
// the engine found, in that page's pixels.
//
// Models are named by the engine's own codes joined by '+' ("chi_sim+eng"),
// as recognition/ReadingPlan gives them. A reader loads a combination the
// first time it is asked for it. When a model fails to load, the reader is
// failed for good: that call and every later one reports nothing, and
// `failed()` tells the policy why.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unicode/umachine.h>

#include "interfaces/PageImage.h"
#include "interfaces/ReadText.h"

namespace kvo {

// A binarised page (1 = ink) the reader made and hands over.
class InkPage {
 public:
  InkPage() = default;
  InkPage(std::vector<uint32_t> words, int wordsPerRow, int width, int height)
      : words_(std::move(words)), bits_{nullptr, wordsPerRow, width, height} {
    bits_.words = words_.data();
  }
  // A moved vector keeps its buffer, so `bits_` stays valid.
  InkPage(InkPage&&) noexcept = default;
  InkPage& operator=(InkPage&&) noexcept = default;
  InkPage(const InkPage&) = delete;
  InkPage& operator=(const InkPage&) = delete;
  // Null when there is no page (the engine kept none, or it has another size).
  const InkBits* bits() const { return words_.empty() ? nullptr : &bits_; }
  int width() const { return bits_.width; }
  int height() const { return bits_.height; }

 private:
  std::vector<uint32_t> words_;
  InkBits bits_;
};

class TextReader {
 public:
  // How a page or region is segmented before it is read: a page in the
  // engine's automatic layout, a region as one line, or a page of sparse
  // text (remnants in no layout of columns and blocks).
  enum class Segmentation { page, line, sparse };
  // How the engine binarises what it reads: at one level for all of it, or
  // against the levels around each pixel.
  enum class Thresholding { global, local };
  // How a region is turned before it is read.
  enum class RegionTurn { none, clockwise, counterClockwise, half };

  // What the layout analysis of a page found.
  struct Layout {
    // Its text lines, in reading order.
    std::vector<Box> lines;
    // The area of the lines that run across the page, and of those that
    // run from top to bottom (which the engine takes for vertical writing).
    int64_t across = 0, down = 0;
    // The resolution the engine read the page at: the one given, or its
    // own estimate from the text's size when none was.
    int resolution = 0;
    bool mostlyDown() const { return down > across; }
  };

  // A page as read: its lines, the page as the engine binarised it, and
  // the resolution it was read at (the one given, or the engine's estimate).
  struct PageText {
    std::vector<ReadLine> lines;
    InkPage ink;
    int resolution = 0;
  };

  // One symbol of a reading, where the engine placed it, in page pixels.
  struct Symbol {
    std::string text;  // UTF-8
    double confidence = 0;  // 0..100
    Box box;
  };

  virtual ~TextReader() = default;

  // True once a model has failed to load.
  virtual bool failed() const = 0;

  // The largest side of a page the engine reads.
  virtual int largestSide() const = 0;

  // The layout of `page` at `ppi` (0: unknown), found with `models`. nullopt when they fail to load.
  virtual std::optional<Layout> findLayout(const std::string& models, const GreyImage& page, int ppi) = 0;

  // `page` read with `models` (segmentation page or sparse), words joined
  // into lines with the blanks between them measured on the engine's own
  // binarisation. nullopt when the models fail to load or recognition fails.
  virtual std::optional<PageText> readPage(const std::string& models, Segmentation segmentation,
                                           Thresholding thresholding, const GreyImage& page, int ppi) = 0;

  // `region` of `page` (clipped to it) read as one line at `resolution`,
  // boxes in page pixels, blanks measured on `ink` (the page's). nullopt
  // when none of the region is on the page, the models fail to load or
  // recognition fails.
  virtual std::optional<std::vector<ReadLine>> readRegion(const std::string& models, const GreyImage& page,
                                                          const Box& region, int resolution, const InkBits* ink) = 0;

  // The symbols of `region` of `page` read as one line at `resolution`, in
  // reading order; none when it cannot be read.
  virtual std::vector<Symbol> readSymbols(const std::string& models, const GreyImage& page, const Box& region,
                                          int resolution) = 0;

  // How sure `models` are of their reading of `region` of `page` as one
  // line, turned as `turn` says: the mean word confidence, 0..100; -1 when
  // it cannot be read.
  virtual int readingConfidence(const std::string& models, const GreyImage& page, const Box& region,
                                RegionTurn turn) = 0;

  // The skew of the text lines in rows [top, bottom) of `page` binarised
  // with ink at levels up to `inkLevel`, measured on the binarisation
  // reduced `reduction` times (recognition/PagePreparation).
  virtual SkewMeasure measureSkew(const GreyImage& page, int inkLevel, int reduction, int top, int bottom) = 0;

  // `page` turned clockwise by `radians` about its centre onto the smallest
  // canvas that holds all of it, the corners brought in white, into
  // `turned`. False when memory runs out or the canvas outgrows
  // largestSide().
  virtual bool rotate(const GreyImage& page, double radians, GreyImage& turned) = 0;

  // The ink of `page` as a local threshold with a window of `halfWindow`
  // pixels on each side finds it, found on the page reduced to half its size
  // (recognition/UnreadInk); (width / 2) × (height / 2). No page when memory
  // runs out or the page is too small.
  virtual InkPage localInkAtHalf(const GreyImage& page, int halfWindow) = 0;

  // `c` drawn in reference typefaces of its script (recognition/GlyphForms:
  // FormDrawer).
  virtual std::vector<Plane> drawReferenceGlyph(UChar32 c, bool traditional, int em) = 0;
};

}  // namespace kvo
