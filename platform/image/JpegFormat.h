#pragma once

#include <memory>

#include "interfaces/ImageCodec.h"
#include "platform/PosixIo.h"

namespace kvo::image {

// A JPEG source over a file's bytes (libjpeg-turbo, CMYK and YCCK included):
// decodes upright for the EXIF orientation (libexif) and reports the JFIF
// density as the resolution.
std::unique_ptr<ImageSource> openJpeg(posix::FileBytes file);

}  // namespace kvo::image
