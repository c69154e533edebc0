#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "platform/Bitmap.h"
#include "platform/FileSystem.h"
#include "platform/ImageCodec.h"
#include "platform/PdfLibrary.h"

namespace kvo {

inline constexpr uint64_t kMaxInputBytes = 536'870'912;  // inclusive
inline constexpr size_t kSniffLength = 1'024;
inline constexpr int64_t kMaxImagePixels = 25'000'000;  // inclusive
inline constexpr int64_t kMaxPdfPages = 500;             // inclusive

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
