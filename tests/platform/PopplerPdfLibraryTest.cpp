#include "platform/PopplerPdfLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace {

using kvo::Bitmap;
using kvo::PdfBox;
using kvo::PdfDocument;
using kvo::PdfPage;
using kvo::test::captureStdStreams;
using kvo::test::fixturePath;

// The strings the fixture generator draws with cairo.
const char* const kEnglishLines[] = {
    "The quick brown fox jumps over the lazy dog.",
    "Pack my box with five dozen liquor jugs.",
    "Invoice 2024-0117: total 1,234.56 EUR",
};
const char* const kSimplifiedLine = "简体中文：我们的文字识别工具很好用";
const char* const kTraditionalLine = "繁體中文：我們的文字識別工具很好用";

// Files that make an unsilenced Poppler print diagnostics.
const char* const kDamagedFixtures[] = {
    "pdf_broken_xref.pdf",
    "pdf_bad_content.pdf",
    "pdf_truncated_half.pdf",
    "pdf_truncated_after_header.pdf",
};

// Collapses every run of whitespace to one space and trims both ends.
std::string normaliseSpace(const std::string& text) {
  std::istringstream words(text);
  std::string word, out;
  while (words >> word) out += (out.empty() ? "" : " ") + word;
  return out;
}

// Pixels whose three channels all satisfy `test`.
using PixelTest = std::function<bool(int64_t x, int64_t y, const uint8_t* rgb)>;
int64_t countPixels(const Bitmap& bitmap, const PixelTest& test) {
  int64_t count = 0;
  for (int64_t y = 0; y < bitmap.height(); ++y) {
    const uint8_t* row = bitmap.row(y);
    for (int64_t x = 0; x < bitmap.width(); ++x) count += test(x, y, row + 3 * x) ? 1 : 0;
  }
  return count;
}

bool isBlack(const uint8_t* px) { return px[0] == 0 && px[1] == 0 && px[2] == 0; }
bool isWhite(const uint8_t* px) { return px[0] == 255 && px[1] == 255 && px[2] == 255; }
bool isDark(const uint8_t* px) { return px[0] < 128 && px[1] < 128 && px[2] < 128; }

// The smallest [x0, x1) × [y0, y1) pixel rectangle holding every dark pixel.
struct PixelRect {
  int64_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  bool operator==(const PixelRect&) const = default;
};
std::ostream& operator<<(std::ostream& out, const PixelRect& r) {
  return out << "[" << r.x0 << "," << r.x1 << ")x[" << r.y0 << "," << r.y1 << ")";
}

PixelRect darkBounds(const Bitmap& bitmap) {
  PixelRect r{bitmap.width(), bitmap.height(), 0, 0};
  countPixels(bitmap, [&](int64_t x, int64_t y, const uint8_t* px) {
    if (!isDark(px)) return false;
    r.x0 = std::min(r.x0, x), r.y0 = std::min(r.y0, y);
    r.x1 = std::max(r.x1, x + 1), r.y1 = std::max(r.y1, y + 1);
    return true;
  });
  return r;
}

// (path, expect) of every PDF row of the corpus manifest whose path starts
// with `prefix`.
std::vector<std::pair<std::string, std::string>> corpusPdfExpectations(const std::string& prefix) {
  std::vector<std::pair<std::string, std::string>> rows;
  std::istringstream manifest(kvo::test::readFile(kvo::test::corpusPath("MANIFEST.tsv")));
  std::string line;
  std::getline(manifest, line);  // column names
  while (std::getline(manifest, line)) {
    std::vector<std::string> cells;
    std::istringstream fields(line);
    for (std::string cell; std::getline(fields, cell, '\t');) cells.push_back(cell);
    if (cells.size() > 5 && cells[0].starts_with(prefix) && cells[0].ends_with(".pdf")) {
      rows.emplace_back(cells[0], cells[5]);
    }
  }
  return rows;
}

class PopplerPdfLibrary : public ::testing::Test {
 protected:
  kvo::PopplerPdfLibrary library_;
  std::vector<std::unique_ptr<PdfDocument>> keptOpen_;  // documents of pages handed out

  std::unique_ptr<PdfDocument> open(const std::string& fixture) {
    return library_.open(fixturePath(fixture));
  }

  // Page `index` of a fixture, or nullptr (with a test failure) when the
  // fixture or the page cannot be had.
  std::unique_ptr<PdfPage> page(const std::string& fixture, int64_t index = 0) {
    auto doc = open(fixture);
    EXPECT_NE(doc, nullptr) << fixture;
    if (doc == nullptr) return nullptr;
    auto result = doc->page(index);
    EXPECT_NE(result, nullptr) << fixture << " page " << index;
    keptOpen_.push_back(std::move(doc));
    return result;
  }

  // Renders the media box so that it fills width × height exactly, the way
  // the pipeline calls render.
  static Bitmap renderFilling(PdfPage& page, int64_t width, int64_t height) {
    const PdfBox box = page.mediaBox();
    return page.render(width, height, static_cast<double>(width) / box.width,
                       static_cast<double>(height) / box.height, -box.x, -box.y);
  }

  static Bitmap renderAtScale(PdfPage& page, double scale) {
    const PdfBox box = page.mediaBox();
    return page.render(std::lround(box.width * scale), std::lround(box.height * scale), scale, scale, -box.x,
                       -box.y);
  }

  // Renders a page whose media box is filled black and expects black pixels
  // everywhere, allowing anti-aliasing only on the outermost pixel ring.
  void expectBlackToTheEdges(const std::string& fixture, int64_t width, int64_t height) {
    SCOPED_TRACE(fixture + " at " + std::to_string(width) + "x" + std::to_string(height));
    auto p = page(fixture);
    if (p == nullptr) return;
    const Bitmap bitmap = renderFilling(*p, width, height);
    ASSERT_TRUE(bitmap.valid());
    ASSERT_EQ(bitmap.width(), width);
    ASSERT_EQ(bitmap.height(), height);
    const auto inner = [&](int64_t x, int64_t y) {
      return x > 0 && y > 0 && x < width - 1 && y < height - 1;
    };
    EXPECT_EQ(countPixels(bitmap, [&](int64_t x, int64_t y, const uint8_t* px) {
                return inner(x, y) && !isBlack(px);
              }), 0);
    EXPECT_EQ(countPixels(bitmap, [](int64_t, int64_t, const uint8_t* px) { return !isDark(px); }), 0);
  }

  // Expects `block` black and every other pixel white.
  static void expectOnlyBlock(const Bitmap& bitmap, PixelRect block) {
    ASSERT_TRUE(bitmap.valid());
    const auto inside = [&](int64_t x, int64_t y) {
      return x >= block.x0 && x < block.x1 && y >= block.y0 && y < block.y1;
    };
    EXPECT_EQ(darkBounds(bitmap), block);
    EXPECT_EQ(countPixels(bitmap, [&](int64_t x, int64_t y, const uint8_t* px) {
                return inside(x, y) ? !isBlack(px) : !isWhite(px);
              }), 0);
  }

  // The text of page 1 of a fixture as `pdftotext -nopgbrk` prints it.
  static std::string pdftotext(const std::string& fixture) {
    auto result = kvo::test::runProcess({"/usr/bin/pdftotext", "-nopgbrk", fixturePath(fixture), "-"});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    return result.out;
  }

  // Page 1 of a fixture as `pdftoppm` renders it at `dpi`, as a binary PPM.
  static std::string pdftoppm(const std::string& fixture, int dpi) {
    auto result = kvo::test::runProcess(
        {"/usr/bin/pdftoppm", "-r", std::to_string(dpi), "-f", "1", "-l", "1", fixturePath(fixture)});
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    return result.out;
  }

  // Everything a caller does with a file: open, count, and for the first
  // two pages the media box and (unless `content` is false) the text and a
  // small rendering of at most about a megapixel.
  void exercise(const std::string& path, bool content = true) {
    auto doc = library_.open(path);
    if (doc == nullptr || doc->isLocked()) return;
    const int64_t pages = std::min<int64_t>(doc->pageCount(), 2);
    for (int64_t i = 0; i < pages; ++i) {
      auto p = doc->page(i);
      if (p == nullptr) continue;
      const PdfBox box = p->mediaBox();
      if (!content) continue;
      (void)p->text();
      if (!(box.width > 0) || !(box.height > 0)) continue;
      const double scale = std::min(0.1, std::sqrt(1e6 / (box.width * box.height)));
      (void)renderAtScale(*p, scale);
    }
  }
};

// --- Geometry -------------------------------------------------------------

TEST_F(PopplerPdfLibrary, CountsTheDeclaredPagesAndRefusesOneInALoopOfThePageTree) {
  auto doc = open("pdf_pages_loop.pdf");
  ASSERT_NE(doc, nullptr);
  EXPECT_EQ(doc->pageCount(), 2);
  EXPECT_NE(doc->page(0), nullptr);
  EXPECT_EQ(doc->page(1), nullptr);
}

TEST_F(PopplerPdfLibrary, CountsTheDeclaredPagesAndRefusesOneTheTreeDoesNotHold) {
  auto doc = open("pdf_pages_declared_two_one_kid.pdf");
  ASSERT_NE(doc, nullptr);
  EXPECT_EQ(doc->pageCount(), 2);
  EXPECT_NE(doc->page(0), nullptr);
  EXPECT_EQ(doc->page(1), nullptr);
  EXPECT_EQ(doc->page(2), nullptr);
}

TEST_F(PopplerPdfLibrary, ReportsMediaBoxesInPointsUnrotated) {
  const auto expectBox = [&](const std::string& fixture, PdfBox want) {
    auto p = page(fixture);
    if (p == nullptr) return;
    const PdfBox got = p->mediaBox();
    EXPECT_DOUBLE_EQ(got.x, want.x) << fixture;
    EXPECT_DOUBLE_EQ(got.y, want.y) << fixture;
    EXPECT_DOUBLE_EQ(got.width, want.width) << fixture;
    EXPECT_DOUBLE_EQ(got.height, want.height) << fixture;
  };
  expectBox("pdf_letter_black.pdf", {0, 0, 612, 792});
  expectBox("pdf_a4_black.pdf", {0, 0, 595.276, 841.89});
  expectBox("pdf_offset_black.pdf", {100, 200, 612, 792});
  expectBox("pdf_rotate90.pdf", {0, 0, 612, 792});
  expectBox("pdf_rotate270.pdf", {0, 0, 612, 792});
}

TEST_F(PopplerPdfLibrary, ReportsZeroWidthMediaBoxAsIs) {
  auto p = page("pdf_zero_width.pdf");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->mediaBox().width, 0);
  EXPECT_EQ(p->mediaBox().height, 792);
}

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

// --- Documents ------------------------------------------------------------

TEST_F(PopplerPdfLibrary, OpensUserPasswordDocumentLocked) {
  auto doc = open("pdf_encrypted_user_password.pdf");
  ASSERT_NE(doc, nullptr);
  EXPECT_TRUE(doc->isEncrypted());
  EXPECT_TRUE(doc->isLocked());
  EXPECT_EQ(doc->pageCount(), 0);
  EXPECT_EQ(doc->page(0), nullptr);
}

TEST_F(PopplerPdfLibrary, OpensOwnerPasswordOnlyDocumentReadable) {
  auto doc = open("pdf_encrypted_owner_only.pdf");
  ASSERT_NE(doc, nullptr);
  EXPECT_TRUE(doc->isEncrypted());
  EXPECT_FALSE(doc->isLocked());
  ASSERT_EQ(doc->pageCount(), 1);
  auto p = doc->page(0);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(normaliseSpace(p->text()), normaliseSpace(pdftotext("pdf_english_text.pdf")));
  EXPECT_TRUE(renderAtScale(*p, 0.5).valid());
}

TEST_F(PopplerPdfLibrary, ReportsUnencryptedDocumentAsSuch) {
  auto doc = open("pdf_english_text.pdf");
  ASSERT_NE(doc, nullptr);
  EXPECT_FALSE(doc->isEncrypted());
  EXPECT_FALSE(doc->isLocked());
}

TEST_F(PopplerPdfLibrary, RefusesFilesThatAreNotParseable) {
  EXPECT_EQ(open("pdf_truncated_after_header.pdf"), nullptr);
  EXPECT_EQ(open("pdf_truncated_half.pdf"), nullptr);
  EXPECT_EQ(open("pdf_does_not_exist.pdf"), nullptr);
  kvo::test::TempDir dir;
  kvo::test::writeFile(dir.file("text.pdf"), "hello, this is not a PDF\n");
  EXPECT_EQ(library_.open(dir.file("text.pdf")), nullptr);
}

TEST_F(PopplerPdfLibrary, RebuildsBrokenCrossReferenceTable) {
  expectBlackToTheEdges("pdf_broken_xref.pdf", 61, 79);
}

TEST_F(PopplerPdfLibrary, CountsPagesOfLargeDocuments) {
  auto doc500 = open("pdf_pages_500.pdf");
  auto doc501 = open("pdf_pages_501.pdf");
  ASSERT_NE(doc500, nullptr);
  ASSERT_NE(doc501, nullptr);
  EXPECT_EQ(doc500->pageCount(), 500);
  EXPECT_EQ(doc501->pageCount(), 501);
  EXPECT_NE(doc500->page(499), nullptr);
  EXPECT_NE(doc501->page(500), nullptr);
  EXPECT_EQ(doc500->page(500), nullptr);
  EXPECT_EQ(doc500->page(-1), nullptr);
}

TEST_F(PopplerPdfLibrary, PageKeepsItsDocumentAlive) {
  auto doc = open("pdf_english_text.pdf");
  ASSERT_NE(doc, nullptr);
  auto p = doc->page(0);
  ASSERT_NE(p, nullptr);
  doc.reset();
  EXPECT_NE(normaliseSpace(p->text()), "");
  EXPECT_TRUE(renderAtScale(*p, 0.25).valid());
}

// --- Silence --------------------------------------------------------------

TEST_F(PopplerPdfLibrary, DamagedFilesWouldMakePopplerPrintDiagnostics) {
  // The premise of the silence tests: these files do make an unsilenced
  // Poppler (here its own pdftoppm) print to stderr.
  for (const char* fixture : kDamagedFixtures) {
    kvo::test::TempDir dir;
    auto result =
        kvo::test::runProcess({"/usr/bin/pdftoppm", "-r", "10", fixturePath(fixture), dir.file("out")});
    EXPECT_NE(result.err, "") << fixture;
  }
}

TEST_F(PopplerPdfLibrary, StaysSilentOnDamagedFiles) {
  for (const char* fixture : kDamagedFixtures) {
    const auto captured = captureStdStreams([&] { exercise(fixturePath(fixture)); });
    EXPECT_EQ(captured.out, "") << fixture;
    EXPECT_EQ(captured.err, "") << fixture;
  }
}

TEST_F(PopplerPdfLibrary, StaysSilentOnEveryCorpusPdf) {
  if (!kvo::test::corpusAvailable()) GTEST_SKIP() << "conformance corpus not present";
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kvo::test::corpusPath(""))) {
    if (entry.is_regular_file() && entry.path().extension() == ".pdf") files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  ASSERT_GT(files.size(), 50u);
  for (const auto& file : files) {
    // A decompression bomb: Poppler needs minutes and gigabytes for its
    // text or its rendering, so only its structure is read here.
    const bool bomb = file.ends_with("limits/bomb_giant.pdf");
    const auto started = std::chrono::steady_clock::now();
    const auto captured = captureStdStreams([&] { exercise(file, !bomb); });
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
    EXPECT_EQ(captured.out, "") << file;
    EXPECT_EQ(captured.err, "") << file;
    if (ms.count() > 2000) {
      std::printf("[ slow     ] %s: %lld ms\n", file.c_str(), static_cast<long long>(ms.count()));
    }
  }
}

TEST_F(PopplerPdfLibrary, LocksExactlyTheCorpusPdfsThatNeedAUserPassword) {
  if (!kvo::test::corpusAvailable()) GTEST_SKIP() << "conformance corpus not present";
  int checked = 0;
  for (const auto& [path, expect] : corpusPdfExpectations("pdf-encrypted/")) {
    if (expect != "encrypted_pdf" && expect != "ok") continue;
    auto doc = library_.open(kvo::test::corpusPath(path));
    ASSERT_NE(doc, nullptr) << path;
    EXPECT_EQ(doc->isLocked(), expect == "encrypted_pdf") << path;
    if (!doc->isLocked()) {
      EXPECT_NE(doc->page(0), nullptr) << path;
    }
    ++checked;
  }
  EXPECT_GT(checked, 20);
}

TEST_F(PopplerPdfLibrary, OpensEveryCorpusPdfExpectedToBeReadable) {
  if (!kvo::test::corpusAvailable()) GTEST_SKIP() << "conformance corpus not present";
  int checked = 0;
  for (const auto& [path, expect] : corpusPdfExpectations("")) {
    if (expect != "ok") continue;
    auto doc = library_.open(kvo::test::corpusPath(path));
    ASSERT_NE(doc, nullptr) << path;
    EXPECT_FALSE(doc->isLocked()) << path;
    EXPECT_GE(doc->pageCount(), 1) << path;
    auto p = doc->page(0);
    ASSERT_NE(p, nullptr) << path;
    EXPECT_GT(p->mediaBox().width, 0) << path;
    EXPECT_GT(p->mediaBox().height, 0) << path;
    ++checked;
  }
  EXPECT_GT(checked, 50);
}

}  // namespace
