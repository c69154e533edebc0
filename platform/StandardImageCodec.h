#pragma once

#include <memory>
#include <string>

#include "interfaces/ImageCodec.h"
#include "platform/image/PngFormat.h"

namespace kvo {

// The image codec on libpng, libjpeg-turbo, libwebp (+ demux) and libexif:
// one reader per format in platform/image/, chosen by sniffing the bytes.
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
