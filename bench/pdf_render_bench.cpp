// Times the PDF library on one file: renders page 1 at 200 dpi a number of
// times and extracts its text, printing milliseconds per operation.
//
//   pdf_render_bench FILE.pdf [RENDERS]

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/PopplerPdfLibrary.h"

namespace {

double millisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s FILE.pdf [RENDERS]\n", argv[0]);
    return 2;
  }
  const int renders = argc == 3 ? std::atoi(argv[2]) : 10;
  if (renders <= 0) {
    std::fprintf(stderr, "RENDERS must be a positive number\n");
    return 2;
  }

  kvo::PopplerPdfLibrary library;
  auto start = std::chrono::steady_clock::now();
  auto doc = library.open(argv[1]);
  const double openMs = millisecondsSince(start);
  if (doc == nullptr || doc->isLocked() || doc->pageCount() < 1) {
    std::fprintf(stderr, "%s: cannot open, locked, or no pages\n", argv[1]);
    return 1;
  }
  auto page = doc->page(0);
  if (page == nullptr) {
    std::fprintf(stderr, "%s: page 1 cannot be read\n", argv[1]);
    return 1;
  }
  const kvo::PdfBox box = page->mediaBox();
  const double scale = 200.0 / 72.0;
  const auto width = static_cast<int64_t>(std::lround(box.width * scale));
  const auto height = static_cast<int64_t>(std::lround(box.height * scale));
  std::printf("%s: %lld page(s), page 1 %.2f x %.2f pt, open %.2f ms\n", argv[1],
              static_cast<long long>(doc->pageCount()), box.width, box.height, openMs);

  double firstMs = 0, totalMs = 0, bestMs = 1e300;
  for (int i = 0; i < renders; ++i) {
    start = std::chrono::steady_clock::now();
    const kvo::Bitmap bitmap = page->render(width, height, scale, scale, -box.x, -box.y);
    const double ms = millisecondsSince(start);
    if (!bitmap.valid()) {
      std::fprintf(stderr, "render failed\n");
      return 1;
    }
    if (i == 0) firstMs = ms;
    totalMs += ms;
    bestMs = std::min(bestMs, ms);
  }
  std::printf("render 200 dpi (%lld x %lld): %.2f ms per render (first %.2f ms, best %.2f ms, %d renders)\n",
              static_cast<long long>(width), static_cast<long long>(height), totalMs / renders, firstMs,
              bestMs, renders);

  start = std::chrono::steady_clock::now();
  const std::string text = page->text();
  std::printf("text: %.2f ms (%zu bytes)\n", millisecondsSince(start), text.size());
  return 0;
}
