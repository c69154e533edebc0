#pragma once

// The fixture the StandardImageCodec tests share (tests/platform and
// tests/platform/image): generated files opened, walked and decoded the way
// the helper does it.

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

#include "platform/StandardImageCodec.h"
#include "support/TestSupport.h"

namespace kvo::codec_tests {

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

}  // namespace kvo::codec_tests
