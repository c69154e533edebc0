#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "VisionOcrCore/Limits.h"
#include "interfaces/Bitmap.h"
#include "interfaces/FileSystem.h"
#include "interfaces/ImageCodec.h"
#include "interfaces/PdfLibrary.h"

namespace kvo {

// Leading bytes read to tell a PDF from an image.
inline constexpr size_t kSniffLength = 1'024;

// A decoded raster input: the first image of the file, upright.
struct LoadedImage {
  Bitmap bitmap;
};

// The opened input: a decoded image or an open, checked PDF document.
using InputKind = std::variant<LoadedImage, std::unique_ptr<PdfDocument>>;

// The single entry into the input file: checks it, decides by content
// whether it is a PDF (the signature "%PDF-" within its first 1,024 bytes,
// whatever its name) or an image, and opens it.
class InputLoader {
 public:
  InputLoader(FileSystem& fileSystem, ImageCodec& imageCodec, PdfLibrary& pdfLibrary)
      : fileSystem_(fileSystem), imageCodec_(imageCodec), pdfLibrary_(pdfLibrary) {}

  // Throws HelperError for every refusal. A failing read of the leading bytes
  // is not translated: the file system's std::system_error passes through.
  InputKind load(const std::string& path) const;

 private:
  bool isPdf(const std::string& path) const;
  LoadedImage loadImage(const std::string& path) const;
  std::unique_ptr<PdfDocument> loadPdf(const std::string& path) const;

  FileSystem& fileSystem_;
  ImageCodec& imageCodec_;
  PdfLibrary& pdfLibrary_;
};

}  // namespace kvo
