#pragma once

#include <cstdint>
#include <string>

#include "VisionOcrCore/Limits.h"
#include "interfaces/Bitmap.h"
#include "interfaces/ImageCodec.h"
#include "interfaces/PdfLibrary.h"

namespace kvo {

inline constexpr double kPdfRenderScale = 200.0 / 72.0;  // pixels per point at 200 dpi

// Pixel size of a rendered page and the points-to-pixels scale that gave it.
struct PageRenderSize {
  int64_t width = 0;
  int64_t height = 0;
  double scale = kPdfRenderScale;
};

// The bitmap size for a media box: 200 dpi rounded up, or, when that is over
// the pixel limit, shrunk once to fit and rounded down. Throws
// HelperError "PDF page has invalid dimensions" for a box that is not
// positive and "PDF page pixel count exceeds limit" when no size fits
// (extreme aspect ratios, or boxes too large for any integer size).
PageRenderSize pageRenderSize(const PdfBox& mediaBox);

// Renders one PDF page onto white and saves it as a PNG artifact.
class PdfRenderer {
 public:
  explicit PdfRenderer(ImageCodec& imageCodec) : imageCodec_(imageCodec) {}

  // Renders the page's media box to an opaque bitmap of pageRenderSize,
  // writes it as PNG to `path` and returns it: the file is complete when
  // this returns. Throws HelperError on every failure; a PNG file that
  // failed midway may remain.
  Bitmap render(PdfPage& page, const std::string& path) const;

 private:
  void writePng(const Bitmap& bitmap, const std::string& path) const;

  ImageCodec& imageCodec_;
};

}  // namespace kvo
