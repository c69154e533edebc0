#include "platform/PopplerPdfLibrary.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/PopplerPdfLibraryFixture.h"

namespace {

using namespace kvo::pdf_tests;

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
    const auto started = std::chrono::steady_clock::now();
    const auto captured = captureStdStreams([&] { exercise(file); });
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

