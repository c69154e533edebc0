#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "VisionOcrCore/Models.h"

namespace kvo {

// Thrown when a value cannot be written as JSON (a NaN or infinite number).
struct JsonEncodingError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Thrown when JSON text does not decode into the requested record: malformed
// text, a missing required key, a value of the wrong type, an unknown code.
struct JsonDecodingError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Compact JSON for any record of the model: keys sorted at every level, "/"
// unescaped, absent optionals left out, doubles in their shortest round-trip
// form, non-ASCII as UTF-8 and control characters escaped. The same value
// always gives the same bytes. Throws JsonEncodingError for non-finite numbers.
// Defined for OcrRegion, OcrPage, Metadata, OcrDocument, PagePreview,
// SuccessPayload, PayloadError and FailurePayload.
template <typename Record>
std::string encodeJson(const Record& value);

// Reads a record back: every key required (an absent or null `imagePath`
// gives an absent path), unknown keys ignored, integers must be JSON
// integers. Throws JsonDecodingError.
template <typename Record>
Record decodeJson(std::string_view json);

}  // namespace kvo
