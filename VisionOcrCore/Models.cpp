#include "VisionOcrCore/Models.h"

#include <array>
#include <utility>

namespace kvo {

namespace {

constexpr std::array<std::pair<HelperErrorCode, std::string_view>, 6> kErrorCodes{{
    {HelperErrorCode::invalidInput, "invalid_input"},
    {HelperErrorCode::encryptedPdf, "encrypted_pdf"},
    {HelperErrorCode::resourceLimitExceeded, "resource_limit_exceeded"},
    {HelperErrorCode::localRuntimeUnavailable, "local_runtime_unavailable"},
    {HelperErrorCode::localRuntimeTimeout, "local_runtime_timeout"},
    {HelperErrorCode::localRuntimeFailed, "local_runtime_failed"},
}};

constexpr std::array<std::pair<OcrOutputMode, std::string_view>, 2> kOutputModes{{
    {OcrOutputMode::text, "text"},
    {OcrOutputMode::layout, "layout"},
}};

template <typename Enum, size_t N>
std::string_view lookupRaw(const std::array<std::pair<Enum, std::string_view>, N>& table, Enum value) {
  for (const auto& [candidate, raw] : table) {
    if (candidate == value) return raw;
  }
  return {};
}

template <typename Enum, size_t N>
std::optional<Enum> lookupValue(const std::array<std::pair<Enum, std::string_view>, N>& table, std::string_view raw) {
  for (const auto& [candidate, text] : table) {
    if (text == raw) return candidate;
  }
  return std::nullopt;
}

}  // namespace

std::string_view rawValue(HelperErrorCode code) { return lookupRaw(kErrorCodes, code); }

std::optional<HelperErrorCode> helperErrorCodeFromRawValue(std::string_view raw) {
  return lookupValue(kErrorCodes, raw);
}

std::string_view rawValue(OcrOutputMode mode) { return lookupRaw(kOutputModes, mode); }

std::optional<OcrOutputMode> outputModeFromRawValue(std::string_view raw) { return lookupValue(kOutputModes, raw); }

}  // namespace kvo
