#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VisionOcrCore/Arguments.h"
#include "VisionOcrCore/Limits.h"
#include "VisionOcrCore/Models.h"
#include "interfaces/Platform.h"

namespace kvo {


// Drives one OCR run from parsed arguments to the success record. Every step
// throws HelperError for the failures it expects and nothing is caught,
// wrapped or cleaned up here: files already written stay where they are.
class VisionOcrRunner {
 public:
  explicit VisionOcrRunner(Platform& platform) : platform_(platform) {}

  SuccessPayload run(const HelperArguments& arguments) const;

  // The steps of a run, public so that each can be exercised on its own.

  // Creates the artifacts directory (with parents) when absent; otherwise it
  // must be a directory holding nothing, or nothing but the staged input.
  void prepareArtifactDirectory(const std::string& artifacts, const std::string& stagedInput) const;

  // Adds up the regular, non-hidden files below `artifacts`, not counting
  // `excluding`, and throws as soon as the total passes kMaxArtifactBytes.
  void assertArtifactSize(const std::string& artifacts, const std::string& excluding) const;

  // One page record per page, in order: in text mode a page with its own
  // text is taken as it stands; every other page is rendered to
  // pages/page-NNNN.png, size-checked and recognised.
  std::vector<OcrPage> recognizePdf(PdfDocument& document, const std::string& artifacts,
                                    const std::string& stagedInput, OcrOutputMode outputMode) const;

  // Writes result.json and ocr.txt atomically, then checks the size.
  void writeArtifacts(const OcrDocument& document, const std::string& artifacts,
                      const std::string& stagedInput) const;

 private:
  Platform& platform_;
};

}  // namespace kvo
