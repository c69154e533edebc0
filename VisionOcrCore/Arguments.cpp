#include "VisionOcrCore/Arguments.h"

#include <optional>

namespace kvo {

const char* const kUsageLine =
    "Usage: kem-vision-ocr --input <path> --artifacts <directory> --output-mode <text|layout> --json";

namespace {

[[noreturn]] void reject(std::string message) { throw HelperError(HelperErrorCode::invalidInput, std::move(message)); }

// The value after the option at `i`; only a missing value, an empty one or
// one that starts with "--" is refused.
const std::string& valueAfter(const std::vector<std::string>& arguments, size_t i) {
  if (i + 1 >= arguments.size()) reject("Missing value for " + arguments[i]);
  const std::string& value = arguments[i + 1];
  if (value.empty() || value.rfind("--", 0) == 0) reject("Missing value for " + arguments[i]);
  return value;
}

}  // namespace

HelperArguments HelperArguments::parse(const std::vector<std::string>& arguments) {
  if (arguments.empty()) reject(kUsageLine);

  std::optional<std::string> input, artifacts;
  OcrOutputMode outputMode = OcrOutputMode::layout;
  bool outputModeSeen = false, jsonSeen = false;

  for (size_t i = 0; i < arguments.size();) {
    const std::string& argument = arguments[i];
    if (argument == "--input" || argument == "--artifacts") {
      auto& slot = argument == "--input" ? input : artifacts;
      if (slot) reject("Duplicate argument: " + argument);
      slot = valueAfter(arguments, i);
      i += 2;
    } else if (argument == "--output-mode") {
      if (outputModeSeen) reject("Duplicate argument: --output-mode");
      auto mode = outputModeFromRawValue(valueAfter(arguments, i));
      if (!mode) reject("Output mode must be text or layout");
      outputMode = *mode;
      outputModeSeen = true;
      i += 2;
    } else if (argument == "--json") {
      if (jsonSeen) reject("Duplicate argument: --json");
      jsonSeen = true;
      i += 1;
    } else {
      reject("Unknown argument: " + argument);
    }
  }

  if (!input || !artifacts || !jsonSeen) reject(kUsageLine);
  if (input->rfind('/', 0) != 0 || artifacts->rfind('/', 0) != 0) {
    reject("Input and artifact paths must be absolute");
  }
  return HelperArguments{*input, *artifacts, outputMode};
}

}  // namespace kvo
