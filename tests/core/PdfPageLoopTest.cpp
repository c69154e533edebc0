#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/FakeBitmap.h"
#include "fakes/RunnerHarness.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using kvo::OcrOutputMode;
using kvo::OcrPage;
using kvo::PdfBox;
using kvo::PngWriteResult;
using namespace kvo::fakes;

constexpr uint64_t kLimit = 1'073'741'824;

class PdfPageLoop : public RunnerHarness {
 protected:
  std::vector<OcrPage> layout(FakePdfDocument document) {
    return recognizePdf(std::move(document), OcrOutputMode::layout);
  }
  std::vector<OcrPage> text(FakePdfDocument document) { return recognizePdf(std::move(document), OcrOutputMode::text); }

  ::testing::AssertionResult loopRefused(FakePdfDocument document, OcrOutputMode mode, HelperErrorCode code,
                                         const std::string& message) {
    return throwsHelperError([&] { recognizePdf(std::move(document), mode); }, code, message);
  }

  std::vector<std::string> artifacts() const { return fs.listTree(kArtifacts); }

  // A page with a text layer and one recognised line.
  static FakePdfPage letterWithText(std::string own) { return FakePdfPage::withText(std::move(own)); }
};

// ---- rendered pages ------------------------------------------------------------------------------

TEST_F(PdfPageLoop, ThreeLayoutPagesWriteThreePngsNamedByPosition) {
  const auto pages = layout(FakePdfDocument::repeated(3));
  EXPECT_EQ(artifacts(), (std::vector<std::string>{"pages/", "pages/page-0001.png", "pages/page-0002.png",
                                                   "pages/page-0003.png"}));
  ASSERT_EQ(pages.size(), 3u);
  for (int n = 1; n <= 3; ++n) {
    EXPECT_EQ(pages[n - 1].page, n);
    EXPECT_EQ(pages[n - 1].imagePath, "pages/page-000" + std::to_string(n) + ".png");
  }
}

TEST_F(PdfPageLoop, PngsAreWrittenAtTheirPathUnderTheArtifactsDirectory) {
  layout(FakePdfDocument::repeated(2));
  ASSERT_EQ(codec.pngWrites().size(), 2u);
  EXPECT_EQ(codec.pngWrites()[0].path, "/work/art/pages/page-0001.png");
  EXPECT_EQ(codec.pngWrites()[1].path, "/work/art/pages/page-0002.png");
}

TEST_F(PdfPageLoop, PageNumbersInFileNamesAreFourDigitsZeroPadded) {
  const auto pages = layout(FakePdfDocument::repeated(12));
  EXPECT_EQ(pages[11].imagePath, "pages/page-0012.png");
  EXPECT_TRUE(fs.isFile(artifact("pages/page-0012.png")));
}

TEST_F(PdfPageLoop, RecognisedPagesReportBitmapPixels) {
  engine.respondWithText("scan");
  const auto pages = layout(FakePdfDocument::repeated(1));
  EXPECT_EQ(pages[0].width, 1700);
  EXPECT_EQ(pages[0].height, 2200);
  EXPECT_EQ(pages[0].text, "scan");
  ASSERT_EQ(pages[0].regions.size(), 1u);
  EXPECT_EQ(engine.calls()[0].width, 1700);
}

TEST_F(PdfPageLoop, PagesDirectoryIsCreatedOnceWithoutParents) {
  layout(FakePdfDocument::repeated(4));
  EXPECT_EQ(fs.count(FsOp::createDirectory), 1u);
  EXPECT_EQ(fs.count(FsOp::createDirectory, "/work/art/pages"), 1u);
  EXPECT_EQ(fs.count(FsOp::createDirectories), 0u);
}

TEST_F(PdfPageLoop, OnlyOnePageBitmapIsAliveAtATime) {
  layout(FakePdfDocument::repeated(3));
  for (const auto& render : pdf.renders()) EXPECT_EQ(render.liveBitmapsBefore, 0);
  for (const auto& call : engine.calls()) EXPECT_EQ(call.liveBitmaps, 1);
  EXPECT_EQ(liveFakeBitmaps(), 0);
}

TEST_F(PdfPageLoop, EachPageIsRenderedThenSizeCheckedThenRecognised) {
  layout(FakePdfDocument::repeated(2));
  EXPECT_EQ(fake.events.matching("pdf.render").size(), 2u);
  const std::vector<std::string> expected = {
      "pdf.page 0", "fs.createDirectory /work/art/pages", "pdf.render 0 1700x2200",
      "codec.writePng /work/art/pages/page-0001.png 1700x2200", "fs.enumerate /work/art", "engine.recognize 1700x2200",
      "pdf.page 1", "pdf.render 1 1700x2200", "codec.writePng /work/art/pages/page-0002.png 1700x2200",
      "fs.enumerate /work/art", "engine.recognize 1700x2200"};
  std::vector<std::string> steps;
  for (const auto& e : fake.events.all()) {
    if (e.rfind("fs.metadata", 0) != 0) steps.push_back(e);
  }
  EXPECT_EQ(steps, expected);
}

// ---- pages with their own text -----------------------------------------------------------------------

TEST_F(PdfPageLoop, TextModeTakesOwnTextInPointsWithoutRenderingOrRecognising) {
  const auto pages = text(FakePdfDocument::of({letterWithText("one"), letterWithText("two")}));
  EXPECT_EQ(pages, (std::vector<OcrPage>{OcrPage{1, "one", 612, 792, std::nullopt, {}},
                                         OcrPage{2, "two", 612, 792, std::nullopt, {}}}));
  EXPECT_TRUE(artifacts().empty());
  EXPECT_TRUE(pdf.renders().empty());
  EXPECT_TRUE(engine.calls().empty());
  EXPECT_EQ(fs.count(FsOp::enumerate), 0u);
  EXPECT_EQ(fs.count(FsOp::createDirectory), 0u);
}

TEST_F(PdfPageLoop, OwnTextIsNormalised) {
  const auto pages = text(FakePdfDocument::of({letterWithText("\n  Own   text\r\n\r\n second\tline  \n")}));
  EXPECT_EQ(pages[0].text, "Own text\n\nsecond line");
}

TEST_F(PdfPageLoop, OwnTextSizesArePointsRoundedUp) {
  const auto pages = text(FakePdfDocument::of({FakePdfPage::ofSize(595.28, 841.89, "a4"), FakePdfPage::ofSize(0.2, 0.3, "tiny")}));
  EXPECT_EQ(pages[0].width, 596);
  EXPECT_EQ(pages[0].height, 842);
  EXPECT_EQ(pages[1].width, 1);
  EXPECT_EQ(pages[1].height, 1);
}

TEST_F(PdfPageLoop, OwnTextPageWithAnInvalidBoxIsRefused) {
  EXPECT_TRUE(loopRefused(FakePdfDocument::of({FakePdfPage::ofSize(0, 792, "text")}), OcrOutputMode::text,
                          HelperErrorCode::invalidInput, "PDF page has invalid dimensions"));
  EXPECT_TRUE(loopRefused(FakePdfDocument::of({FakePdfPage::ofSize(612, -1, "text")}), OcrOutputMode::text,
                          HelperErrorCode::invalidInput, "PDF page has invalid dimensions"));
  EXPECT_TRUE(artifacts().empty());
}

TEST_F(PdfPageLoop, LayoutModeRendersTextPagesAndTheirOwnTextWins) {
  engine.respond({textBox("recognised", 0.1, 0.1, 0.5, 0.2)});
  const auto pages = layout(FakePdfDocument::of({letterWithText(" Own  text\r\nline ")}));
  ASSERT_EQ(pages.size(), 1u);
  EXPECT_EQ(pages[0].text, "Own text\nline");
  EXPECT_EQ(pages[0].width, 1700);
  EXPECT_EQ(pages[0].height, 2200);
  EXPECT_EQ(pages[0].imagePath, "pages/page-0001.png");
  ASSERT_EQ(pages[0].regions.size(), 1u);
  EXPECT_EQ(pages[0].regions[0].text, "recognised");
}

TEST_F(PdfPageLoop, BlankOwnTextLeavesTheRecognisedTextInPlace) {
  engine.respondWithText("recognised");
  const auto pages = layout(FakePdfDocument::of({letterWithText(" \n\t ")}));
  EXPECT_EQ(pages[0].text, "recognised");
}

TEST_F(PdfPageLoop, OwnTextIsAskedForOncePerPage) {
  text(FakePdfDocument::of({letterWithText("a"), FakePdfPage{}, letterWithText("c")}));
  EXPECT_EQ(pdf.textRequests(), 3);
}

TEST_F(PdfPageLoop, ScannedPdfGivesTheSameResultInBothModes) {
  const FakePdfDocument scanned = FakePdfDocument::repeated(2);
  engine.respondWithText("p1");
  engine.respondWithText("p2");
  const auto inText = text(scanned);
  engine.respondWithText("p1");
  engine.respondWithText("p2");
  fs.addDirectory("/work/art2");
  auto document = pdf.openDirectly(scanned);
  const auto inLayout = runner.recognizePdf(*document, "/work/art2", kPdf, OcrOutputMode::layout);
  EXPECT_EQ(inText, inLayout);
  EXPECT_EQ(inText.size(), 2u);
  EXPECT_EQ(fs.listTree("/work/art2"), artifacts());
}

TEST_F(PdfPageLoop, MixedPdfInTextModeCreatesPagesOnlyForThePageWithoutText) {
  const auto pages = text(FakePdfDocument::of({letterWithText("one"), letterWithText("two"), FakePdfPage{}}));
  EXPECT_EQ(artifacts(), (std::vector<std::string>{"pages/", "pages/page-0003.png"}));
  EXPECT_GT(fake.events.indexOf("fs.createDirectory /work/art/pages"), fake.events.indexOf("pdf.page 2"));
  EXPECT_EQ(pages[2].imagePath, "pages/page-0003.png");
  EXPECT_EQ(pages[0].imagePath, std::nullopt);
}

// ---- the pages directory ----------------------------------------------------------------------------

TEST_F(PdfPageLoop, ExistingPagesFileMakesDirectoryCreationFail) {
  fs.addFile(artifact("pages"), "x");
  EXPECT_TRUE(loopRefused(FakePdfDocument::repeated(1), OcrOutputMode::layout, HelperErrorCode::localRuntimeFailed,
                          "Failed to create PDF page artifact directory"));
  EXPECT_TRUE(pdf.renders().empty());
}

TEST_F(PdfPageLoop, ExistingPagesDirectoryMakesDirectoryCreationFail) {
  fs.addDirectory(artifact("pages"));
  EXPECT_TRUE(loopRefused(FakePdfDocument::repeated(1), OcrOutputMode::layout, HelperErrorCode::localRuntimeFailed,
                          "Failed to create PDF page artifact directory"));
}

TEST_F(PdfPageLoop, DirectoryCreationFaultIsReported) {
  fs.failCreateDirectory(artifact("pages"));
  EXPECT_TRUE(loopRefused(FakePdfDocument::of({letterWithText("a"), FakePdfPage{}}), OcrOutputMode::text,
                          HelperErrorCode::localRuntimeFailed, "Failed to create PDF page artifact directory"));
}

// ---- failures part-way ------------------------------------------------------------------------------------

TEST_F(PdfPageLoop, MissingPageFailsToOpenAndEarlierPngsStay) {
  FakePdfDocument document = FakePdfDocument::repeated(2);
  document.pageCount = 3;
  EXPECT_TRUE(loopRefused(document, OcrOutputMode::layout, HelperErrorCode::invalidInput, "Failed to open PDF page"));
  EXPECT_EQ(artifacts(), (std::vector<std::string>{"pages/", "pages/page-0001.png", "pages/page-0002.png"}));
}

TEST_F(PdfPageLoop, FirstPageMissingFailsBeforeAnythingIsCreated) {
  FakePdfDocument document = FakePdfDocument::repeated(2);
  document.pages[0].reset();
  EXPECT_TRUE(loopRefused(document, OcrOutputMode::layout, HelperErrorCode::invalidInput, "Failed to open PDF page"));
  EXPECT_TRUE(artifacts().empty());
}

TEST_F(PdfPageLoop, SizeGuardFailureStopsAtThePageThatCrossesTheLimit) {
  codec.setPngFileSize(kLimit / 2 + 1);
  EXPECT_TRUE(loopRefused(FakePdfDocument::repeated(3), OcrOutputMode::layout, HelperErrorCode::resourceLimitExceeded,
                          "OCR artifacts exceed size limit"));
  EXPECT_EQ(artifacts(), (std::vector<std::string>{"pages/", "pages/page-0001.png", "pages/page-0002.png"}));
  EXPECT_EQ(pdf.renders().size(), 2u);
  EXPECT_EQ(engine.calls().size(), 1u);
}

TEST_F(PdfPageLoop, SizeGuardLeavesTheStagedInputOut) {
  fs.addFileOfSize(artifact("in.pdf"), 3 * kLimit);
  codec.setPngFileSize(kLimit / 4);
  const auto pages = recognizePdf(FakePdfDocument::repeated(3), OcrOutputMode::layout, artifact("in.pdf"));
  EXPECT_EQ(pages.size(), 3u);
}

TEST_F(PdfPageLoop, RecognitionFailureKeepsEveryPngWritten) {
  engine.respond({});
  engine.respond({});
  engine.fail();
  EXPECT_TRUE(loopRefused(FakePdfDocument::repeated(4), OcrOutputMode::layout, HelperErrorCode::localRuntimeFailed,
                          "Apple Vision text recognition failed"));
  EXPECT_EQ(artifacts(), (std::vector<std::string>{"pages/", "pages/page-0001.png", "pages/page-0002.png",
                                                   "pages/page-0003.png"}));
}

TEST_F(PdfPageLoop, RenderFailurePassesThroughUnchanged) {
  FakePdfDocument document = FakePdfDocument::repeated(2);
  document.pages[1]->render = RenderOutcome::noBitmap;
  EXPECT_TRUE(loopRefused(document, OcrOutputMode::layout, HelperErrorCode::localRuntimeFailed,
                          "Failed to allocate PDF page bitmap"));
  EXPECT_TRUE(fs.isFile(artifact("pages/page-0001.png")));
}

TEST_F(PdfPageLoop, PngWriteFailurePassesThroughUnchanged) {
  codec.failPng(artifact("pages/page-0001.png"), PngWriteResult::cannotFinish);
  EXPECT_TRUE(loopRefused(FakePdfDocument::repeated(1), OcrOutputMode::layout, HelperErrorCode::localRuntimeFailed,
                          "Failed to write PDF page artifact"));
  EXPECT_EQ(fs.count(FsOp::enumerate), 0u);
}

TEST_F(PdfPageLoop, InvalidBoxOnTheRenderedPathComesFromTheRenderer) {
  EXPECT_TRUE(loopRefused(FakePdfDocument::of({FakePdfPage::ofSize(0, 792)}), OcrOutputMode::layout,
                          HelperErrorCode::invalidInput, "PDF page has invalid dimensions"));
}

TEST_F(PdfPageLoop, OversizedPageIsRefusedWithThePixelLimit) {
  EXPECT_TRUE(loopRefused(FakePdfDocument::of({FakePdfPage::ofSize(0.001, 10'000'000)}), OcrOutputMode::layout,
                          HelperErrorCode::resourceLimitExceeded, "PDF page pixel count exceeds limit"));
}

}  // namespace
}  // namespace kvotest
