#pragma once

// The fixture the PopplerPdfLibrary tests share: generated PDFs opened,
// rendered and read the way the helper does it.

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

#include "platform/PopplerPdfLibrary.h"
#include "support/TestSupport.h"

namespace kvo::pdf_tests {

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
inline std::string normaliseSpace(const std::string& text) {
  std::istringstream words(text);
  std::string word, out;
  while (words >> word) out += (out.empty() ? "" : " ") + word;
  return out;
}

// Pixels whose three channels all satisfy `test`.
using PixelTest = std::function<bool(int64_t x, int64_t y, const uint8_t* rgb)>;
inline int64_t countPixels(const Bitmap& bitmap, const PixelTest& test) {
  int64_t count = 0;
  for (int64_t y = 0; y < bitmap.height(); ++y) {
    const uint8_t* row = bitmap.row(y);
    for (int64_t x = 0; x < bitmap.width(); ++x) count += test(x, y, row + 3 * x) ? 1 : 0;
  }
  return count;
}

inline bool isBlack(const uint8_t* px) { return px[0] == 0 && px[1] == 0 && px[2] == 0; }
inline bool isWhite(const uint8_t* px) { return px[0] == 255 && px[1] == 255 && px[2] == 255; }
inline bool isDark(const uint8_t* px) { return px[0] < 128 && px[1] < 128 && px[2] < 128; }

// The smallest [x0, x1) × [y0, y1) pixel rectangle holding every dark pixel.
struct PixelRect {
  int64_t x0 = 0, y0 = 0, x1 = 0, y1 = 0;
  bool operator==(const PixelRect&) const = default;
};
inline std::ostream& operator<<(std::ostream& out, const PixelRect& r) {
  return out << "[" << r.x0 << "," << r.x1 << ")x[" << r.y0 << "," << r.y1 << ")";
}

inline PixelRect darkBounds(const Bitmap& bitmap) {
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
inline std::vector<std::pair<std::string, std::string>> corpusPdfExpectations(const std::string& prefix) {
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
  // two pages the media box, the text and a small rendering of at most
  // about a megapixel.
  void exercise(const std::string& path) {
    auto doc = library_.open(path);
    if (doc == nullptr || doc->isLocked()) return;
    const int64_t pages = std::min<int64_t>(doc->pageCount(), 2);
    for (int64_t i = 0; i < pages; ++i) {
      auto p = doc->page(i);
      if (p == nullptr) continue;
      const PdfBox box = p->mediaBox();
      (void)p->text();
      if (!(box.width > 0) || !(box.height > 0)) continue;
      const double scale = std::min(0.1, std::sqrt(1e6 / (box.width * box.height)));
      (void)renderAtScale(*p, scale);
    }
  }
};

}  // namespace kvo::pdf_tests
