#include "platform/StandardImageCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/StandardImageCodecFixture.h"

namespace {

using namespace kvo::codec_tests;

// ---------------------------------------------------------------------------
// Deciding the type

TEST_F(StandardImageCodec, RecognisesPngJpegAndWebpByTheirSignatures) {
  EXPECT_EQ(typeOf("kind.png"), ImageType::png);
  EXPECT_EQ(typeOf("kind.jpg"), ImageType::jpeg);
  EXPECT_EQ(typeOf("kind.webp"), ImageType::webp);
}

TEST_F(StandardImageCodec, DecidesTheTypeByContentNotByName) {
  EXPECT_EQ(typeOf("png-named.pdf"), ImageType::png);
  EXPECT_EQ(typeOf("png-named.jpg"), ImageType::png);
  EXPECT_EQ(decode("png-named.jpg").width(), 8);
}

TEST_F(StandardImageCodec, NamesKnownButRefusedImageKindsOther) {
  for (const char* name : {"kind.gif", "kind.tiff", "kind-big-endian.tiff", "kind.bmp", "kind.ppm", "kind.pgm",
                           "kind-ascii.pbm", "kind.pam", "kind.ico", "kind.heic", "kind.avif"})
    EXPECT_EQ(typeOf(name), ImageType::other) << name;
}

TEST_F(StandardImageCodec, OtherKindsHoldNothingToDecode) {
  auto source = open("kind.gif");
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->imageCount(), 0);
  EXPECT_FALSE(source->storedSize().has_value());
  EXPECT_FALSE(source->decodeUpright().valid());
}

TEST_F(StandardImageCodec, OpensNothingForFilesThatAreNoImage) {
  for (const char* name : {"plain.txt", "netpbm-lookalike.txt", "document.pdf", "empty.bin", "no-such-file.png"})
    EXPECT_EQ(open(name), nullptr) << name;
}

// ---------------------------------------------------------------------------
// Sizes from headers

TEST_F(StandardImageCodec, ReadsADeclaredJpegSizeWithoutDecodingPixels) {
  auto source = open("huge-header.jpg");
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->imageCount(), 1);
  const auto size = source->storedSize();
  ASSERT_TRUE(size.has_value());
  EXPECT_EQ(size->width, 64250);
  EXPECT_EQ(size->height, 64250);
}

TEST_F(StandardImageCodec, ReportsStoredSizeOfImagesWhosePixelDataIsBroken) {
  expectStoredSize("truncated.jpg", 96, 96);
  expectStoredSize("damaged-idat-crc.png", 64, 64);
}

TEST_F(StandardImageCodec, ReportsTheDeclaredSizeOfAPngOverAMillionPixelsWide) {
  expectStoredSize("wide-header.png", 3000000, 20);
}

TEST_F(StandardImageCodec, Reports5000By5001PngSizeFromTheHeader) { expectStoredSize("big-5000x5001.png", 5000, 5001); }

TEST_F(StandardImageCodec, Decodes5000By5000Png) {
  const Bitmap b = decode("big-5000x5000.png");
  ASSERT_NO_FATAL_FAILURE(expectSize(b, 5000, 5000));
  expectNear(b, 0, 0, kRed, 0);
  expectNear(b, 2500, 1234, {0, 128, 0}, 0);
  expectNear(b, 4999, 4999, kBlue, 0);
  expectNear(b, 1, 0, kWhite, 0);
}


// ---------------------------------------------------------------------------
// Declared resolution

TEST_F(StandardImageCodec, TakesTheResolutionFromPngPhys) {
  // 7874 pixels per metre = 200.0 pixels per inch.
  EXPECT_NEAR(decode("dpi-200.png").pixelsPerInch(), 200.0, 0.01);
}

TEST_F(StandardImageCodec, LeavesTheResolutionUnknownWithoutPngPhys) {
  EXPECT_EQ(decode("dpi-none.png").pixelsPerInch(), 0.0);
  // A pHYs chunk that only gives the aspect ratio.
  EXPECT_EQ(decode("dpi-aspect.png").pixelsPerInch(), 0.0);
}

TEST_F(StandardImageCodec, TakesTheResolutionFromJpegDensity) {
  EXPECT_EQ(decode("dpi-300.jpg").pixelsPerInch(), 300.0);
  // Dots per centimetre.
  EXPECT_NEAR(decode("dpcm-118.jpg").pixelsPerInch(), 299.72, 0.01);
}

TEST_F(StandardImageCodec, LeavesTheResolutionUnknownWithoutJpegDensity) {
  EXPECT_EQ(decode("dpi-none.jpg").pixelsPerInch(), 0.0);
}

TEST_F(StandardImageCodec, ReadsBackTheResolutionItWrites) {
  kvo::test::TempDir dir;
  Bitmap b = patterned(4, 4, PixelFormat::rgb8, 0);
  b.setPixelsPerInch(200);
  ASSERT_EQ(codec.writePng(b, dir.file("dpi.png")), PngWriteResult::written);
  auto source = codec.open(dir.file("dpi.png"));
  ASSERT_NE(source, nullptr);
  EXPECT_NEAR(source->decodeUpright().pixelsPerInch(), 200.0, 0.01);
}


// ---------------------------------------------------------------------------
// Failures, and silence throughout

TEST_F(StandardImageCodec, RefusesPngWithDamagedOrTruncatedImageDataSilently) {
  for (const char* name : {"damaged-idat-crc.png", "truncated.png"}) {
    const Walk w = walkFixture(name);
    EXPECT_TRUE(w.decodeAttempted) << name;
    EXPECT_FALSE(w.decoded) << name;
  }
}

TEST_F(StandardImageCodec, DecodesPngDespiteBrokenAncillaryChunksSilently) {
  const Walk w = walkFixture("ancillary-warnings.png");
  EXPECT_TRUE(w.accepted());
  EXPECT_EQ(w.width, 64);
}

TEST_F(StandardImageCodec, RefusesTruncatedJpegSilently) {
  for (const char* name : {"truncated.jpg", "truncated-between-scans.jpg"}) {
    const Walk w = walkFixture(name);
    EXPECT_TRUE(w.decodeAttempted) << name;
    EXPECT_FALSE(w.decoded) << name;
  }
}

TEST_F(StandardImageCodec, RefusesJpegWithGarbledImageDataSilently) {
  const Walk w = walkFixture("garbled.jpg");
  EXPECT_TRUE(w.decodeAttempted);
  EXPECT_FALSE(w.decoded);
}

TEST_F(StandardImageCodec, ToleratesStrayBytesBetweenJpegMarkersSilently) {
  const Walk w = walkFixture("extraneous-bytes.jpg");
  EXPECT_TRUE(w.accepted());
  EXPECT_EQ(w.width, 96);
}

TEST_F(StandardImageCodec, RefusesJunkWebpSilently) {
  const Walk w = walkFixture("junk.webp");
  EXPECT_EQ(w.type, ImageType::webp);
  EXPECT_EQ(w.count, 0);
  EXPECT_FALSE(w.accepted());
}

TEST_F(StandardImageCodec, RefusesTruncatedWebpSilently) {
  const Walk w = walkFixture("truncated.webp");
  EXPECT_EQ(w.count, 0);
  EXPECT_FALSE(w.accepted());
}

TEST_F(StandardImageCodec, DecodesOnePixelImagesSilently) {
  for (const char* name : {"one-pixel.png", "one-pixel.jpg", "one-pixel.webp"}) {
    const Walk w = walkFixture(name);
    EXPECT_TRUE(w.accepted()) << name;
    EXPECT_EQ(w.width * w.height, 1) << name;
  }
  expectNear(decode("one-pixel.png"), 0, 0, {10, 20, 30}, 0);
}

TEST_F(StandardImageCodec, RefusesEveryTruncationSilently) {
  expectEveryTruncationHandled("kind.png", 12);  // the IEND chunk is not read
  expectEveryTruncationHandled("kind.jpg", 0);
  expectEveryTruncationHandled("kind.webp", 0);
}


// ---------------------------------------------------------------------------
// The shared conformance corpus

struct ManifestRow {
  std::string path, expect, uprightSize, role;
};

std::vector<ManifestRow> manifestRows() {
  std::ifstream in(kvo::test::corpusPath("MANIFEST.tsv"));
  std::string line;
  std::getline(in, line);
  std::map<std::string, size_t> column;
  auto split = [](const std::string& s) {
    std::vector<std::string> cells;
    std::stringstream ss(s);
    std::string cell;
    while (std::getline(ss, cell, '\t')) cells.push_back(cell);
    return cells;
  };
  const auto header = split(line);
  for (size_t i = 0; i < header.size(); ++i) column[header[i]] = i;
  std::vector<ManifestRow> rows;
  while (std::getline(in, line)) {
    const auto cells = split(line);
    auto cell = [&](const char* name) {
      const auto it = column.find(name);
      return it != column.end() && it->second < cells.size() ? cells[it->second] : std::string();
    };
    rows.push_back({cell("path"), cell("expect"), cell("upright_wxh"), cell("role")});
  }
  return rows;
}

bool isImageRow(const ManifestRow& row) {
  if (row.role != "input") return false;
  if (row.path == "limits/lottapixel.jpg") return true;
  for (const char* prefix : {"png/", "png-corrupt/", "jpeg/", "jpeg-orientation/", "webp/", "unsupported/"})
    if (row.path.rfind(prefix, 0) == 0) return true;
  return false;
}

// What is wrong with the walk for the row's expectation; empty when nothing.
std::string corpusProblem(const ManifestRow& row, const Walk& w) {
  std::ostringstream problem;
  if (!w.out.empty() || !w.err.empty()) problem << "wrote to stdout/stderr: " << w.out << w.err << "; ";
  if (row.expect == "ok") {
    if (!w.accepted()) problem << "not accepted; ";
    if (w.type == ImageType::other) problem << "typed other; ";
    if (row.uprightSize != "-" && w.decoded &&
        row.uprightSize != std::to_string(w.width) + "x" + std::to_string(w.height))
      problem << "decoded " << w.width << "x" << w.height << ", expected " << row.uprightSize << "; ";
  } else if (row.expect == "invalid_input") {
    if (w.accepted()) problem << "accepted; ";
    if (!w.accepted() && w.size && !w.decodeAttempted) problem << "refused only for its size; ";
  } else if (row.expect == "resource_limit_exceeded") {
    if (!w.size || w.size->width * w.size->height <= kPixelLimit) problem << "stored size not above the limit; ";
  } else if (row.expect != "unknown") {
    problem << "unexpected expectation " << row.expect << "; ";
  }
  return problem.str();
}

TEST_F(StandardImageCodec, MeetsTheCorpusExpectations) {
  if (!kvo::test::corpusAvailable()) GTEST_SKIP() << "conformance corpus not present";
  std::string problems;
  int checked = 0;
  for (const ManifestRow& row : manifestRows()) {
    if (!isImageRow(row)) continue;
    ++checked;
    const std::string problem = corpusProblem(row, walk(kvo::test::corpusPath(row.path)));
    if (!problem.empty()) problems += row.path + " (" + row.expect + "): " + problem + "\n";
  }
  EXPECT_GE(checked, 250) << "the manifest lists fewer image rows than it should";
  EXPECT_EQ(problems, "");
}

TEST_F(StandardImageCodec, DecodesCorpusCmykJpegLikeItsColourTwin) {
  if (!kvo::test::corpusAvailable()) GTEST_SKIP() << "conformance corpus not present";
  EXPECT_LT(meanDifference(decodeCorpus("jpeg/baiona_cmyk.jpg"), decodeCorpus("jpeg/baiona_color.jpg")), 16.0);
}

// The corpus holds one picture stored under each EXIF orientation; upright,
// they all match the one stored as is, up to JPEG re-encoding noise.
TEST_F(StandardImageCodec, UprightsEveryCorpusOrientationToTheSamePicture) {
  if (!kvo::test::corpusAvailable()) GTEST_SKIP() << "conformance corpus not present";
  for (const std::string shape : {"Landscape", "Portrait"}) {
    const Bitmap normal = decodeCorpus("jpeg-orientation/" + shape + "_1.jpg");
    for (int orientation = 0; orientation <= 8; ++orientation) {
      const std::string name = "jpeg-orientation/" + shape + "_" + std::to_string(orientation) + ".jpg";
      EXPECT_LT(meanDifference(decodeCorpus(name), normal), 8.0) << name;
    }
  }
}

}  // namespace
