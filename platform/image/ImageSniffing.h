#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "interfaces/ImageCodec.h"

namespace kvo::image {

// The type of an image file from its leading bytes alone (never its name):
// PNG, JPEG and WebP signatures give png/jpeg/webp; GIF, TIFF and BigTIFF,
// BMP, ISO-BMFF still images (HEIF/AVIF brands), netpbm P1-P7, ICO, JPEG
// 2000 and JPEG XL give `other`; anything else nullopt.
std::optional<ImageType> sniffImageType(const uint8_t* data, size_t size);

}  // namespace kvo::image
