#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "interfaces/Bitmap.h"

namespace kvo {

// A rectangle in PDF points: origin (x, y) and size.
struct PdfBox {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
};

class PdfPage {
 public:
  virtual ~PdfPage() = default;
  // The page's media box, unrotated.
  virtual PdfBox mediaBox() = 0;
  // The page's own text from its text layer in reading order, as UTF-8; ""
  // when it has none.
  virtual std::string text() = 0;
  // Renders the media box into a new opaque width × height bitmap: the
  // bitmap is filled with white, drawing coordinates are scaled by
  // (scaleX, scaleY) and then translated by (translateX, translateY) page
  // points, and the page is painted. Returns an invalid Bitmap when the
  // bitmap cannot be allocated or drawn.
  virtual Bitmap render(int64_t width, int64_t height, double scaleX, double scaleY,
                        double translateX, double translateY) = 0;
};

class PdfDocument {
 public:
  virtual ~PdfDocument() = default;
  virtual bool isEncrypted() = 0;
  // True when the document is encrypted and cannot be read without a
  // password; nothing but isEncrypted may be asked of a locked document.
  virtual bool isLocked() = 0;
  // The number of pages the document declares. A declared page may still
  // be impossible to open: page() answers that for each index.
  virtual int64_t pageCount() = 0;
  // The page at a 0-based index; nullptr when it cannot be had.
  virtual std::unique_ptr<PdfPage> page(int64_t index) = 0;
};

class PdfLibrary {
 public:
  virtual ~PdfLibrary() = default;
  // Opens the PDF at `path` without a password. nullptr when the file cannot
  // be parsed as a PDF. A document that needs a user password opens locked.
  virtual std::unique_ptr<PdfDocument> open(const std::string& path) = 0;
};

}  // namespace kvo
