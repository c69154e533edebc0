#pragma once

#include <memory>
#include <string>

#include "interfaces/ImageCodec.h"
#include "platform/PosixIo.h"

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

namespace image {

// A PNG source over a file's bytes (libpng). Reports the pHYs resolution.
std::unique_ptr<ImageSource> openPng(posix::FileBytes file);

// Writes `bitmap` as a PNG file at `path` (see ImageCodec::writePng).
PngWriteResult writePngFile(const Bitmap& bitmap, const std::string& path, const PngEncoding& encoding);

}  // namespace image

}  // namespace kvo
