// Argument parsing: any list of texts either parses into absolute paths or
// is refused with an invalid_input HelperError; nothing else may escape.
#include <cstdlib>
#include <string>
#include <vector>

#include "VisionOcrCore/Arguments.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> arguments;
  std::string current;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {
      arguments.push_back(current);
      current.clear();
    } else {
      current += static_cast<char>(data[i]);
    }
  }
  if (size > 0) arguments.push_back(current);
  try {
    kvo::HelperArguments parsed = kvo::HelperArguments::parse(arguments);
    if (parsed.input.empty() || parsed.input[0] != '/' || parsed.artifacts.empty() || parsed.artifacts[0] != '/') {
      std::abort();
    }
  } catch (const kvo::HelperError& error) {
    if (error.code != kvo::HelperErrorCode::invalidInput || error.message.empty()) std::abort();
  }
  return 0;
}
