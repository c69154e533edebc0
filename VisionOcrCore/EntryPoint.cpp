#include "VisionOcrCore/EntryPoint.h"

#include <exception>

#include "VisionOcrCore/Arguments.h"
#include "VisionOcrCore/Json.h"
#include "VisionOcrCore/VisionOcrRunner.h"

namespace kvo {

const char* const kEncodingFailureFallback =
    R"({"ok":false,"error":{"code":"local_runtime_failed","message":"Failed to encode error"}})";

namespace {

std::string failureLine(const HelperError& error) noexcept {
  try {
    std::string text = encodeJson(FailurePayload(error));
    if (!text.empty()) return text + "\n";
  } catch (...) {
  }
  return std::string(kEncodingFailureFallback) + "\n";
}

HelperOutcome unexpectedFailure(const std::string& description) noexcept {
  HelperOutcome outcome;
  outcome.exitStatus = 1;
  outcome.standardError = "kem-vision-ocr failed: " + description + "\n";
  outcome.standardOutput =
      failureLine(HelperError(HelperErrorCode::localRuntimeFailed, "Apple Vision OCR helper failed"));
  return outcome;
}

}  // namespace

HelperOutcome runHelper(const std::vector<std::string>& arguments, Platform& platform) noexcept {
  try {
    const HelperArguments parsed = HelperArguments::parse(arguments);
    const SuccessPayload payload = VisionOcrRunner(platform).run(parsed);
    return HelperOutcome{0, encodeJson(payload) + "\n", ""};
  } catch (const HelperError& error) {
    return HelperOutcome{2, failureLine(error), ""};
  } catch (const std::exception& error) {
    return unexpectedFailure(error.what());
  } catch (...) {
    return unexpectedFailure("unknown error");
  }
}

}  // namespace kvo
