// PDF opening and page rendering at a small scale on arbitrary bytes: the
// document opens or is refused, a locked one is only asked whether it is
// locked, and every page that renders has exactly the requested size.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "FuzzSupport.h"
#include "platform/PopplerPdfLibrary.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static kvo::PopplerPdfLibrary library;
  auto document = library.open(kvo::fuzz::writeInput(data, size));
  if (!document) return 0;
  if (document->isEncrypted() && document->isLocked()) return 0;
  const int64_t pages = std::min<int64_t>(document->pageCount(), 2);
  for (int64_t i = 0; i < pages; ++i) {
    auto page = document->page(i);
    if (!page) continue;
    (void)page->text();
    const kvo::PdfBox box = page->mediaBox();
    if (!(box.width > 0) || !(box.height > 0) || !std::isfinite(box.width) || !std::isfinite(box.height)) continue;
    // About 10 dpi, at most 200 × 200 pixels.
    const double scale = std::min(10.0 / 72.0, 200.0 / std::max(box.width, box.height));
    const int64_t w = std::max<int64_t>(1, static_cast<int64_t>(std::ceil(box.width * scale)));
    const int64_t h = std::max<int64_t>(1, static_cast<int64_t>(std::ceil(box.height * scale)));
    if (w > 400 || h > 400) continue;
    kvo::Bitmap bitmap = page->render(w, h, w / box.width, h / box.height, -box.x, -box.y);
    if (bitmap.valid() && (bitmap.width() != w || bitmap.height() != h)) std::abort();
  }
  return 0;
}
