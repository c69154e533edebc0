#pragma once

#include <memory>
#include <string>

#include "interfaces/PdfLibrary.h"

namespace kvo {

// PdfLibrary over Poppler's core (PDFDoc, SplashOutputDev, TextOutputDev).
//
// The first construction sets up Poppler for the whole process: its global
// parameters and an error callback that discards every diagnostic, because
// Poppler would otherwise print syntax errors and warnings to stderr and the
// host reads this process's output byte for byte. Nothing else in the process
// may install a different Poppler error callback.
//
// Documents and pages are not thread-safe: use one document from one thread
// at a time. A page keeps its document alive.
class PopplerPdfLibrary final : public PdfLibrary {
 public:
  PopplerPdfLibrary();
  std::unique_ptr<PdfDocument> open(const std::string& path) override;

  // Whether a stream filter of this name decodes to image samples (JBIG2,
  // JPEG, JPEG 2000, CCITT fax). A page's content stream through one holds
  // no drawing operators: pages draw and read as if it were empty, without
  // decoding it.
  static bool decodesToImage(const std::string& filter);
};

}  // namespace kvo
