#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VisionOcrCore/Arguments.h"
#include "VisionOcrCore/Json.h"
#include "VisionOcrCore/VisionOcrRunner.h"
#include "fakes/Expectations.h"
#include "fakes/FakePlatform.h"

namespace kvo::fakes {

// A runner over a complete fake platform, with helpers that stage inputs
// and read back the artifacts. Derive a fixture from it per area.
class RunnerHarness : public ::testing::Test {
 protected:
  static constexpr const char* kArtifacts = "/work/art";
  static constexpr const char* kImage = "/in/photo.png";
  static constexpr const char* kPdf = "/in/doc.pdf";

  FakePlatform fake;
  InMemoryFileSystem& fs = fake.fileSystem;
  FakeImageCodec& codec = fake.imageCodec;
  FakePdfLibrary& pdf = fake.pdfLibrary;
  ScriptedTextEngine& engine = fake.textEngine;
  FakeClock& clock = fake.clock;
  VisionOcrRunner runner{fake.platform};

  static std::string artifact(const std::string& relative) { return std::string(kArtifacts) + "/" + relative; }

  static HelperArguments arguments(const std::string& input, OcrOutputMode mode = OcrOutputMode::layout) {
    return HelperArguments{input, kArtifacts, mode};
  }

  // A PNG input at `path`, decoded as `image`.
  void imageInput(const std::string& path = kImage, ScriptedImage image = ScriptedImage::of(800, 600)) {
    fs.addFile(path, kPngSignature + std::string(64, '\x02'));
    codec.script(path, image);
  }

  // A PDF input at `path`, opened as `document`.
  void pdfInput(FakePdfDocument document, const std::string& path = kPdf) {
    fs.addFile(path, kPdfHeader + std::string(64, 'x'));
    pdf.script(path, std::move(document));
  }

  SuccessPayload run(const std::string& input, OcrOutputMode mode = OcrOutputMode::layout) {
    return runner.run(arguments(input, mode));
  }

  ::testing::AssertionResult runRefused(const std::string& input, HelperErrorCode code, const std::string& message,
                                        OcrOutputMode mode = OcrOutputMode::layout) {
    return throwsHelperError([&] { runner.run(arguments(input, mode)); }, code, message);
  }

  std::string fileText(const std::string& relative) const { return fs.contents(artifact(relative)).value_or("<none>"); }

  OcrDocument resultDocument() const { return decodeJson<OcrDocument>(fileText("result.json")); }

  // Runs the PDF page loop on `document` directly.
  std::vector<OcrPage> recognizePdf(FakePdfDocument document, OcrOutputMode mode,
                                    const std::string& stagedInput = kPdf) {
    if (!fs.exists(kArtifacts)) fs.addDirectory(kArtifacts);
    auto opened = pdf.openDirectly(std::move(document));
    return runner.recognizePdf(*opened, kArtifacts, stagedInput, mode);
  }
};

}  // namespace kvo::fakes
