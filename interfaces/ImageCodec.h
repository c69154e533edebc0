#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "interfaces/Bitmap.h"

namespace kvo {

// Container kinds the codec can name. `other` is a recognised image format
// that the helper does not accept (GIF, TIFF, BMP, HEIF, netpbm, ...).
enum class ImageType { png, jpeg, webp, other };

// Width and height as stored in the file's headers, before any orientation.
struct StoredSize {
  int64_t width = 0;
  int64_t height = 0;
};

// An image container opened on a file. Nothing is decoded until decodeUpright.
class ImageSource {
 public:
  virtual ~ImageSource() = default;
  // Number of images (frames) in the container; 0 or less when none.
  virtual int64_t imageCount() = 0;
  // The container's type; nullopt when it has none that is known.
  virtual std::optional<ImageType> type() = 0;
  // The first image's stored pixel size read from the headers alone;
  // nullopt when the headers hold none.
  virtual std::optional<StoredSize> storedSize() = 0;
  // Decodes the first image at full resolution with its stored orientation
  // applied (so width and height may be swapped against storedSize). Returns
  // an invalid Bitmap when decoding fails.
  virtual Bitmap decodeUpright() = 0;
};

enum class PngWriteResult { written, cannotCreate, cannotFinish };

class ImageCodec {
 public:
  virtual ~ImageCodec() = default;
  // Opens an image container on the file at `path`, deciding its type from
  // the content (never the name). nullptr when the file is not a readable
  // image of any kind.
  virtual std::unique_ptr<ImageSource> open(const std::string& path) = 0;
  // Writes `bitmap` as a lossless PNG file at `path`. cannotCreate when the
  // file cannot be created, cannotFinish when writing it did not complete.
  virtual PngWriteResult writePng(const Bitmap& bitmap, const std::string& path) = 0;
};

}  // namespace kvo
