#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvo {

// The closed set of failure codes. The order is the wire set's published
// order; localRuntimeUnavailable and localRuntimeTimeout are part of that set
// although no code path raises them.
enum class HelperErrorCode {
  invalidInput,
  encryptedPdf,
  resourceLimitExceeded,
  localRuntimeUnavailable,
  localRuntimeTimeout,
  localRuntimeFailed,
};

// The snake_case wire form, e.g. "invalid_input".
std::string_view rawValue(HelperErrorCode code);
// Exact, case-sensitive inverse of rawValue; nullopt for any other text.
std::optional<HelperErrorCode> helperErrorCodeFromRawValue(std::string_view raw);

// The one error the pipeline throws for every failure it expects: a fixed code
// and a fixed English message, passed up unchanged to the entry point.
struct HelperError : std::exception {
  HelperErrorCode code;
  std::string message;

  HelperError(HelperErrorCode code, std::string message) : code(code), message(std::move(message)) {}
  const char* what() const noexcept override { return message.c_str(); }
  bool operator==(const HelperError& other) const { return code == other.code && message == other.message; }
};

enum class OcrOutputMode { text, layout };

std::string_view rawValue(OcrOutputMode mode);
std::optional<OcrOutputMode> outputModeFromRawValue(std::string_view raw);

// One recognised text observation. `polygon` is a list of [x, y] points in
// pixels, origin top-left; as built by the recogniser exactly four points:
// top-left, top-right, bottom-right, bottom-left.
struct OcrRegion {
  std::string text;
  double confidence = 0;
  std::vector<std::vector<double>> polygon;

  bool operator==(const OcrRegion&) const = default;
};

// The result for one image or one PDF page. `width` and `height` are bitmap
// pixels for recognised pages and PDF points for pages taken from their own
// text layer.
struct OcrPage {
  int64_t page = 0;
  std::string text;
  int64_t width = 0;
  int64_t height = 0;
  std::optional<std::string> imagePath;
  std::vector<OcrRegion> regions;

  bool operator==(const OcrPage&) const = default;
};

struct Metadata {
  double elapsedMs = 0;

  bool operator==(const Metadata&) const = default;
};

// The whole result, the content of result.json. Built from its text, pages
// and elapsed time; pageCount always follows the pages. A document decoded
// from JSON keeps whatever pageCount the JSON held.
struct OcrDocument {
  std::string text;
  int64_t pageCount = 0;
  std::vector<OcrPage> pages;
  Metadata metadata;

  OcrDocument() = default;
  OcrDocument(std::string text, std::vector<OcrPage> pages, double elapsedMs)
      : text(std::move(text)),
        pageCount(static_cast<int64_t>(pages.size())),
        pages(std::move(pages)),
        metadata{elapsedMs} {}

  bool operator==(const OcrDocument&) const = default;
};

struct PagePreview {
  int64_t page = 0;
  std::string imagePath;

  bool operator==(const PagePreview&) const = default;
};

// The line printed on success. `ok` is always true.
struct SuccessPayload {
  bool ok = true;
  std::string resultPath;
  int64_t pageCount = 0;
  std::string textPreview;
  std::string textPath;
  bool truncated = false;
  std::vector<PagePreview> pagesPreview;

  SuccessPayload() = default;
  SuccessPayload(std::string resultPath, int64_t pageCount, std::string textPreview, std::string textPath,
                 bool truncated, std::vector<PagePreview> pagesPreview)
      : resultPath(std::move(resultPath)),
        pageCount(pageCount),
        textPreview(std::move(textPreview)),
        textPath(std::move(textPath)),
        truncated(truncated),
        pagesPreview(std::move(pagesPreview)) {}

  bool operator==(const SuccessPayload&) const = default;
};

struct PayloadError {
  HelperErrorCode code = HelperErrorCode::localRuntimeFailed;
  std::string message;

  bool operator==(const PayloadError&) const = default;
};

// The line printed on failure. `ok` is always false when built from an error.
struct FailurePayload {
  bool ok = false;
  PayloadError error;

  FailurePayload() = default;
  explicit FailurePayload(const HelperError& e) : ok(false), error{e.code, e.message} {}

  bool operator==(const FailurePayload&) const = default;
};

}  // namespace kvo
