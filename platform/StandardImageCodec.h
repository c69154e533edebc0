#pragma once

#include <memory>
#include <string>

#include "platform/ImageCodec.h"

namespace kvo {

// PNG row filters (one fixed filter for every row, or libpng's per-row choice).
enum class PngFilter { none, sub, up, average, paeth, adaptive };

// How writePng compresses. The defaults are the measured best trade-off for
// the pages this helper writes; bench/png_write_bench.cpp sweeps the
// alternatives. On a 1700×2200 rgb8 page, the "up" filter turns rows that
// repeat the row above (most of a printed page) into zeros, and zlib's
// run-length strategy encodes those runs faster than LZ77 matching and
// smaller, too: ~17 ms / 135 KB for clean printed text against ~18 ms /
// 223 KB for level 1 with the default strategy, and ~100-140 ms / 5.4 MB
// against ~200 ms / 6.2 MB for the same text scanned (shaded, noisy paper).
// Under the run-length strategy the zlib level only matters as 0 = store.
struct PngEncoding {
  int zlibLevel = 1;  // 0 (store) .. 9 (smallest)
  PngFilter filter = PngFilter::up;
  bool runLengthOnly = true;  // zlib Z_RLE strategy instead of the default
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
//  - decodeUpright sets the bitmap's pixelsPerInch from the declared
//    vertical resolution: a PNG pHYs chunk in pixels per metre (× 0.0254),
//    a JPEG JFIF density in dots per inch or per centimetre (× 2.54). It
//    stays 0 when none is declared, or only an aspect ratio is; values are
//    passed on as declared, however implausible.
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
