#pragma once

#include <optional>
#include <string>
#include <vector>

#include "interfaces/Bitmap.h"

namespace kvo {

// A point in normalised image coordinates: 0..1 on both axes, origin at the
// bottom-left corner of the image, y growing upwards.
struct NormalizedPoint {
  double x = 0;
  double y = 0;
};

struct RecognizedCandidate {
  std::string text;   // UTF-8
  float confidence;   // nominally 0..1
};

// One detected text line.
struct TextObservation {
  // Best candidate; nullopt when the engine has none for this line.
  std::optional<RecognizedCandidate> candidate;
  NormalizedPoint topLeft, topRight, bottomRight, bottomLeft;
};

enum class RecognitionLevel { accurate, fast };

// The settings of one recognition request.
struct RecognitionRequest {
  RecognitionLevel level = RecognitionLevel::accurate;
  // BCP 47 tags in order of preference, e.g. "zh-Hans", "zh-Hant", "en-US".
  std::vector<std::string> languages;
  bool usesLanguageCorrection = true;
};

class TextRecognitionEngine {
 public:
  virtual ~TextRecognitionEngine() = default;
  // Runs one request over the whole of `image`, taken upright as it stands.
  // Returns the observations in the engine's own order, or nullopt when
  // recognition failed (engine not available, models missing, bad image).
  virtual std::optional<std::vector<TextObservation>> recognize(const Bitmap& image,
                                                                const RecognitionRequest& request) = 0;
};

}  // namespace kvo
