#include "VisionOcrCore/PdfRenderer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "fakes/Expectations.h"
#include "fakes/FakeBitmap.h"
#include "fakes/FakePlatform.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using kvo::PageRenderSize;
using kvo::PdfBox;
using kvo::PngWriteResult;
using namespace kvo::fakes;

constexpr const char* kPng = "/art/pages/page-0001.png";

class PdfRenderer : public ::testing::Test {
 protected:
  PdfRenderer() { fake.fileSystem.addDirectory("/art/pages"); }

  FakePlatform fake;
  kvo::PdfRenderer renderer{fake.imageCodec};

  static PageRenderSize sizeOf(double width, double height) { return kvo::pageRenderSize(PdfBox{0, 0, width, height}); }

  kvo::Bitmap render(FakePdfPage page, const std::string& path = kPng) {
    auto pdfPage = fake.pdfLibrary.pageDirectly(std::move(page));
    return renderer.render(*pdfPage, path);
  }

  ::testing::AssertionResult renderRefused(FakePdfPage page, HelperErrorCode code, const std::string& message) {
    return throwsHelperError([&] { render(std::move(page)); }, code, message);
  }

  const RenderCall& onlyRender() {
    EXPECT_EQ(fake.pdfLibrary.renders().size(), 1u);
    return fake.pdfLibrary.renders().front();
  }
};

// ---- bitmap sizes ------------------------------------------------------------------------

TEST_F(PdfRenderer, UsLetterRendersAt200Dpi) {
  const PageRenderSize size = sizeOf(612, 792);
  EXPECT_EQ(size.width, 1700);
  EXPECT_EQ(size.height, 2200);
  EXPECT_EQ(size.scale, 200.0 / 72.0);
}

TEST_F(PdfRenderer, A4RoundsUpToWholePixels) {
  const PageRenderSize size = sizeOf(595.28, 841.89);
  EXPECT_EQ(size.width, 1654);
  EXPECT_EQ(size.height, 2339);
}

TEST_F(PdfRenderer, PageOf1800PointsSquareFillsTheLimitWithoutShrinking) {
  const PageRenderSize size = sizeOf(1800, 1800);
  EXPECT_EQ(size.width, 5000);
  EXPECT_EQ(size.height, 5000);
  EXPECT_EQ(size.scale, 200.0 / 72.0);
}

TEST_F(PdfRenderer, PageOf3000PointsSquareIsShrunkOnceAndRoundedDown) {
  const PageRenderSize size = sizeOf(3000, 3000);
  EXPECT_EQ(size.width, 4999);
  EXPECT_EQ(size.height, 4999);
  EXPECT_LE(size.width * size.height, 25'000'000);
  EXPECT_DOUBLE_EQ(size.scale, 200.0 / 72.0 * std::sqrt(25'000'000.0 / (8334.0 * 8334.0)));
}

TEST_F(PdfRenderer, TinyPageIsAtLeastOnePixel) {
  const PageRenderSize size = sizeOf(0.001, 0.001);
  EXPECT_EQ(size.width, 1);
  EXPECT_EQ(size.height, 1);
}

TEST_F(PdfRenderer, ExtremeAspectRatioExceedsThePixelLimitAfterTheShrink) {
  EXPECT_TRUE(throwsHelperError([] { sizeOf(0.001, 10'000'000); }, HelperErrorCode::resourceLimitExceeded,
                                "PDF page pixel count exceeds limit"));
}

TEST_F(PdfRenderer, ZeroWidthIsAnInvalidPage) {
  EXPECT_TRUE(throwsHelperError([] { sizeOf(0, 792); }, HelperErrorCode::invalidInput, "PDF page has invalid dimensions"));
}

TEST_F(PdfRenderer, ZeroNegativeOrNotANumberHeightIsAnInvalidPage) {
  for (double height : {0.0, -5.0, std::nan("")}) {
    EXPECT_TRUE(throwsHelperError([&] { sizeOf(612, height); }, HelperErrorCode::invalidInput,
                                  "PDF page has invalid dimensions"));
  }
  EXPECT_TRUE(throwsHelperError([] { sizeOf(std::nan(""), 10); }, HelperErrorCode::invalidInput,
                                "PDF page has invalid dimensions"));
}

// ---- drawing -----------------------------------------------------------------------------------

TEST_F(PdfRenderer, PageIsDrawnScaledToTheIntegerSizeAtTheOrigin) {
  const kvo::Bitmap bitmap = render(FakePdfPage::ofSize(612, 792));
  const RenderCall& call = onlyRender();
  EXPECT_EQ(call.width, 1700);
  EXPECT_EQ(call.height, 2200);
  EXPECT_EQ(call.scaleX, 1700.0 / 612);
  EXPECT_EQ(call.scaleY, 2200.0 / 792);
  EXPECT_EQ(call.translateX, 0);
  EXPECT_EQ(call.translateY, 0);
  EXPECT_EQ(bitmap.width(), 1700);
  EXPECT_EQ(bitmap.height(), 2200);
}

TEST_F(PdfRenderer, ScaleFollowsTheRoundedSizeOnEachAxis) {
  render(FakePdfPage::ofSize(595.28, 841.89));
  EXPECT_EQ(onlyRender().scaleX, 1654 / 595.28);
  EXPECT_EQ(onlyRender().scaleY, 2339 / 841.89);
}

TEST_F(PdfRenderer, ShrunkPageIsScaledToItsShrunkSize) {
  render(FakePdfPage::ofSize(3000, 3000));
  EXPECT_EQ(onlyRender().width, 4999);
  EXPECT_EQ(onlyRender().scaleX, 4999 / 3000.0);
  EXPECT_EQ(onlyRender().scaleY, 4999 / 3000.0);
}

TEST_F(PdfRenderer, BoxWithAnOffsetOriginIsTranslatedOntoTheBitmapOrigin) {
  FakePdfPage page;
  page.mediaBox = PdfBox{36, -18.5, 540, 720};
  render(page);
  EXPECT_EQ(onlyRender().translateX, -36);
  EXPECT_EQ(onlyRender().translateY, 18.5);
  EXPECT_EQ(onlyRender().width, 1500);
  EXPECT_EQ(onlyRender().height, 2000);
}

TEST_F(PdfRenderer, PageWithoutContentIsWrittenAsAnAllWhitePng) {
  render(FakePdfPage::ofSize(36, 18));  // 100 × 50 pixels
  ASSERT_EQ(fake.imageCodec.pngWrites().size(), 1u);
  EXPECT_EQ(fake.imageCodec.pngWrites()[0].width, 100);
  EXPECT_EQ(fake.imageCodec.pngWrites()[0].height, 50);
  EXPECT_EQ(fake.imageCodec.pngWrites()[0].allWhite, true);
}

TEST_F(PdfRenderer, PngIsCompleteAtThePathWhenRenderReturns) {
  fake.imageCodec.setPngFileSize(4321);
  render(FakePdfPage{});
  ASSERT_EQ(fake.imageCodec.pngWrites().size(), 1u);
  EXPECT_EQ(fake.imageCodec.pngWrites()[0].path, kPng);
  EXPECT_EQ(fake.fileSystem.fileSize(kPng), 4321u);
}

TEST_F(PdfRenderer, ReturnedBitmapIsTheOneWritten) {
  const kvo::Bitmap bitmap = render(FakePdfPage::ofSize(72, 36));
  EXPECT_EQ(fake.imageCodec.pngWrites()[0].width, bitmap.width());
  EXPECT_EQ(fake.imageCodec.pngWrites()[0].height, bitmap.height());
  EXPECT_EQ(liveFakeBitmaps(), 1);
}

// ---- failures -----------------------------------------------------------------------------------

TEST_F(PdfRenderer, InvalidBoxIsRefusedBeforeAnythingIsDrawn) {
  EXPECT_TRUE(renderRefused(FakePdfPage::ofSize(0, 792), HelperErrorCode::invalidInput, "PDF page has invalid dimensions"));
  EXPECT_TRUE(fake.pdfLibrary.renders().empty());
  EXPECT_TRUE(fake.imageCodec.pngWrites().empty());
}

TEST_F(PdfRenderer, OversizedPageIsRefusedBeforeAnyBitmapIsAllocated) {
  EXPECT_TRUE(renderRefused(FakePdfPage::ofSize(0.001, 10'000'000), HelperErrorCode::resourceLimitExceeded,
                            "PDF page pixel count exceeds limit"));
  EXPECT_TRUE(fake.pdfLibrary.renders().empty());
}

TEST_F(PdfRenderer, BitmapThatCannotBeHadFailsToAllocate) {
  FakePdfPage page;
  page.render = RenderOutcome::noBitmap;
  EXPECT_TRUE(renderRefused(page, HelperErrorCode::localRuntimeFailed, "Failed to allocate PDF page bitmap"));
  EXPECT_TRUE(fake.imageCodec.pngWrites().empty());
}

TEST_F(PdfRenderer, BitmapOfTheWrongSizeFailsToBecomeAnImage) {
  FakePdfPage page;
  page.render = RenderOutcome::wrongSize;
  EXPECT_TRUE(renderRefused(page, HelperErrorCode::localRuntimeFailed, "Failed to create PDF page image"));
  EXPECT_TRUE(fake.imageCodec.pngWrites().empty());
  EXPECT_EQ(liveFakeBitmaps(), 0);
}

TEST_F(PdfRenderer, PngThatCannotBeCreatedFailsToCreateTheArtifact) {
  fake.imageCodec.failPng(kPng, PngWriteResult::cannotCreate);
  EXPECT_TRUE(renderRefused(FakePdfPage{}, HelperErrorCode::localRuntimeFailed, "Failed to create PDF page artifact"));
  EXPECT_EQ(liveFakeBitmaps(), 0);
}

TEST_F(PdfRenderer, PngThatCannotBeFinishedFailsToWriteTheArtifact) {
  fake.imageCodec.failPng(kPng, PngWriteResult::cannotFinish);
  EXPECT_TRUE(renderRefused(FakePdfPage{}, HelperErrorCode::localRuntimeFailed, "Failed to write PDF page artifact"));
  EXPECT_EQ(liveFakeBitmaps(), 0);
}

TEST_F(PdfRenderer, PngInAMissingDirectoryCannotBeCreated) {
  EXPECT_TRUE(throwsHelperError([&] { render(FakePdfPage{}, "/elsewhere/page-0001.png"); },
                                HelperErrorCode::localRuntimeFailed, "Failed to create PDF page artifact"));
}

}  // namespace
}  // namespace kvotest
