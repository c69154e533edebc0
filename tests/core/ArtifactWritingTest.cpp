#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "fakes/RunnerHarness.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using kvo::OcrDocument;
using kvo::OcrPage;
using kvo::OcrRegion;
using namespace kvo::fakes;

constexpr uint64_t kLimit = 1'073'741'824;

class ArtifactWriting : public RunnerHarness {
 protected:
  ArtifactWriting() { fs.addDirectory(kArtifacts); }

  static OcrDocument onePageDocument(std::string text = "Hello") {
    return OcrDocument(text, {OcrPage{1, text, 1700, 2200, "pages/page-0001.png",
                                      {OcrRegion{text, 0.5, {{10.5, 20.25}, {210.5, 20.25}, {210.5, 50.75}, {10.5, 50.75}}}}}},
                       412.5);
  }

  void write(const OcrDocument& document, const std::string& stagedInput = kPdf) {
    runner.writeArtifacts(document, kArtifacts, stagedInput);
  }

  ::testing::AssertionResult writeRefused(const OcrDocument& document, HelperErrorCode code, const std::string& message) {
    return throwsHelperError([&] { write(document); }, code, message);
  }
};

TEST_F(ArtifactWriting, ResultFileHoldsTheCompactSortedDocumentWithoutNewline) {
  write(onePageDocument());
  EXPECT_EQ(fileText("result.json"),
            R"({"metadata":{"elapsedMs":412.5},"pageCount":1,"pages":[{"height":2200,"imagePath":"pages/page-0001.png",)"
            R"("page":1,"regions":[{"confidence":0.5,"polygon":[[10.5,20.25],[210.5,20.25],[210.5,50.75],[10.5,50.75]],)"
            R"("text":"Hello"}],"text":"Hello","width":1700}],"text":"Hello"})");
  EXPECT_EQ(fileText("result.json").back(), '}');
}

TEST_F(ArtifactWriting, SlashesInTheResultFileAreNotEscaped) {
  write(onePageDocument("a/b"));
  EXPECT_NE(fileText("result.json").find(R"("imagePath":"pages/page-0001.png")"), std::string::npos);
  EXPECT_EQ(fileText("result.json").find("\\/"), std::string::npos);
}

TEST_F(ArtifactWriting, TextFileHoldsExactlyTheDocumentTextAsUtf8) {
  write(onePageDocument("Grüße\n\n漢字 \"q\"\n"));
  EXPECT_EQ(fileText("ocr.txt"), "Grüße\n\n漢字 \"q\"\n");
}

TEST_F(ArtifactWriting, EmptyTextGivesAZeroByteTextFile) {
  write(OcrDocument("", {OcrPage{1, "", 10, 10, std::nullopt, {}}}, 1));
  EXPECT_EQ(fs.fileSize(artifact("ocr.txt")), 0u);
  EXPECT_EQ(fileText("ocr.txt"), "");
}

TEST_F(ArtifactWriting, BothFilesAreWrittenAtomicallyResultFirstThenSizeChecked) {
  write(onePageDocument());
  EXPECT_LT(fake.events.indexOf("fs.writeFileAtomically /work/art/result.json"),
            fake.events.indexOf("fs.writeFileAtomically /work/art/ocr.txt"));
  EXPECT_LT(fake.events.indexOf("fs.writeFileAtomically /work/art/ocr.txt"), fake.events.indexOf("fs.enumerate /work/art"));
}

TEST_F(ArtifactWriting, ResultFileThatCannotBeWrittenFailsAndTheTextFileIsNotWritten) {
  fs.failWrite(artifact("result.json"));
  EXPECT_TRUE(writeRefused(onePageDocument(), HelperErrorCode::localRuntimeFailed, "Failed to write OCR artifacts"));
  EXPECT_FALSE(fs.exists(artifact("ocr.txt")));
  EXPECT_EQ(fs.count(FsOp::writeFileAtomically, artifact("ocr.txt")), 0u);
}

TEST_F(ArtifactWriting, TextFileThatCannotBeWrittenFailsAndTheResultFileStays) {
  fs.failWrite(artifact("ocr.txt"));
  EXPECT_TRUE(writeRefused(onePageDocument(), HelperErrorCode::localRuntimeFailed, "Failed to write OCR artifacts"));
  EXPECT_TRUE(fs.isFile(artifact("result.json")));
  EXPECT_EQ(fs.count(FsOp::enumerate), 0u);
}

TEST_F(ArtifactWriting, SizeGuardFailureAfterTheWritesLeavesBothFiles) {
  fs.addFileOfSize(artifact("pages/page-0001.png"), kLimit - 10);
  EXPECT_TRUE(writeRefused(onePageDocument(), HelperErrorCode::resourceLimitExceeded, "OCR artifacts exceed size limit"));
  EXPECT_TRUE(fs.isFile(artifact("result.json")));
  EXPECT_EQ(fileText("ocr.txt"), "Hello");
}

TEST_F(ArtifactWriting, SizeGuardLeavesTheStagedInputOut) {
  fs.addFileOfSize(artifact("in.pdf"), 2 * kLimit);
  write(onePageDocument(), artifact("in.pdf"));
  EXPECT_TRUE(fs.isFile(artifact("ocr.txt")));
}

TEST_F(ArtifactWriting, NotANumberFailsBeforeEitherFileIsWritten) {
  OcrDocument document = onePageDocument();
  document.pages[0].regions[0].confidence = std::nan("");
  EXPECT_TRUE(writeRefused(document, HelperErrorCode::localRuntimeFailed, "Failed to write OCR artifacts"));
  EXPECT_EQ(fs.count(FsOp::writeFileAtomically), 0u);
  EXPECT_TRUE(fs.listTree(kArtifacts).empty());
}

TEST_F(ArtifactWriting, InfiniteElapsedTimeFailsBeforeEitherFileIsWritten) {
  EXPECT_TRUE(writeRefused(OcrDocument("x", {}, std::numeric_limits<double>::infinity()),
                           HelperErrorCode::localRuntimeFailed, "Failed to write OCR artifacts"));
  EXPECT_TRUE(fs.listTree(kArtifacts).empty());
}

TEST_F(ArtifactWriting, ResultFileReadsBackAsTheSameDocument) {
  const OcrDocument document = onePageDocument("Hello\nthere");
  write(document);
  EXPECT_EQ(resultDocument(), document);
}

}  // namespace
}  // namespace kvotest
