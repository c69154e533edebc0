#include "VisionOcrCore/VisionOcrRunner.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "fakes/RunnerHarness.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using kvo::OcrDocument;
using kvo::OcrOutputMode;
using kvo::PagePreview;
using kvo::SuccessPayload;
using namespace kvo::fakes;

const std::string kFamily = "\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";  // 👩‍👩‍👧

std::string repeat(const std::string& s, size_t n) {
  std::string out;
  for (size_t i = 0; i < n; ++i) out += s;
  return out;
}

class Runner : public RunnerHarness {
 protected:
  // An image input whose single recognised line is `text`.
  SuccessPayload runImageReading(const std::string& text, OcrOutputMode mode = OcrOutputMode::layout) {
    imageInput();
    engine.respondWithText(text);
    return run(kImage, mode);
  }

  // A layout-mode PDF whose pages are recognised as `texts`.
  SuccessPayload runScannedPdf(const std::vector<std::string>& texts) {
    pdfInput(FakePdfDocument::repeated(static_cast<int64_t>(texts.size())));
    for (const auto& text : texts) {
      if (text.empty()) {
        engine.respond({});
      } else {
        engine.respondWithText(text);
      }
    }
    return run(kPdf);
  }

  static std::vector<PagePreview> previews(std::vector<int64_t> pages) {
    std::vector<PagePreview> out;
    for (int64_t n : pages) {
      char path[32];
      std::snprintf(path, sizeof path, "pages/page-%04lld.png", static_cast<long long>(n));
      out.push_back(PagePreview{n, path});
    }
    return out;
  }
};

// ---- image input ------------------------------------------------------------------------------

TEST_F(Runner, ImageInputGivesOnePageAndNoPagePreviews) {
  const SuccessPayload payload = runImageReading("Hello");
  EXPECT_EQ(payload, SuccessPayload("result.json", 1, "Hello", "ocr.txt", false, {}));
}

TEST_F(Runner, ImageInputIgnoresTextMode) {
  const SuccessPayload payload = runImageReading("Hello", OcrOutputMode::text);
  EXPECT_EQ(payload, SuccessPayload("result.json", 1, "Hello", "ocr.txt", false, {}));
  EXPECT_EQ(engine.calls().size(), 1u);
}

TEST_F(Runner, ImageIsRecognisedOnceAsPageOneWithoutImagePath) {
  runImageReading("Hello");
  ASSERT_EQ(engine.calls().size(), 1u);
  EXPECT_EQ(engine.calls()[0].width, 800);
  const OcrDocument document = resultDocument();
  ASSERT_EQ(document.pages.size(), 1u);
  EXPECT_EQ(document.pages[0].page, 1);
  EXPECT_EQ(document.pages[0].imagePath, std::nullopt);
  EXPECT_EQ(document.pages[0].width, 800);
  EXPECT_EQ(document.pages[0].height, 600);
  EXPECT_EQ(fileText("result.json").find("imagePath"), std::string::npos);
}

TEST_F(Runner, RecognisedImageTextIsNotNormalised) {
  runImageReading("a   b\tc");
  EXPECT_EQ(resultDocument().text, "a   b\tc");
  EXPECT_EQ(fileText("ocr.txt"), "a   b\tc");
}

TEST_F(Runner, ImageRunWritesNoPagesDirectory) {
  runImageReading("x");
  EXPECT_EQ(fs.listTree(kArtifacts), (std::vector<std::string>{"ocr.txt", "result.json"}));
}

TEST_F(Runner, ArtifactsHoldTheDocumentAndItsText) {
  clock.script({10.0, 10.5});
  runImageReading("Hello");
  EXPECT_EQ(resultDocument(), OcrDocument("Hello", {resultDocument().pages[0]}, 500.0));
  EXPECT_EQ(fileText("result.json"), kvo::encodeJson(resultDocument()));
  EXPECT_EQ(fileText("ocr.txt"), "Hello");
}

// ---- document text --------------------------------------------------------------------------

TEST_F(Runner, PageTextsAreJoinedWithABlankLineAndEmptyPagesKeepTheirSeparator) {
  const SuccessPayload payload = runScannedPdf({"a", "", "c"});
  EXPECT_EQ(resultDocument().text, "a\n\n\n\nc");
  EXPECT_EQ(fileText("ocr.txt"), "a\n\n\n\nc");
  EXPECT_EQ(payload.textPreview, "a\n\n\n\nc");
}

TEST_F(Runner, OwnTextPagesAndRecognisedPagesJoinTheSameWay) {
  pdfInput(FakePdfDocument::of({FakePdfPage::withText("a"), FakePdfPage{}, FakePdfPage::withText(" c ")}));
  run(kPdf, OcrOutputMode::text);
  EXPECT_EQ(fileText("ocr.txt"), "a\n\n\n\nc");
}

TEST_F(Runner, AllEmptyPagesGiveOnlySeparators) {
  runScannedPdf({"", "", ""});
  EXPECT_EQ(fileText("ocr.txt"), "\n\n\n\n");
}

// ---- elapsed time --------------------------------------------------------------------------------

TEST_F(Runner, ElapsedMillisecondsAreFractionalAndNotRounded) {
  clock.script({1000.5, 1000.5123456});
  runImageReading("x");
  const double elapsed = resultDocument().metadata.elapsedMs;
  EXPECT_EQ(elapsed, (1000.5123456 - 1000.5) * 1000.0);
  EXPECT_NE(elapsed, std::floor(elapsed));
}

TEST_F(Runner, ClockIsReadBeforePreparationAndAfterRecognitionButBeforeWriting) {
  std::vector<size_t> marks;
  clock.onRead([&](int) { marks.push_back(fake.events.all().size()); });
  runImageReading("x");
  ASSERT_EQ(marks.size(), 2u);
  const auto& events = fake.events;
  EXPECT_EQ(marks[0], 0u);
  EXPECT_LT(events.indexOf("engine.recognize 800x600"), marks[1]);
  EXPECT_GE(events.indexOf("fs.writeFileAtomically /work/art/result.json"), marks[1]);
}

// ---- previews -----------------------------------------------------------------------------------

TEST_F(Runner, TextOf2000CharactersIsPreviewedWhole) {
  const SuccessPayload payload = runImageReading(std::string(2000, 'x'));
  EXPECT_EQ(payload.textPreview, std::string(2000, 'x'));
  EXPECT_FALSE(payload.truncated);
}

TEST_F(Runner, TextOf2001CharactersIsCutTo2000AndFlagged) {
  const SuccessPayload payload = runImageReading(std::string(2000, 'x') + "y");
  EXPECT_EQ(payload.textPreview, std::string(2000, 'x'));
  EXPECT_TRUE(payload.truncated);
  EXPECT_EQ(fileText("ocr.txt"), std::string(2000, 'x') + "y");
}

TEST_F(Runner, EmojiSequenceCountsAsOneCharacterOfThePreview) {
  const std::string text = std::string(1999, 'x') + kFamily;
  const SuccessPayload payload = runImageReading(text);
  EXPECT_EQ(payload.textPreview, text);
  EXPECT_FALSE(payload.truncated);
}

TEST_F(Runner, LetterWithCombiningMarkCountsAsOneCharacterOfThePreview) {
  const SuccessPayload payload = runImageReading(repeat("e\xCC\x81", 2001));
  EXPECT_EQ(payload.textPreview, repeat("e\xCC\x81", 2000));
  EXPECT_TRUE(payload.truncated);
}

TEST_F(Runner, SevenRenderedPagesPreviewTheFirstFive) {
  const SuccessPayload payload = runScannedPdf({"1", "2", "3", "4", "5", "6", "7"});
  EXPECT_EQ(payload.pageCount, 7);
  EXPECT_EQ(payload.pagesPreview, previews({1, 2, 3, 4, 5}));
}

TEST_F(Runner, PagesTakenFromTheirOwnTextArePassedOverInPreviews) {
  std::vector<FakePdfPage> pages(7);
  pages[0].text = "own";
  pages[2].text = "own";
  pdfInput(FakePdfDocument::of(pages));
  const SuccessPayload payload = run(kPdf, OcrOutputMode::text);
  EXPECT_EQ(payload.pageCount, 7);
  EXPECT_EQ(payload.pagesPreview, previews({2, 4, 5, 6, 7}));
}

TEST_F(Runner, PdfTakenWhollyFromItsOwnTextHasNoPreviews) {
  pdfInput(FakePdfDocument::of({FakePdfPage::withText("one"), FakePdfPage::withText("two")}));
  const SuccessPayload payload = run(kPdf, OcrOutputMode::text);
  EXPECT_EQ(payload, SuccessPayload("result.json", 2, "one\n\ntwo", "ocr.txt", false, {}));
}

TEST_F(Runner, PdfPreviewPathsAreRelative) {
  const SuccessPayload payload = runScannedPdf({"a"});
  ASSERT_EQ(payload.pagesPreview.size(), 1u);
  EXPECT_EQ(payload.pagesPreview[0].imagePath, "pages/page-0001.png");
  EXPECT_TRUE(fs.isFile(artifact("pages/page-0001.png")));
}

// ---- order and failures ----------------------------------------------------------------------------

TEST_F(Runner, PreparationFailureStopsBeforeTheInputIsTouched) {
  imageInput();
  fs.addFile(kArtifacts, "not a directory");
  EXPECT_TRUE(runRefused(kImage, HelperErrorCode::invalidInput, "Artifact path is not a directory"));
  EXPECT_EQ(fs.count(kvo::fakes::FsOp::metadata, kImage), 0u);
  EXPECT_TRUE(codec.opens().empty());
}

TEST_F(Runner, LoaderFailureStopsBeforeRecognitionAndWriting) {
  EXPECT_TRUE(runRefused(kImage, HelperErrorCode::invalidInput, "Input file is missing"));
  EXPECT_TRUE(fs.isDirectory(kArtifacts));
  EXPECT_TRUE(engine.calls().empty());
  EXPECT_EQ(fs.count(kvo::fakes::FsOp::writeFileAtomically), 0u);
}

TEST_F(Runner, RecognitionFailurePassesUnchangedAndNothingIsWritten) {
  imageInput();
  engine.fail();
  EXPECT_TRUE(runRefused(kImage, HelperErrorCode::localRuntimeFailed, "Apple Vision text recognition failed"));
  EXPECT_TRUE(fs.listTree(kArtifacts).empty());
}

TEST_F(Runner, InputStagedInsideTheArtifactsDirectoryIsLeftInPlace) {
  const std::string staged = artifact("in.png");
  imageInput(staged);
  engine.respondWithText("x");
  run(staged);
  EXPECT_EQ(fs.listTree(kArtifacts), (std::vector<std::string>{"in.png", "ocr.txt", "result.json"}));
}

TEST_F(Runner, ClockIsReadExactlyTwice) {
  runImageReading("x");
  EXPECT_EQ(clock.reads(), 2);
}

}  // namespace
}  // namespace kvotest
