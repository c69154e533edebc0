// Poppler drawing pages and reading their own text.
#include "platform/PopplerPdfLibrary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/PopplerPdfLibraryFixture.h"

namespace {

using namespace kvo::pdf_tests;

// --- Rendering ------------------------------------------------------------

TEST_F(PopplerPdfLibrary, FillsUsLetterMediaBoxExactly) {
  expectBlackToTheEdges("pdf_letter_black.pdf", 612, 792);
  expectBlackToTheEdges("pdf_letter_black.pdf", 1700, 2200);
}

TEST_F(PopplerPdfLibrary, FillsA4MediaBoxExactly) {
  expectBlackToTheEdges("pdf_a4_black.pdf", 595, 842);
  expectBlackToTheEdges("pdf_a4_black.pdf", 1654, 2339);
}

TEST_F(PopplerPdfLibrary, FillsMediaBoxWithNonZeroOriginExactly) {
  expectBlackToTheEdges("pdf_offset_black.pdf", 612, 792);
  expectBlackToTheEdges("pdf_offset_black.pdf", 307, 397);
}

TEST_F(PopplerPdfLibrary, PutsMediaBoxLowerLeftCornerAtBitmapBottomLeft) {
  // A 40 × 20 point block at (100, 200), the media box's origin.
  auto p = page("pdf_offset_corner_block.pdf");
  ASSERT_NE(p, nullptr);
  expectOnlyBlock(renderAtScale(*p, 1), {0, 772, 40, 792});
  expectOnlyBlock(renderAtScale(*p, 2), {0, 1544, 80, 1584});
}

TEST_F(PopplerPdfLibrary, AppliesTranslationInPagePointsUpwardFromBitmapBottom) {
  auto p = page("pdf_offset_corner_block.pdf");
  ASSERT_NE(p, nullptr);
  // Bitmap left edge at page x = 50, bottom edge at page y = 170: the block
  // at (100, 200) lands 50 px right of and 30 px above the bottom-left.
  const Bitmap bitmap = p->render(612, 792, 1, 1, -50, -170);
  ASSERT_TRUE(bitmap.valid());
  expectOnlyBlock(bitmap, {50, 742, 90, 762});
}

TEST_F(PopplerPdfLibrary, RendersBlankPageAllWhite) {
  auto p = page("pdf_blank.pdf");
  ASSERT_NE(p, nullptr);
  const Bitmap bitmap = renderAtScale(*p, 200.0 / 72);
  ASSERT_TRUE(bitmap.valid());
  int64_t notWhite = 0;
  for (int64_t y = 0; y < bitmap.height(); ++y) {
    const uint8_t* row = bitmap.row(y);
    notWhite += std::count_if(row, row + 3 * bitmap.width(), [](uint8_t b) { return b != 255; });
  }
  EXPECT_EQ(notWhite, 0);
}

TEST_F(PopplerPdfLibrary, RendersExactlyTheRequestedSizeAsOpaqueRgb) {
  auto p = page("pdf_letter_black.pdf");
  ASSERT_NE(p, nullptr);
  const std::pair<int64_t, int64_t> sizes[] = {{1, 1}, {3, 7}, {101, 57}, {999, 1}, {1, 999}, {613, 791}};
  for (const auto& [width, height] : sizes) {
    const Bitmap bitmap = renderFilling(*p, width, height);
    ASSERT_TRUE(bitmap.valid()) << width << "x" << height;
    EXPECT_EQ(bitmap.width(), width);
    EXPECT_EQ(bitmap.height(), height);
    EXPECT_EQ(bitmap.format(), kvo::PixelFormat::rgb8);
    EXPECT_GE(bitmap.stride(), static_cast<size_t>(width) * 3);
    EXPECT_DOUBLE_EQ(bitmap.pixelsPerInch(), 72.0 * height / 792);
  }
}

TEST_F(PopplerPdfLibrary, DrawsRotatedPagesUnrotatedAtTheRequestedSize) {
  // Each page holds a 120 × 40 point block at its media box's lower-left
  // corner; /Rotate must neither turn nor stretch it.
  for (const char* fixture : {"pdf_rotate90.pdf", "pdf_rotate180.pdf", "pdf_rotate270.pdf"}) {
    auto p = page(fixture);
    if (p == nullptr) continue;
    const Bitmap bitmap = renderFilling(*p, 612, 792);
    ASSERT_TRUE(bitmap.valid()) << fixture;
    EXPECT_EQ(bitmap.width(), 612);
    EXPECT_EQ(bitmap.height(), 792);
    SCOPED_TRACE(fixture);
    expectOnlyBlock(bitmap, {0, 752, 120, 792});
  }
}

TEST_F(PopplerPdfLibrary, DrawsTheRestOfAPageOneOfWhoseContentStreamsDecodesToAnImage) {
  auto p = page("pdf_image_filtered_content.pdf");
  ASSERT_NE(p, nullptr);
  expectOnlyBlock(renderFilling(*p, 612, 792), {0, 752, 120, 792});
}

TEST_F(PopplerPdfLibrary, KnowsTheFiltersThatDecodeToImageSamples) {
  for (const char* image : {"JBIG2Decode", "DCTDecode", "DCT", "JPXDecode", "CCITTFaxDecode", "CCF"})
    EXPECT_TRUE(kvo::PopplerPdfLibrary::decodesToImage(image)) << image;
  for (const char* other : {"FlateDecode", "LZWDecode", "ASCII85Decode", "ASCIIHexDecode", "RunLengthDecode", "Crypt",
                            "jbig2decode", ""})
    EXPECT_FALSE(kvo::PopplerPdfLibrary::decodesToImage(other)) << other;
}

TEST_F(PopplerPdfLibrary, DrawsMediaBoxNotCropBox) {
  auto p = page("pdf_crop_box.pdf");
  ASSERT_NE(p, nullptr);
  const PdfBox box = p->mediaBox();
  EXPECT_EQ(box.width, 612);
  EXPECT_EQ(box.height, 792);
  expectOnlyBlock(renderFilling(*p, 612, 792), {0, 752, 120, 792});
}

TEST_F(PopplerPdfLibrary, DrawsTextPixelForPixelLikePdftoppm) {
  for (const char* fixture : {"pdf_english_text.pdf", "pdf_chinese_text.pdf", "pdf_base14_text.pdf"}) {
    SCOPED_TRACE(fixture);
    auto p = page(fixture);
    if (p == nullptr) continue;
    // 144 dpi: every fixture page measures whole pixels, as pdftoppm sizes it.
    const Bitmap bitmap = renderAtScale(*p, 2);
    ASSERT_TRUE(bitmap.valid());
    const std::string reference = pdftoppm(fixture, 144);
    const std::string header =
        "P6\n" + std::to_string(bitmap.width()) + " " + std::to_string(bitmap.height()) + "\n255\n";
    ASSERT_EQ(reference.substr(0, header.size()), header);
    const size_t rowBytes = static_cast<size_t>(bitmap.width()) * 3;
    ASSERT_EQ(reference.size(), header.size() + rowBytes * static_cast<size_t>(bitmap.height()));
    int64_t differingRows = 0;
    for (int64_t y = 0; y < bitmap.height(); ++y) {
      differingRows += reference.compare(header.size() + rowBytes * static_cast<size_t>(y), rowBytes,
                                         reinterpret_cast<const char*>(bitmap.row(y)), rowBytes) != 0;
    }
    EXPECT_EQ(differingRows, 0);
    EXPECT_GT(countPixels(bitmap, [](int64_t, int64_t, const uint8_t* px) { return isDark(px); }), 500);
  }
}

TEST_F(PopplerPdfLibrary, RefusesUnusableRenderRequests) {
  auto p = page("pdf_letter_black.pdf");
  ASSERT_NE(p, nullptr);
  EXPECT_FALSE(p->render(0, 10, 1, 1, 0, 0).valid());
  EXPECT_FALSE(p->render(10, -1, 1, 1, 0, 0).valid());
  EXPECT_FALSE(p->render(10, 10, 0, 1, 0, 0).valid());
  EXPECT_FALSE(p->render(10, 10, 1, NAN, 0, 0).valid());
  EXPECT_FALSE(p->render(10, 10, 1, 1, INFINITY, 0).valid());
  EXPECT_FALSE(p->render(int64_t{1} << 40, 10, 1, 1, 0, 0).valid());
}

// --- Text -----------------------------------------------------------------

TEST_F(PopplerPdfLibrary, ExtractsEnglishTextInReadingOrder) {
  auto p = page("pdf_english_text.pdf");
  ASSERT_NE(p, nullptr);
  const std::string text = p->text();
  EXPECT_EQ(normaliseSpace(text),
            std::string(kEnglishLines[0]) + " " + kEnglishLines[1] + " " + kEnglishLines[2]);
  EXPECT_EQ(text, pdftotext("pdf_english_text.pdf"));
  EXPECT_EQ(text.find('\f'), std::string::npos);
}

TEST_F(PopplerPdfLibrary, ExtractsSimplifiedAndTraditionalChinese) {
  auto p = page("pdf_chinese_text.pdf");
  ASSERT_NE(p, nullptr);
  const std::string text = p->text();
  EXPECT_EQ(normaliseSpace(text), std::string(kSimplifiedLine) + " " + kTraditionalLine);
  EXPECT_EQ(text, pdftotext("pdf_chinese_text.pdf"));
}

TEST_F(PopplerPdfLibrary, ReadsAndDrawsTextInNonEmbeddedStandardFont) {
  auto p = page("pdf_base14_text.pdf");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(normaliseSpace(p->text()), "Hello base fonts");
  // 24 pt glyphs on a baseline 92 pt below the top edge, from x = 72;
  // nothing else on the page is dark.
  const PixelRect ink = darkBounds(renderAtScale(*p, 1));
  EXPECT_GE(ink.x0, 72);
  EXPECT_LT(ink.x0, 80);
  EXPECT_GT(ink.x1, 200);
  EXPECT_GE(ink.y0, 92 - 24);
  EXPECT_LE(ink.y1, 92 + 8);
}

TEST_F(PopplerPdfLibrary, GivesEmptyTextForPagesWithoutTextLayer) {
  auto blank = page("pdf_blank.pdf");
  auto graphics = page("pdf_letter_black.pdf");
  ASSERT_NE(blank, nullptr);
  ASSERT_NE(graphics, nullptr);
  EXPECT_EQ(blank->text(), "");
  EXPECT_EQ(graphics->text(), "");
}


}  // namespace
