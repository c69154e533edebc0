#pragma once

// A bitmap made into the grey page recognition reads.

#include <cstdint>

#include "interfaces/Bitmap.h"
#include "interfaces/PageImage.h"

namespace kvo::recognition {

using kvo::GreyImage;

// Luminance with Leptonica's weights (0.3 R + 0.5 G + 0.2 B in 8.8 fixed
// point, the ones Tesseract would use to convert colour); white stays 255.
uint32_t luminance(uint32_t r, uint32_t g, uint32_t b);

// Grey copy of an rgb8 or rgba8 bitmap, transparent pixels composited over
// white. False when the memory cannot be had.
bool toGrey(const Bitmap& image, GreyImage& grey);

// The resolution handed to recognition: the bitmap's, rounded; 0 when unknown.
int roundedResolution(double pixelsPerInch);

}  // namespace kvo::recognition
