#pragma once

#include <memory>

#include "interfaces/ImageCodec.h"
#include "platform/PosixIo.h"

namespace kvo::image {

// A WebP source over a file's bytes (libwebp + demux): still images, and the
// first frame of an animation composed on its canvas.
std::unique_ptr<ImageSource> openWebp(posix::FileBytes file);

}  // namespace kvo::image
