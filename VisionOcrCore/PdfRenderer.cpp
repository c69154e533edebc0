#include "VisionOcrCore/PdfRenderer.h"

#include <cmath>

#include "VisionOcrCore/Models.h"

namespace kvo {

namespace {

[[noreturn]] void fail(HelperErrorCode code, const char* message) { throw HelperError(code, message); }

[[noreturn]] void tooManyPixels() {
  fail(HelperErrorCode::resourceLimitExceeded, "PDF page pixel count exceeds limit");
}

// A pixel count from a rounded double. Boxes so large that the count is not
// a finite 64-bit integer have no size within the limit either.
int64_t pixelCount(double rounded) {
  if (!(rounded < 9.2e18)) tooManyPixels();
  return std::max<int64_t>(1, static_cast<int64_t>(rounded));
}

__int128 product(int64_t w, int64_t h) { return static_cast<__int128>(w) * h; }

}  // namespace

PageRenderSize pageRenderSize(const PdfBox& box) {
  if (!(box.width > 0) || !(box.height > 0)) {
    fail(HelperErrorCode::invalidInput, "PDF page has invalid dimensions");
  }
  PageRenderSize size;
  size.width = pixelCount(std::ceil(box.width * kPdfRenderScale));
  size.height = pixelCount(std::ceil(box.height * kPdfRenderScale));
  if (product(size.width, size.height) > kMaxPagePixels) {
    // Shrink once; rounding down so the result does not overshoot again.
    const double factor =
        std::sqrt(static_cast<double>(kMaxPagePixels) / static_cast<double>(product(size.width, size.height)));
    size.scale = kPdfRenderScale * factor;
    size.width = pixelCount(std::floor(box.width * size.scale));
    size.height = pixelCount(std::floor(box.height * size.scale));
  }
  if (product(size.width, size.height) > kMaxPagePixels) tooManyPixels();
  return size;
}

Bitmap PdfRenderer::render(PdfPage& page, const std::string& path) const {
  const PdfBox box = page.mediaBox();
  const PageRenderSize size = pageRenderSize(box);
  // Scale by the final integer sizes so the media box fills the bitmap
  // exactly; the translation is in page points and puts the box's origin on
  // the bitmap's origin.
  Bitmap bitmap = page.render(size.width, size.height, static_cast<double>(size.width) / box.width,
                              static_cast<double>(size.height) / box.height, -box.x, -box.y);
  if (!bitmap.valid()) fail(HelperErrorCode::localRuntimeFailed, "Failed to allocate PDF page bitmap");
  if (bitmap.width() != size.width || bitmap.height() != size.height) {
    fail(HelperErrorCode::localRuntimeFailed, "Failed to create PDF page image");
  }
  bitmap.setPixelsPerInch(size.scale * 72.0);
  writePng(bitmap, path);
  return bitmap;
}

void PdfRenderer::writePng(const Bitmap& bitmap, const std::string& path) const {
  switch (imageCodec_.writePng(bitmap, path)) {
    case PngWriteResult::written:
      return;
    case PngWriteResult::cannotCreate:
      fail(HelperErrorCode::localRuntimeFailed, "Failed to create PDF page artifact");
    case PngWriteResult::cannotFinish:
      fail(HelperErrorCode::localRuntimeFailed, "Failed to write PDF page artifact");
  }
  fail(HelperErrorCode::localRuntimeFailed, "Failed to write PDF page artifact");
}

}  // namespace kvo
