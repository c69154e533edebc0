#pragma once

#include <string>
#include <vector>

#include "VisionOcrCore/Models.h"

namespace kvo {

// The parsed command line. Both paths are absolute as given (nothing is
// expanded or resolved); `artifacts` names a directory.
struct HelperArguments {
  std::string input;
  std::string artifacts;
  OcrOutputMode outputMode = OcrOutputMode::layout;

  bool operator==(const HelperArguments&) const = default;

  // Parses the arguments (program path already dropped):
  //   --input <path> --artifacts <directory> [--output-mode <text|layout>] --json
  // in any order, each at most once. Throws HelperError(invalidInput) naming
  // the first fault; touches nothing outside itself.
  static HelperArguments parse(const std::vector<std::string>& arguments);
};

extern const char* const kUsageLine;

}  // namespace kvo
