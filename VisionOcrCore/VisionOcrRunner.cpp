#include "VisionOcrCore/VisionOcrRunner.h"

#include <cmath>
#include <cstdio>
#include <variant>

#include "VisionOcrCore/InputLoader.h"
#include "VisionOcrCore/Json.h"
#include "VisionOcrCore/Paths.h"
#include "VisionOcrCore/PdfRenderer.h"
#include "VisionOcrCore/Text.h"
#include "VisionOcrCore/VisionRecognizer.h"

namespace kvo {

namespace {

[[noreturn]] void fail(HelperErrorCode code, const char* message) { throw HelperError(code, message); }

std::string pageImagePath(int64_t pageNumber) {
  char name[48];
  std::snprintf(name, sizeof name, "pages/page-%04lld.png", static_cast<long long>(pageNumber));
  return name;
}

std::string joinPageTexts(const std::vector<OcrPage>& pages) {
  std::string text;
  for (size_t i = 0; i < pages.size(); ++i) {
    if (i > 0) text += "\n\n";
    text += pages[i].text;
  }
  return text;
}

}  // namespace

SuccessPayload VisionOcrRunner::run(const HelperArguments& arguments) const {
  const double start = platform_.clock.uptimeSeconds();
  prepareArtifactDirectory(arguments.artifacts, arguments.input);
  InputKind input = InputLoader(platform_.fileSystem, platform_.imageCodec, platform_.pdfLibrary).load(arguments.input);

  std::vector<OcrPage> pages;
  if (auto* document = std::get_if<std::unique_ptr<PdfDocument>>(&input)) {
    pages = recognizePdf(**document, arguments.artifacts, arguments.input, arguments.outputMode);
  } else {
    const Bitmap& bitmap = std::get<LoadedImage>(input).bitmap;
    pages.push_back(VisionRecognizer(platform_.textEngine).recognize(bitmap, 1, std::nullopt));
  }

  std::string text = joinPageTexts(pages);
  const double end = platform_.clock.uptimeSeconds();
  const OcrDocument document(std::move(text), std::move(pages), (end - start) * 1000.0);
  writeArtifacts(document, arguments.artifacts, arguments.input);

  GraphemePrefix preview = graphemePrefix(document.text, kPreviewLength);
  std::vector<PagePreview> pagePreviews;
  for (const auto& page : document.pages) {
    if (pagePreviews.size() == kPagePreviewCap) break;
    if (page.imagePath) pagePreviews.push_back(PagePreview{page.page, *page.imagePath});
  }
  return SuccessPayload("result.json", document.pageCount, std::move(preview.text), "ocr.txt", preview.truncated,
                        std::move(pagePreviews));
}

void VisionOcrRunner::prepareArtifactDirectory(const std::string& artifacts, const std::string& stagedInput) const {
  FileSystem& fs = platform_.fileSystem;
  switch (fs.pathState(artifacts)) {
    case PathState::missing:
      // A directory made just now holds nothing: no need to list it.
      if (!fs.createDirectories(artifacts)) fail(HelperErrorCode::invalidInput, "Artifact directory cannot be created");
      return;
    case PathState::notDirectory:
      fail(HelperErrorCode::invalidInput, "Artifact path is not a directory");
    case PathState::directory:
      break;
  }
  auto entries = fs.listDirectory(artifacts);
  if (!entries) fail(HelperErrorCode::invalidInput, "Artifact directory cannot be read");

  // The host may stage the input inside the artifacts directory; that one
  // name is tolerated there, and only when the input really lies there.
  std::optional<std::string> tolerated;
  if (standardizePath(parentPath(stagedInput)) == standardizePath(artifacts)) {
    tolerated = lastPathComponent(stagedInput);
  }
  for (const auto& name : *entries) {
    if (!tolerated || name != *tolerated) {
      fail(HelperErrorCode::invalidInput, "Artifact directory contains unexpected files");
    }
  }
}

void VisionOcrRunner::assertArtifactSize(const std::string& artifacts, const std::string& excluding) const {
  FileSystem& fs = platform_.fileSystem;
  const std::string excluded = standardizePath(excluding);
  uint64_t total = 0;
  const bool walked = fs.enumerate(artifacts, [&](const std::string& path) {
    if (standardizePath(path) == excluded) return;
    auto metadata = fs.metadata(path);
    if (!metadata) fail(HelperErrorCode::localRuntimeFailed, "Failed to inspect OCR artifact");
    if (metadata->isRegularFile != true || !metadata->size) return;
    total += *metadata->size;
    if (total > kMaxArtifactBytes) fail(HelperErrorCode::resourceLimitExceeded, "OCR artifacts exceed size limit");
  });
  if (!walked) fail(HelperErrorCode::localRuntimeFailed, "Failed to enumerate OCR artifacts");
}

std::vector<OcrPage> VisionOcrRunner::recognizePdf(PdfDocument& document, const std::string& artifacts,
                                                   const std::string& stagedInput, OcrOutputMode outputMode) const {
  const std::string pagesDirectory = joinPath(artifacts, "pages");
  const int64_t pageCount = document.pageCount();
  std::vector<OcrPage> pages;
  pages.reserve(static_cast<size_t>(std::max<int64_t>(pageCount, 0)));
  bool pagesDirectoryCreated = false;
  const PdfRenderer renderer(platform_.imageCodec);
  const VisionRecognizer recognizer(platform_.textEngine);

  for (int64_t index = 0; index < pageCount; ++index) {
    const int64_t pageNumber = index + 1;
    auto page = document.page(index);
    if (!page) fail(HelperErrorCode::invalidInput, "Failed to open PDF page");
    std::string ownText = normalizeText(makeValidUtf8(page->text()));

    if (outputMode == OcrOutputMode::text && !ownText.empty()) {
      const PdfBox box = page->mediaBox();
      if (!(box.width > 0) || !(box.height > 0)) fail(HelperErrorCode::invalidInput, "PDF page has invalid dimensions");
      // Points rounded up, at least 1; a box beyond any 64-bit size saturates.
      const auto points = [](double extent) {
        const double rounded = std::ceil(extent);
        return rounded < 9.2e18 ? std::max<int64_t>(1, static_cast<int64_t>(rounded)) : INT64_MAX;
      };
      pages.push_back(OcrPage{pageNumber, std::move(ownText), points(box.width), points(box.height), std::nullopt, {}});
      continue;
    }

    if (!pagesDirectoryCreated && !platform_.fileSystem.createDirectory(pagesDirectory)) {
      fail(HelperErrorCode::localRuntimeFailed, "Failed to create PDF page artifact directory");
    }
    const std::string relativePath = pageImagePath(pageNumber);
    OcrPage recognized;
    {
      // Only this page's bitmap is alive: it goes when the block ends.
      const Bitmap bitmap = renderer.render(*page, joinPath(artifacts, relativePath));
      assertArtifactSize(artifacts, stagedInput);
      recognized = recognizer.recognize(bitmap, pageNumber, relativePath);
    }
    if (!ownText.empty()) recognized.text = std::move(ownText);
    pages.push_back(std::move(recognized));
    pagesDirectoryCreated = true;
  }
  return pages;
}

void VisionOcrRunner::writeArtifacts(const OcrDocument& document, const std::string& artifacts,
                                     const std::string& stagedInput) const {
  std::string json;
  try {
    json = encodeJson(document);
  } catch (const JsonEncodingError&) {
    fail(HelperErrorCode::localRuntimeFailed, "Failed to write OCR artifacts");
  }
  FileSystem& fs = platform_.fileSystem;
  if (!fs.writeFileAtomically(joinPath(artifacts, "result.json"), json)) {
    fail(HelperErrorCode::localRuntimeFailed, "Failed to write OCR artifacts");
  }
  if (!fs.writeFileAtomically(joinPath(artifacts, "ocr.txt"), document.text)) {
    fail(HelperErrorCode::localRuntimeFailed, "Failed to write OCR artifacts");
  }
  assertArtifactSize(artifacts, stagedInput);
}

}  // namespace kvo
