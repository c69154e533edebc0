#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "VisionOcrCore/Models.h"
#include "interfaces/Bitmap.h"
#include "interfaces/TextRecognitionEngine.h"

namespace kvo {

// Turns one bitmap into one page record: one recognition pass with fixed
// settings, blank observations dropped, corners converted from normalised
// bottom-left coordinates to clamped top-left pixel coordinates, regions in
// reading order, their texts joined by "\n" into the page text.
class VisionRecognizer {
 public:
  explicit VisionRecognizer(TextRecognitionEngine& engine) : engine_(engine) {}

  // `imagePath` is stored in the page unchanged (absent stays absent).
  // Throws HelperError(localRuntimeFailed, "Apple Vision text recognition
  // failed") when the engine fails; nothing partial is returned.
  OcrPage recognize(const Bitmap& image, int64_t pageNumber, std::optional<std::string> imagePath) const;

  // True when `a` comes before `b`: the higher top first, unless the tops
  // differ by less than 10 pixels, in which case the leftmost first point
  // wins. Throws std::out_of_range for a point without two numbers.
  static bool readingOrder(const OcrRegion& a, const OcrRegion& b);

  // The request every recognition uses.
  static RecognitionRequest request();

 private:
  TextRecognitionEngine& engine_;
};

inline constexpr double kLineTolerance = 10.0;  // pixels

}  // namespace kvo
