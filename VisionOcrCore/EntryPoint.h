#pragma once

#include <string>
#include <vector>

#include "interfaces/Platform.h"

namespace kvo {

// What one run reports: the exact bytes for each stream and the exit status.
struct HelperOutcome {
  int exitStatus = 0;
  std::string standardOutput;  // always exactly one JSON line ending in "\n"
  std::string standardError;   // empty, or one line for an unexpected failure
};

// Runs one OCR job for the command-line arguments (program path already
// dropped) and says what to print and how to exit:
//   0: the success payload;
//   2: a HelperError, as a failure payload with its code and message;
//   1: anything else, as a failure payload with "local_runtime_failed", and
//      "kem-vision-ocr failed: " plus the error's description on stderr.
// Never throws.
HelperOutcome runHelper(const std::vector<std::string>& arguments, Platform& platform) noexcept;

// The failure line used when even the failure payload cannot be encoded. Its
// key order (ok first) differs from the encoder's on purpose.
extern const char* const kEncodingFailureFallback;

}  // namespace kvo
