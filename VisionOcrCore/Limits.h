#pragma once

#include <cstddef>
#include <cstdint>

// The fixed limits of one run, all in one place (each inclusive: a value
// equal to the limit is accepted). Exceeding any of the first five fails the
// run with resource_limit_exceeded.
namespace kvo {

// Bytes of the input file.
inline constexpr uint64_t kMaxInputBytes = 536'870'912;
// Pixels of a raster input, from its headers, before anything is decoded.
inline constexpr int64_t kMaxImagePixels = 25'000'000;
// Pages of a PDF input, as the document declares them.
inline constexpr int64_t kMaxPdfPages = 500;
// Pixels of one rendered PDF page (larger pages are rendered shrunk to fit).
inline constexpr int64_t kMaxPagePixels = 25'000'000;
// Bytes of everything the run writes to the artifacts directory; the staged
// input is not counted.
inline constexpr uint64_t kMaxArtifactBytes = 1'073'741'824;

// Characters (grapheme clusters) of the text preview on standard output.
inline constexpr size_t kPreviewLength = 2'000;
// Pages listed in the page preview on standard output.
inline constexpr size_t kPagePreviewCap = 5;

}  // namespace kvo
