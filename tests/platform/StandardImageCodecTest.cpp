#include "platform/StandardImageCodec.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace {

using kvo::Bitmap;
using kvo::ImageType;
using kvo::PixelFormat;
using kvo::PngWriteResult;

using Rgb = std::array<int, 3>;
constexpr Rgb kRed{255, 0, 0}, kGreen{0, 255, 0}, kBlue{0, 0, 255}, kWhite{255, 255, 255}, kBlack{0, 0, 0};

// Everything one pass over a file learns, in the order the helper asks.
struct Walk {
  bool opened = false;
  std::optional<ImageType> type;
  int64_t count = 0;
  std::optional<kvo::StoredSize> size;
  bool decodeAttempted = false;
  bool decoded = false;
  int64_t width = 0, height = 0;
  PixelFormat format = PixelFormat::rgb8;
  std::string out, err;  // what reached stdout / stderr meanwhile

  bool accepted() const {
    return opened && type && *type != ImageType::other && count > 0 && size && size->width > 0 && size->height > 0 &&
           decoded;
  }
};

// Images above this many pixels are never decoded by the helper.
constexpr int64_t kPixelLimit = 25'000'000;

class StandardImageCodec : public ::testing::Test {
 protected:
  kvo::StandardImageCodec codec;

  static std::string fixture(const std::string& name) { return kvo::test::fixturePath("images/" + name); }

  std::unique_ptr<kvo::ImageSource> open(const std::string& name) { return codec.open(fixture(name)); }

  std::optional<ImageType> typeOf(const std::string& name) {
    auto source = open(name);
    return source ? source->type() : std::nullopt;
  }

  std::optional<kvo::StoredSize> storedSizeOf(const std::string& name) {
    auto source = open(name);
    return source ? source->storedSize() : std::nullopt;
  }

  int64_t imageCountOf(const std::string& name) {
    auto source = open(name);
    return source ? source->imageCount() : -1;
  }

  Bitmap decode(const std::string& name) {
    auto source = open(name);
    if (!source) {
      ADD_FAILURE() << name << " did not open";
      return {};
    }
    return source->decodeUpright();
  }

  // Opens → type → count → storedSize → decode (only within the pixel
  // limit). Streams are not captured here; see walk().
  Walk walkUncaptured(const std::string& path) {
    Walk w;
    auto source = codec.open(path);
    w.opened = source != nullptr;
    if (!source) return w;
    w.type = source->type();
    w.count = source->imageCount();
    w.size = source->storedSize();
    if (!w.size || w.size->width <= 0 || w.size->height <= 0 || w.size->width * w.size->height > kPixelLimit)
      return w;
    w.decodeAttempted = true;
    const Bitmap bitmap = source->decodeUpright();
    w.decoded = bitmap.valid();
    w.width = bitmap.width();
    w.height = bitmap.height();
    w.format = bitmap.format();
    return w;
  }

  // walkUncaptured with stdout and stderr captured. No gtest assertion may
  // run while they are: its report would be captured too.
  Walk walk(const std::string& path) {
    Walk w;
    const auto streams = kvo::test::captureStdStreams([&] { w = walkUncaptured(path); });
    w.out = streams.out;
    w.err = streams.err;
    return w;
  }

  Walk walkFixture(const std::string& name) {
    Walk w = walk(fixture(name));
    EXPECT_EQ(w.out, "") << name << " wrote to stdout";
    EXPECT_EQ(w.err, "") << name << " wrote to stderr";
    return w;
  }

  static Rgb rgbAt(const Bitmap& b, int64_t x, int64_t y) {
    const uint8_t* p = b.row(y) + x * kvo::bytesPerPixel(b.format());
    return {p[0], p[1], p[2]};
  }

  static void expectNear(const Bitmap& b, int64_t x, int64_t y, Rgb want, int tolerance = 24) {
    const Rgb got = rgbAt(b, x, y);
    for (int c = 0; c < 3; ++c)
      EXPECT_NEAR(got[c], want[c], tolerance)
          << "pixel (" << x << "," << y << ") channel " << c << ": got " << got[0] << "," << got[1] << "," << got[2];
  }

  static void expectSize(const Bitmap& b, int64_t width, int64_t height) {
    ASSERT_TRUE(b.valid());
    EXPECT_EQ(b.width(), width);
    EXPECT_EQ(b.height(), height);
  }

  // Compares a decode with the NAME.expect file the fixture script wrote:
  // "W H CHANNELS\n" and the rows.
  void expectDecodesAsExpected(const std::string& name) {
    SCOPED_TRACE(name);
    std::istringstream expect(kvo::test::readFile(fixture(name + ".expect")));
    int64_t width = 0, height = 0, channels = 0;
    expect >> width >> height >> channels;
    expect.get();
    const std::string pixels(std::istreambuf_iterator<char>(expect), {});
    const Bitmap b = decode(name);
    ASSERT_NO_FATAL_FAILURE(expectSize(b, width, height));
    ASSERT_EQ(b.format(), channels == 4 ? PixelFormat::rgba8 : PixelFormat::rgb8);
    const size_t rowBytes = static_cast<size_t>(width * channels);
    for (int64_t y = 0; y < height; ++y)
      ASSERT_EQ(0, std::memcmp(b.row(y), pixels.data() + y * rowBytes, rowBytes)) << "first difference in row " << y;
  }

  // The orientation fixtures show, upright, 64×48 pixels in four colours.
  void expectUprightQuadrants(const std::string& name) {
    SCOPED_TRACE(name);
    const Bitmap b = decode(name);
    ASSERT_NO_FATAL_FAILURE(expectSize(b, 64, 48));
    expectNear(b, 4, 4, kRed);
    expectNear(b, 59, 4, kGreen);
    expectNear(b, 4, 43, kBlue);
    expectNear(b, 59, 43, kWhite);
  }

  void expectStoredSize(const std::string& name, int64_t width, int64_t height) {
    SCOPED_TRACE(name);
    const auto size = storedSizeOf(name);
    ASSERT_TRUE(size.has_value());
    EXPECT_EQ(size->width, width);
    EXPECT_EQ(size->height, height);
  }

  // A bitmap with every byte value in use, including colour under zero
  // alpha, and `padding` extra bytes at the end of each row.
  static Bitmap patterned(int64_t width, int64_t height, PixelFormat format, size_t padding) {
    const size_t stride = static_cast<size_t>(width * kvo::bytesPerPixel(format)) + padding;
    auto* data = static_cast<uint8_t*>(std::malloc(stride * static_cast<size_t>(height)));
    for (size_t i = 0; i < stride * static_cast<size_t>(height); ++i) data[i] = static_cast<uint8_t>(i * 131 + i / 7);
    return Bitmap::adopt(width, height, stride, format, data, &std::free);
  }

  static bool samePixels(const Bitmap& a, const Bitmap& b) {
    if (a.width() != b.width() || a.height() != b.height() || a.format() != b.format()) return false;
    const size_t rowBytes = static_cast<size_t>(a.width() * kvo::bytesPerPixel(a.format()));
    for (int64_t y = 0; y < a.height(); ++y)
      if (std::memcmp(a.row(y), b.row(y), rowBytes) != 0) return false;
    return true;
  }

  void expectRoundTrip(const Bitmap& original) {
    kvo::test::TempDir dir;
    ASSERT_EQ(codec.writePng(original, dir.file("out.png")), PngWriteResult::written);
    auto source = codec.open(dir.file("out.png"));
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->type(), ImageType::png);
    EXPECT_TRUE(samePixels(original, source->decodeUpright()));
  }

  // Walks every proper prefix of a fixture: always silent, and an image only
  // once no more than `unneededTail` bytes (data the decoder does not read)
  // are missing.
  void expectEveryTruncationHandled(const std::string& name, size_t unneededTail) {
    const std::string bytes = kvo::test::readFile(fixture(name));
    kvo::test::TempDir dir;
    std::vector<Walk> walks;
    const auto streams = kvo::test::captureStdStreams([&] {
      // A fresh file per prefix: rewriting one file in place makes ext4
      // flush it on every close, which is far slower.
      for (size_t length = 0; length < bytes.size(); ++length) {
        const std::string cut = dir.file("cut-" + std::to_string(length));
        kvo::test::writeFile(cut, bytes.substr(0, length));
        walks.push_back(walkUncaptured(cut));
      }
    });
    EXPECT_EQ(streams.out + streams.err, "") << name;
    for (size_t length = 0; length < walks.size(); ++length)
      EXPECT_EQ(walks[length].accepted(), length + unneededTail >= bytes.size()) << name << " cut to " << length;
  }

  Bitmap decodeCorpus(const std::string& name) {
    auto source = codec.open(kvo::test::corpusPath(name));
    return source ? source->decodeUpright() : Bitmap{};
  }

  // Mean absolute difference per sample of two rgb8 bitmaps; infinite when
  // they are not comparable.
  static double meanDifference(const Bitmap& a, const Bitmap& b) {
    if (!a.valid() || !b.valid() || a.width() != b.width() || a.height() != b.height() ||
        a.format() != PixelFormat::rgb8 || b.format() != PixelFormat::rgb8)
      return std::numeric_limits<double>::infinity();
    double sum = 0;
    for (int64_t y = 0; y < a.height(); ++y)
      for (int64_t x = 0; x < a.width() * 3; ++x) sum += std::abs(a.row(y)[x] - b.row(y)[x]);
    return sum / static_cast<double>(a.width() * a.height() * 3);
  }

  PngWriteResult writeSilently(const Bitmap& bitmap, const std::string& path) {
    PngWriteResult result = PngWriteResult::written;
    const auto streams = kvo::test::captureStdStreams([&] { result = codec.writePng(bitmap, path); });
    EXPECT_EQ(streams.out, "");
    EXPECT_EQ(streams.err, "");
    return result;
  }
};

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
// PNG colour types and bit depths

TEST_F(StandardImageCodec, ScalesSixteenBitPngsToEightBits) {
  for (const char* name : {"gray16.png", "graya16.png", "rgb16.png", "rgba16.png"}) expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, DecodesPaletteWithTransparencyAsRgba) { expectDecodesAsExpected("pal8-trns.png"); }

TEST_F(StandardImageCodec, ExpandsLowBitDepthGrayAndPalettes) {
  for (const char* name : {"gray1.png", "gray2.png", "gray4.png", "pal1.png", "pal2.png", "pal4.png", "pal8.png"})
    expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, TurnsColourKeyTransparencyIntoAlpha) {
  for (const char* name : {"gray4-trns.png", "rgb8-trns.png", "rgb16-trns.png"}) expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, DecodesInterlacedPngs) {
  for (const char* name : {"rgb8-adam7.png", "rgba16-adam7.png", "pal2-adam7.png", "gray1-adam7.png"})
    expectDecodesAsExpected(name);
}

TEST_F(StandardImageCodec, DecodesOpaqueImagesAsRgbAndImagesWithAlphaAsRgba) {
  for (const char* name : {"gray8.png", "rgb8.png", "opaque.webp"}) expectDecodesAsExpected(name);  // 3 channels
  for (const char* name : {"graya8.png", "rgba8.png", "alpha.webp"}) expectDecodesAsExpected(name);  // 4 channels
}

TEST_F(StandardImageCodec, LeavesResolutionUnknown) { EXPECT_EQ(decode("rgb8.png").pixelsPerInch(), 0); }

TEST_F(StandardImageCodec, DoesNotApplyPngExifOrientation) {
  expectUprightQuadrants("exif-orientation-6.png");
}

TEST_F(StandardImageCodec, HeaderOnlyPngHoldsNoImage) {
  const Walk w = walkFixture("header-only.png");
  EXPECT_EQ(w.type, ImageType::png);
  EXPECT_FALSE(w.accepted());
}

// ---------------------------------------------------------------------------
// JPEG

TEST_F(StandardImageCodec, AppliesExifMirrorAndHalfTurnOrientations) {
  for (int orientation = 1; orientation <= 4; ++orientation) {
    const std::string name = "orientation-" + std::to_string(orientation) + ".jpg";
    expectUprightQuadrants(name);
    expectStoredSize(name, 64, 48);
  }
}

TEST_F(StandardImageCodec, AppliesExifQuarterTurnAndTransposeOrientationsSwappingTheSize) {
  for (int orientation = 5; orientation <= 8; ++orientation) {
    const std::string name = "orientation-" + std::to_string(orientation) + ".jpg";
    expectUprightQuadrants(name);
    expectStoredSize(name, 48, 64);
  }
}

TEST_F(StandardImageCodec, TreatsExifOrientationOutsideOneToEightAsNormal) {
  expectUprightQuadrants("orientation-0.jpg");
  expectUprightQuadrants("orientation-9.jpg");
}

TEST_F(StandardImageCodec, ConvertsCmykJpegToRgb) {
  const Bitmap b = decode("cmyk.jpg");
  ASSERT_NO_FATAL_FAILURE(expectSize(b, 64, 16));
  EXPECT_EQ(b.format(), PixelFormat::rgb8);
  expectNear(b, 8, 8, kWhite);
  expectNear(b, 24, 8, {0, 255, 255});
  expectNear(b, 40, 8, kBlack);
  expectNear(b, 56, 8, {255, 255, 0});
}

TEST_F(StandardImageCodec, ExpandsGrayscaleJpegToRgb) {
  const Bitmap b = decode("gray.jpg");
  ASSERT_NO_FATAL_FAILURE(expectSize(b, 32, 16));
  EXPECT_EQ(b.format(), PixelFormat::rgb8);
  expectNear(b, 4, 8, kBlack);
  expectNear(b, 28, 8, kWhite);
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
// WebP

TEST_F(StandardImageCodec, CountsAnimatedWebpFramesAndDecodesTheFirst) {
  EXPECT_EQ(imageCountOf("animated.webp"), 3);
  expectStoredSize("animated.webp", 24, 16);
  const Bitmap b = decode("animated.webp");
  ASSERT_NO_FATAL_FAILURE(expectSize(b, 24, 16));
  expectNear(b, 0, 0, kRed, 0);
  expectNear(b, 23, 15, kRed, 0);
}

TEST_F(StandardImageCodec, CountsOneImageInAStillWebp) { EXPECT_EQ(imageCountOf("opaque.webp"), 1); }

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
// Writing PNG

TEST_F(StandardImageCodec, WritesRgbPngThatDecodesToIdenticalPixels) {
  expectRoundTrip(patterned(37, 23, PixelFormat::rgb8, 5));
}

TEST_F(StandardImageCodec, WritesRgbaPngKeepingStraightAlphaExactly) {
  expectRoundTrip(patterned(41, 19, PixelFormat::rgba8, 3));
}

TEST_F(StandardImageCodec, WritesKnownResolutionIntoThePng) {
  kvo::test::TempDir dir;
  Bitmap b = patterned(4, 4, PixelFormat::rgb8, 0);
  b.setPixelsPerInch(300);
  ASSERT_EQ(codec.writePng(b, dir.file("dpi.png")), PngWriteResult::written);
  // 300 pixels per inch = 11811 per metre, in x and y, unit metre.
  const std::string pHYs = std::string("pHYs") + std::string("\0\0\x2e\x23\0\0\x2e\x23\x01", 9);
  EXPECT_NE(kvo::test::readFile(dir.file("dpi.png")).find(pHYs), std::string::npos);
}

TEST_F(StandardImageCodec, CannotCreatePngInAMissingDirectory) {
  kvo::test::TempDir dir;
  EXPECT_EQ(writeSilently(patterned(8, 8, PixelFormat::rgb8, 0), dir.file("missing/out.png")),
            PngWriteResult::cannotCreate);
}

TEST_F(StandardImageCodec, CannotFinishPngOnAFullDevice) {
  EXPECT_EQ(writeSilently(patterned(8, 8, PixelFormat::rgb8, 0), "/dev/full"), PngWriteResult::cannotFinish);
  EXPECT_EQ(writeSilently(patterned(300, 300, PixelFormat::rgba8, 0), "/dev/full"), PngWriteResult::cannotFinish);
}

TEST_F(StandardImageCodec, WritesNoFileForAnEmptyBitmap) {
  kvo::test::TempDir dir;
  EXPECT_EQ(writeSilently(Bitmap{}, dir.file("empty.png")), PngWriteResult::cannotFinish);
  EXPECT_FALSE(std::filesystem::exists(dir.file("empty.png")));
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
