// Per-page cost of the PDF page loop, split into its steps, with the real
// platform: own-text extraction and normalisation (all a text-mode page with
// a text layer costs), rendering at 200 dpi, PNG writing, the artifact size
// guard, and recognition.
//
//   pdf_pipeline_bench <document.pdf> <fresh artifacts directory>

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <string>

#include "VisionOcrCore/PdfRenderer.h"
#include "VisionOcrCore/Text.h"
#include "VisionOcrCore/VisionOcrRunner.h"
#include "VisionOcrCore/VisionRecognizer.h"
#include "platform/PopplerPdfLibrary.h"
#include "platform/PosixFileSystem.h"
#include "platform/StandardImageCodec.h"
#include "platform/SteadyClock.h"
#include "platform/TesseractEngine.h"

namespace {

double millisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s <document.pdf> <fresh artifacts directory>\n", argv[0]);
    return 2;
  }
  const std::string input = argv[1], artifacts = argv[2];
  kvo::PosixFileSystem fileSystem;
  kvo::StandardImageCodec codec;
  kvo::PopplerPdfLibrary pdfs;
  kvo::TesseractEngine engine;
  kvo::SteadyClock clock;
  kvo::Platform platform{fileSystem, codec, pdfs, engine, clock};
  const kvo::VisionOcrRunner runner(platform);
  const kvo::VisionRecognizer recognizer(engine);

  auto document = pdfs.open(input);
  if (!document || !fileSystem.createDirectories(artifacts + "/pages")) {
    std::fprintf(stderr, "cannot open %s or create %s/pages\n", input.c_str(), artifacts.c_str());
    return 1;
  }
  std::printf("%4s %9s %9s %9s %9s %11s %12s\n", "page", "text ms", "render ms", "png ms", "guard ms",
              "recognise ms", "size");
  double totals[5] = {};
  const int64_t pages = document->pageCount();
  for (int64_t i = 0; i < pages; ++i) {
    auto page = document->page(i);
    auto t = std::chrono::steady_clock::now();
    const std::string text = kvo::normalizeText(page->text());
    const double textMs = millisecondsSince(t);

    t = std::chrono::steady_clock::now();
    const kvo::PdfBox box = page->mediaBox();
    const kvo::PageRenderSize size = kvo::pageRenderSize(box);
    kvo::Bitmap bitmap = page->render(size.width, size.height, size.width / box.width, size.height / box.height,
                                      -box.x, -box.y);
    bitmap.setPixelsPerInch(size.scale * 72.0);
    const double renderMs = millisecondsSince(t);

    char name[64];
    std::snprintf(name, sizeof name, "pages/page-%04lld.png", static_cast<long long>(i + 1));
    t = std::chrono::steady_clock::now();
    codec.writePng(bitmap, artifacts + "/" + name);
    const double pngMs = millisecondsSince(t);

    t = std::chrono::steady_clock::now();
    runner.assertArtifactSize(artifacts, input);
    const double guardMs = millisecondsSince(t);

    t = std::chrono::steady_clock::now();
    const kvo::OcrPage recognized = recognizer.recognize(bitmap, i + 1, std::string(name));
    const double recognizeMs = millisecondsSince(t);

    const double row[5] = {textMs, renderMs, pngMs, guardMs, recognizeMs};
    for (int k = 0; k < 5; ++k) totals[k] += row[k];
    std::printf("%4lld %9.1f %9.1f %9.1f %9.2f %11.1f %6lldx%lld\n", static_cast<long long>(i + 1), textMs,
                renderMs, pngMs, guardMs, recognizeMs, static_cast<long long>(size.width),
                static_cast<long long>(size.height));
  }
  if (pages > 0) {
    std::printf("mean %9.1f %9.1f %9.1f %9.2f %11.1f\n", totals[0] / pages, totals[1] / pages, totals[2] / pages,
                totals[3] / pages, totals[4] / pages);
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("peak RSS %.1f MiB\n", usage.ru_maxrss / 1024.0);
  return 0;
}
