// The helper binary on PDF documents: own text versus rendering per output
// mode, page images and their sizes, page limits, encryption and damage.

#include "blackbox/BlackBoxFixture.h"
#include "platform/StandardImageCodec.h"

namespace kvo::test {
namespace {

class PdfInput : public HelperBinary {
 protected:
  ProcessResult runPdf(const std::string& fixtureName, const std::string& mode) {
    return runOn(fixtureName.rfind('/', 0) == 0 ? fixtureName : pipelineFixture(fixtureName), {"--output-mode", mode});
  }

  // Width and height of every page record in result.json.
  std::vector<std::pair<int64_t, int64_t>> pageSizes() const {
    std::vector<std::pair<int64_t, int64_t>> sizes;
    const Json result = resultJson();
    for (const Json& page : result["pages"]) sizes.emplace_back(page["width"], page["height"]);
    return sizes;
  }

  Bitmap decodePage(const std::string& relativePath) const {
    StandardImageCodec codec;
    auto source = codec.open(artifacts() + "/" + relativePath);
    return source ? source->decodeUpright() : Bitmap();
  }

  static bool isBlack(const Bitmap& b, int64_t x, int64_t y) {
    const uint8_t* p = b.row(y) + x * bytesPerPixel(b.format());
    return p[0] < 64 && p[1] < 64 && p[2] < 64;
  }

  // A two-page document whose second page cannot be had: the run ends with
  // "Failed to open PDF page" after the first page (no text of its own) was
  // rendered, and that page's image stays on disk.
  ::testing::AssertionResult failsAtSecondPage(const std::string& input, const std::string& mode) {
    TempDir dir;
    ProcessResult r = run({"--input", input, "--artifacts", dir.file("a"), "--output-mode", mode, "--json"});
    if (r.out != failureLine("invalid_input", "Failed to open PDF page") || r.exitStatus != 2 || !r.err.empty()) {
      return ::testing::AssertionFailure() << "exit " << r.exitStatus << ", stdout " << r.out << ", stderr " << r.err;
    }
    const std::vector<std::string> left = listTree(dir.file("a"));
    if (left != std::vector<std::string>{"pages/", "pages/page-0001.png"}) {
      return ::testing::AssertionFailure() << "left behind: " << ::testing::PrintToString(left);
    }
    return ::testing::AssertionSuccess();
  }

  static const std::vector<std::string> kOwnTexts;
};

const std::vector<std::string> PdfInput::kOwnTexts = {
    "Page one of the report\nRevenue grew by 12 percent",
    "Page two lists the costs\nRent and salaries",
    "Page three ends it\nThank you",
};

TEST_F(PdfInput, TextModeTakesEveryPageFromItsOwnTextAndWritesNoImages) {
  ProcessResult r = runPdf("text3.pdf", "text");
  Json line = singleJsonLine(r);
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(line["pageCount"], 3);
  EXPECT_EQ(line["pagesPreview"], Json::array());
  EXPECT_EQ(artifactListing(), (std::vector<std::string>{"ocr.txt", "result.json"}));
  EXPECT_EQ(readFile(artifacts() + "/ocr.txt"), kOwnTexts[0] + "\n\n" + kOwnTexts[1] + "\n\n" + kOwnTexts[2]);
  EXPECT_EQ(pageSizes(), (std::vector<std::pair<int64_t, int64_t>>(3, {612, 792})));
  const Json result = resultJson();
  for (const Json& page : result["pages"]) {
    EXPECT_FALSE(page.contains("imagePath"));
    EXPECT_EQ(page["regions"], Json::array());
  }
}

TEST_F(PdfInput, LayoutModeRendersEveryPageAndKeepsItsOwnText) {
  ProcessResult r = runPdf("text3.pdf", "layout");
  Json line = singleJsonLine(r);
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(line["pagesPreview"], Json::parse(R"([{"imagePath":"pages/page-0001.png","page":1},)"
                                              R"({"imagePath":"pages/page-0002.png","page":2},)"
                                              R"({"imagePath":"pages/page-0003.png","page":3}])"));
  EXPECT_EQ(artifactListing(), (std::vector<std::string>{"ocr.txt", "pages/", "pages/page-0001.png",
                                                         "pages/page-0002.png", "pages/page-0003.png", "result.json"}));
  EXPECT_EQ(pageSizes(), (std::vector<std::pair<int64_t, int64_t>>(3, {1700, 2200})));
  const Json pages = resultJson()["pages"];
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(pages[i]["text"], kOwnTexts[i]);
    EXPECT_FALSE(pages[i]["regions"].empty()) << "recognition supplies the regions";
  }
}

TEST_F(PdfInput, MixedDocumentInTextModeRendersOnlyThePageWithoutText) {
  ProcessResult r = runPdf("mixed.pdf", "text");
  Json line = singleJsonLine(r);
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(artifactListing(),
            (std::vector<std::string>{"ocr.txt", "pages/", "pages/page-0003.png", "result.json"}));
  EXPECT_EQ(line["pagesPreview"], Json::parse(R"([{"imagePath":"pages/page-0003.png","page":3}])"));
  EXPECT_EQ(pageSizes(), (std::vector<std::pair<int64_t, int64_t>>{{612, 792}, {612, 792}, {1700, 2200}}));
}

TEST_F(PdfInput, SevenRenderedPagesPreviewTheFirstFive) {
  ProcessResult r = runPdf("drawings7.pdf", "text");
  Json line = singleJsonLine(r);
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(line["pageCount"], 7);
  ASSERT_EQ(line["pagesPreview"].size(), 5u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(line["pagesPreview"][i]["page"], i + 1);
  EXPECT_EQ(listTree(artifacts() + "/pages").size(), 7u);
}

TEST_F(PdfInput, PageSizesFollowTheMediaBoxAt200Dpi) {
  const std::vector<std::pair<std::string, std::pair<int64_t, int64_t>>> cases = {
      {fixturePath("pdf_letter_black.pdf"), {1700, 2200}},
      {fixturePath("pdf_a4_black.pdf"), {1654, 2339}},
      {pipelineFixture("box1800.pdf"), {5000, 5000}},
      {pipelineFixture("box3000.pdf"), {4999, 4999}},
  };
  for (const auto& [input, size] : cases) {
    TempDir dir;
    ProcessResult r = run({"--input", input, "--artifacts", dir.file("a"), "--json"});
    ASSERT_EQ(r.exitStatus, 0) << input << r.out;
    Json page = Json::parse(readFile(dir.file("a/result.json")))["pages"][0];
    EXPECT_EQ(page["width"], size.first) << input;
    EXPECT_EQ(page["height"], size.second) << input;
  }
}

TEST_F(PdfInput, PageBeyondThePixelLimitIsRefused) {
  expectFailure(runPdf("sliver.pdf", "layout"), "resource_limit_exceeded", "PDF page pixel count exceeds limit");
}

TEST_F(PdfInput, ZeroWidthPageIsRefused) {
  expectFailure(runPdf(fixturePath("pdf_zero_width.pdf"), "layout"), "invalid_input",
                "PDF page has invalid dimensions");
}

TEST_F(PdfInput, BlankPageIsAnAllWhitePng) {
  ASSERT_EQ(runPdf(fixturePath("pdf_blank.pdf"), "layout").exitStatus, 0);
  Bitmap page = decodePage("pages/page-0001.png");
  ASSERT_TRUE(page.valid());
  ASSERT_EQ(page.width(), 1700);
  for (int64_t y = 0; y < page.height(); ++y) {
    const uint8_t* row = page.row(y);
    for (size_t i = 0; i < static_cast<size_t>(page.width() * bytesPerPixel(page.format())); ++i) {
      ASSERT_EQ(row[i], 255) << "at row " << y;
    }
  }
}

TEST_F(PdfInput, MediaBoxOriginLandsOnTheImageCornerWithoutMargin) {
  ASSERT_EQ(runPdf(fixturePath("pdf_offset_corner_block.pdf"), "layout").exitStatus, 0);
  Bitmap page = decodePage("pages/page-0001.png");
  ASSERT_TRUE(page.valid());
  // The 40 × 20 pt block sits on the box's lower-left corner: about 111 × 56 pixels.
  EXPECT_TRUE(isBlack(page, 0, page.height() - 1));
  EXPECT_TRUE(isBlack(page, 100, page.height() - 50));
  EXPECT_FALSE(isBlack(page, 120, page.height() - 1));
  EXPECT_FALSE(isBlack(page, 0, page.height() - 70));
  EXPECT_FALSE(isBlack(page, 0, 0));
}

TEST_F(PdfInput, FiveHundredPagesAreAcceptedAndFiveHundredAndOneRefusedBeforeRendering) {
  ProcessResult accepted = runPdf("text500.pdf", "text");
  ASSERT_EQ(accepted.exitStatus, 0) << accepted.out;
  EXPECT_EQ(singleJsonLine(accepted)["pageCount"], 500);
  TempDir dir;
  ProcessResult refused =
      run({"--input", pipelineFixture("text501.pdf"), "--artifacts", dir.file("a"), "--output-mode", "layout", "--json"});
  expectFailure(refused, "resource_limit_exceeded", "PDF page count exceeds limit");
  EXPECT_TRUE(listTree(dir.file("a")).empty());
}

TEST_F(PdfInput, DeclaredPageMissingFromThePageTreeFailsAtThatPageInBothModes) {
  for (const char* mode : {"text", "layout"}) {
    EXPECT_TRUE(failsAtSecondPage(fixturePath("pdf_pages_declared_two_one_kid.pdf"), mode)) << mode;
  }
}

TEST_F(PdfInput, DeclaredPageInALoopOfThePageTreeFailsAtThatPageInBothModes) {
  for (const char* mode : {"text", "layout"}) EXPECT_TRUE(failsAtSecondPage(fixturePath("pdf_pages_loop.pdf"), mode)) << mode;
}

TEST_F(PdfInput, UserPasswordIsRefusedAndOwnerOnlyEncryptionOpens) {
  expectFailure(runInFreshDirectory(fixturePath("pdf_encrypted_user_password.pdf")), "encrypted_pdf",
                "PDF requires a password");
  ProcessResult opened = runPdf(fixturePath("pdf_encrypted_owner_only.pdf"), "text");
  ASSERT_EQ(opened.exitStatus, 0) << opened.out;
  EXPECT_NE(readFile(artifacts() + "/ocr.txt").find("quick brown fox"), std::string::npos);
}

TEST_F(PdfInput, TruncatedPdfFailsToOpen) {
  expectFailure(runPdf(fixturePath("pdf_truncated_after_header.pdf"), "text"), "invalid_input", "Failed to open PDF");
}

TEST_F(PdfInput, DamagedPdfsAnswerWithOneLineAndASilentStderr) {
  for (const char* name : {"pdf_truncated_half.pdf", "pdf_broken_xref.pdf", "pdf_bad_content.pdf"}) {
    ProcessResult r = runInFreshDirectory(fixturePath(name));
    Json line = singleJsonLine(r);
    EXPECT_TRUE(r.exitStatus == 0 || r.exitStatus == 2) << name;
    EXPECT_EQ(line["ok"], r.exitStatus == 0) << name;
  }
}

TEST_F(PdfInput, PdfContentDecidesTheKindWhateverTheName) {
  fs::create_directories(temp_.file("in"));
  fs::copy_file(pipelineFixture("text3.pdf"), temp_.file("in/scan.png"));
  ProcessResult r = runOn(temp_.file("in/scan.png"), {"--output-mode", "text"});
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(singleJsonLine(r)["pageCount"], 3);
}

}  // namespace
}  // namespace kvo::test
