#include "VisionOcrCore/InputLoader.h"

#include <algorithm>
#include <string_view>

#include "VisionOcrCore/Models.h"

namespace kvo {

namespace {

[[noreturn]] void fail(HelperErrorCode code, const char* message) { throw HelperError(code, message); }

}  // namespace

InputKind InputLoader::load(const std::string& path) const {
  auto metadata = fileSystem_.metadata(path);
  if (!metadata) fail(HelperErrorCode::invalidInput, "Input file is missing");
  // A directory reports the same as a missing file, on purpose.
  if (metadata->isRegularFile != true) fail(HelperErrorCode::invalidInput, "Input file is missing");
  if (!metadata->size || *metadata->size == 0) fail(HelperErrorCode::invalidInput, "Input file is empty");
  // Checked before a byte is read, so an oversized input is never opened.
  if (*metadata->size > kMaxInputBytes) fail(HelperErrorCode::resourceLimitExceeded, "Input exceeds size limit");

  if (isPdf(path)) return loadPdf(path);
  return loadImage(path);
}

bool InputLoader::isPdf(const std::string& path) const {
  auto file = fileSystem_.openForReading(path);
  if (!file) fail(HelperErrorCode::invalidInput, "Input file cannot be read");
  // The handle closes when `file` goes out of scope, also when read throws.
  const std::vector<uint8_t> prefix = file->read(kSniffLength);
  static constexpr std::string_view kSignature = "%PDF-";
  return std::search(prefix.begin(), prefix.end(), kSignature.begin(), kSignature.end()) != prefix.end();
}

LoadedImage InputLoader::loadImage(const std::string& path) const {
  constexpr const char* kUnsupported = "Unsupported or invalid input format";
  auto source = imageCodec_.open(path);
  if (!source) fail(HelperErrorCode::invalidInput, kUnsupported);
  if (source->imageCount() <= 0) fail(HelperErrorCode::invalidInput, kUnsupported);
  auto type = source->type();
  if (!type || *type == ImageType::other) fail(HelperErrorCode::invalidInput, kUnsupported);

  auto size = source->storedSize();
  if (!size) fail(HelperErrorCode::invalidInput, "Failed to read image dimensions");
  if (size->width <= 0 || size->height <= 0) fail(HelperErrorCode::invalidInput, "Image dimensions are invalid");
  // On the stored size, before any pixel is decoded. An overflowing product
  // is necessarily over the limit.
  int64_t pixels = 0;
  if (__builtin_mul_overflow(size->width, size->height, &pixels) || pixels > kMaxImagePixels) {
    fail(HelperErrorCode::resourceLimitExceeded, "Image pixel count exceeds limit");
  }

  Bitmap bitmap = source->decodeUpright();
  if (!bitmap.valid()) fail(HelperErrorCode::invalidInput, "Failed to decode image");
  return LoadedImage{std::move(bitmap)};
}

std::unique_ptr<PdfDocument> InputLoader::loadPdf(const std::string& path) const {
  auto document = pdfLibrary_.open(path);
  if (!document) fail(HelperErrorCode::invalidInput, "Failed to open PDF");
  if (document->isEncrypted() && document->isLocked()) {
    fail(HelperErrorCode::encryptedPdf, "PDF requires a password");
  }
  const int64_t pages = document->pageCount();
  if (pages <= 0) fail(HelperErrorCode::invalidInput, "PDF has no pages");
  if (pages > kMaxPdfPages) fail(HelperErrorCode::resourceLimitExceeded, "PDF page count exceeds limit");
  return document;
}

}  // namespace kvo
