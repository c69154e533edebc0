#pragma once

#include <memory>
#include <string>

#include "platform/ImageCodec.h"

namespace kvo {

// PNG row filters (one fixed filter for every row, or libpng's per-row choice).
enum class PngFilter { none, sub, up, average, paeth, adaptive };

// How writePng compresses. The defaults are the measured best trade-off for
// the pages this helper writes (large, mostly white, printed text): see
// bench/png_write_bench.cpp, which also sweeps the alternatives.
struct PngEncoding {
  int zlibLevel = 1;  // 0 (store) .. 9 (smallest)
  PngFilter filter = PngFilter::up;
  bool runLengthOnly = false;  // zlib Z_RLE strategy instead of the default
};

// The image codec on libpng, libjpeg-turbo, libwebp (+ demux) and libexif.
//
// Contracts beyond ImageCodec:
//  - The type is decided from the leading bytes only: PNG, JPEG and WebP
//    signatures give png/jpeg/webp; GIF, TIFF, BMP, ISO-BMFF still images
//    (HEIF/AVIF brands), netpbm P1-P7, ICO, JPEG 2000 and JPEG XL give
//    `other`, whose sources report no images, no size and decode nothing.
//  - storedSize reads headers only and never allocates pixel memory, so it is
//    safe on files that declare absurd sizes.
//  - decodeUpright yields rgb8 for opaque images and rgba8 (straight alpha)
//    for images that carry alpha (PNG alpha channel or tRNS, WebP alpha).
//    JPEG EXIF orientation is applied; no other orientation metadata is.
//    Truncated or corrupt pixel data gives an invalid Bitmap.
//  - Nothing is ever written to the process's stdout or stderr, and no
//    library is allowed to abort the process.
class StandardImageCodec final : public ImageCodec {
 public:
  StandardImageCodec() = default;
  explicit StandardImageCodec(const PngEncoding& encoding) : encoding_(encoding) {}

  std::unique_ptr<ImageSource> open(const std::string& path) override;
  PngWriteResult writePng(const Bitmap& bitmap, const std::string& path) override;

 private:
  PngEncoding encoding_;
};

}  // namespace kvo
