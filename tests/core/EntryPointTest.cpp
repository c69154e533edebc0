#include "VisionOcrCore/EntryPoint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "fakes/FakePlatform.h"

namespace kvotest {
namespace {

using kvo::HelperOutcome;
using namespace kvo::fakes;

const std::string kUsageLine =
    R"({"error":{"code":"invalid_input","message":"Usage: kem-vision-ocr --input <path> --artifacts <directory> )"
    R"(--output-mode <text|layout> --json"},"ok":false})"
    "\n";
const std::string kUnexpectedLine =
    R"({"error":{"code":"local_runtime_failed","message":"Apple Vision OCR helper failed"},"ok":false})"
    "\n";

class EntryPoint : public ::testing::Test {
 protected:
  FakePlatform fake;

  HelperOutcome run(const std::vector<std::string>& arguments) { return kvo::runHelper(arguments, fake.platform); }

  HelperOutcome runOn(const std::string& input) {
    return run({"--input", input, "--artifacts", "/work/art", "--json"});
  }

  void imageInput(const std::string& path = "/in/photo.png") {
    fake.fileSystem.addFile(path, kPngSignature + "rest");
    fake.imageCodec.script(path, ScriptedImage::of(800, 600));
  }

  static size_t lines(const std::string& text) { return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')); }
};

TEST_F(EntryPoint, NoArgumentsPrintTheUsageLineAndExitTwo) {
  const HelperOutcome outcome = run({});
  EXPECT_EQ(outcome.standardOutput, kUsageLine);
  EXPECT_EQ(outcome.exitStatus, 2);
  EXPECT_EQ(outcome.standardError, "");
}

TEST_F(EntryPoint, ArgumentErrorIsAClassifiedFailureThatTouchesNothing) {
  const HelperOutcome outcome = run({"--json", "stray"});
  EXPECT_EQ(outcome.standardOutput, R"({"error":{"code":"invalid_input","message":"Unknown argument: stray"},"ok":false})"
                                    "\n");
  EXPECT_EQ(outcome.exitStatus, 2);
  EXPECT_EQ(outcome.standardError, "");
  EXPECT_TRUE(fake.fileSystem.calls().empty());
}

TEST_F(EntryPoint, SuccessPrintsThePayloadLineAndExitsZero) {
  imageInput();
  fake.textEngine.respondWithText("Hello");
  const HelperOutcome outcome = runOn("/in/photo.png");
  EXPECT_EQ(outcome.standardOutput,
            R"({"ok":true,"pageCount":1,"pagesPreview":[],"resultPath":"result.json","textPath":"ocr.txt",)"
            R"("textPreview":"Hello","truncated":false})"
            "\n");
  EXPECT_EQ(outcome.exitStatus, 0);
  EXPECT_EQ(outcome.standardError, "");
}

TEST_F(EntryPoint, SuccessWithPagePreviewsKeepsSlashesUnescaped) {
  fake.fileSystem.addFile("/in/doc.pdf", kPdfHeader);
  fake.pdfLibrary.script("/in/doc.pdf", FakePdfDocument::repeated(1));
  const HelperOutcome outcome = runOn("/in/doc.pdf");
  EXPECT_EQ(outcome.standardOutput,
            R"({"ok":true,"pageCount":1,"pagesPreview":[{"imagePath":"pages/page-0001.png","page":1}],)"
            R"("resultPath":"result.json","textPath":"ocr.txt","textPreview":"","truncated":false})"
            "\n");
  EXPECT_EQ(outcome.exitStatus, 0);
}

TEST_F(EntryPoint, ClassifiedErrorFromDeepInThePipelineExitsTwo) {
  imageInput();
  fake.fileSystem.failOpen("/in/photo.png");
  const HelperOutcome outcome = runOn("/in/photo.png");
  EXPECT_EQ(outcome.standardOutput,
            R"({"error":{"code":"invalid_input","message":"Input file cannot be read"},"ok":false})"
            "\n");
  EXPECT_EQ(outcome.exitStatus, 2);
  EXPECT_EQ(outcome.standardError, "");
}

TEST_F(EntryPoint, PasswordProtectedPdfExitsTwoWithItsOwnCode) {
  fake.fileSystem.addFile("/in/doc.pdf", kPdfHeader);
  FakePdfDocument locked = FakePdfDocument::repeated(1);
  locked.encrypted = locked.locked = true;
  fake.pdfLibrary.script("/in/doc.pdf", locked);
  const HelperOutcome outcome = runOn("/in/doc.pdf");
  EXPECT_EQ(outcome.standardOutput,
            R"({"error":{"code":"encrypted_pdf","message":"PDF requires a password"},"ok":false})"
            "\n");
  EXPECT_EQ(outcome.exitStatus, 2);
}

TEST_F(EntryPoint, FailingReadIsAnUnexpectedErrorWithADiagnostic) {
  imageInput();
  fake.fileSystem.failRead("/in/photo.png",
                           std::system_error(std::make_error_code(std::errc::io_error), "read /in/photo.png"));
  const HelperOutcome outcome = runOn("/in/photo.png");
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.standardError, "kem-vision-ocr failed: read /in/photo.png: Input/output error\n");
  EXPECT_EQ(outcome.standardOutput, kUnexpectedLine);
}

TEST_F(EntryPoint, EngineThrowingIsAnUnexpectedErrorWhoseTextStaysOffStandardOutput) {
  imageInput();
  fake.textEngine.throwOnCall(std::runtime_error("engine exploded"));
  const HelperOutcome outcome = runOn("/in/photo.png");
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.standardError, "kem-vision-ocr failed: engine exploded\n");
  EXPECT_EQ(outcome.standardOutput, kUnexpectedLine);
}

TEST_F(EntryPoint, SomethingThatIsNotAnExceptionIsStillOneDiagnosticAndOneLine) {
  imageInput();
  fake.textEngine.throwOnCall(42);
  const HelperOutcome outcome = runOn("/in/photo.png");
  EXPECT_EQ(outcome.exitStatus, 1);
  EXPECT_EQ(outcome.standardOutput, kUnexpectedLine);
  EXPECT_EQ(outcome.standardError.rfind("kem-vision-ocr failed: ", 0), 0u);
  EXPECT_EQ(lines(outcome.standardError), 1u);
  EXPECT_EQ(outcome.standardError.back(), '\n');
}

TEST_F(EntryPoint, EveryOutcomeIsExactlyOneLineOnStandardOutput) {
  imageInput();
  fake.textEngine.respondWithText("line one\nline two");
  std::vector<HelperOutcome> outcomes = {run({}), runOn("/in/photo.png"), runOn("/in/photo.png"),
                                         run({"--input", "/in/missing.png", "--artifacts", "/work/other", "--json"})};
  for (const auto& outcome : outcomes) {
    EXPECT_EQ(lines(outcome.standardOutput), 1u) << outcome.standardOutput;
    EXPECT_EQ(outcome.standardOutput.back(), '\n');
  }
  EXPECT_EQ(outcomes[1].exitStatus, 0);
  EXPECT_EQ(outcomes[2].exitStatus, 2);  // the second run finds the first run's artifacts
  EXPECT_EQ(outcomes[3].exitStatus, 2);
}

TEST_F(EntryPoint, FallbackLineKeepsOkFirstAndIs87Bytes) {
  const std::string fallback = kvo::kEncodingFailureFallback;
  EXPECT_EQ(fallback, R"({"ok":false,"error":{"code":"local_runtime_failed","message":"Failed to encode error"}})");
  EXPECT_EQ(fallback.size(), 87u);
}

}  // namespace
}  // namespace kvotest
