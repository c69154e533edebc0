#pragma once

#include "interfaces/Bitmap.h"

namespace kvo::image {

// The stored image rewritten upright for its EXIF orientation (1..8):
// 2 mirror horizontal, 3 rotate 180, 4 mirror vertical, 5 transpose, 6
// rotate 90 clockwise, 7 transverse, 8 rotate 270 clockwise; 1 and values
// outside 1..8 leave it as it is. An invalid Bitmap when the memory for the
// upright copy cannot be had.
Bitmap orientUpright(Bitmap stored, int orientation);

}  // namespace kvo::image
