#pragma once

// A scripted reader port (interfaces/TextReader.h) for the page-reading
// policy's tests: each operation answers from a function the test sets (a
// default that finds nothing otherwise), and every call is logged in order as
// one line ("layout chi_sim 800x600 ppi 300", "page eng+chi_sim sparse global
// 800x600", ...) so a test can tell what was read, with which models, on
// which page size. Models listed in `missing` fail to load: the call asking
// for them fails the reader for good, as a real one does.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "interfaces/TextReader.h"
#include "recognition/PageTurn.h"

namespace kvo::fakes {

class FakeTextReader final : public TextReader {
 public:

  // What a page read returns, given the call's models, segmentation,
  // thresholding and page size.
  struct PageCall {
    std::string models;
    Segmentation segmentation;
    Thresholding thresholding;
    int width, height, ppi;
  };

  std::set<std::string> missing;
  int largest = 32767;
  std::function<Layout(int width, int height)> layout = [](int, int) { return Layout{}; };
  std::function<std::optional<PageText>(const PageCall&)> pageText = [](const PageCall&) {
    return std::optional<PageText>(PageText{});
  };
  std::function<std::vector<Symbol>(const std::string& models, const Box& region)> symbols =
      [](const std::string&, const Box&) { return std::vector<Symbol>{}; };
  std::function<std::optional<std::vector<ReadLine>>(const std::string& models, const Box& region)>
      region = [](const std::string&, const Box&) { return std::optional<std::vector<ReadLine>>{}; };
  std::function<int(const std::string& models, const Box& region, RegionTurn turn)> confidence =
      [](const std::string&, const Box&, RegionTurn) { return -1; };
  std::function<SkewMeasure(int top, int bottom)> skew = [](int, int) {
    return SkewMeasure{};
  };
  std::function<InkPage(int width, int height)> localInk = [](int, int) { return InkPage{}; };

  std::vector<std::string> log;

  // The logged calls that start with `prefix`.
  std::vector<std::string> calls(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const auto& line : log)
      if (line.compare(0, prefix.size(), prefix) == 0) found.push_back(line);
    return found;
  }

  bool failed() const override { return failed_; }
  int largestSide() const override { return largest; }

  std::optional<Layout> findLayout(const std::string& models, const GreyImage& page, int ppi) override {
    const int width = page.width, height = page.height;
    log.push_back("layout " + models + " " + size(width, height) + " ppi " + std::to_string(ppi));
    if (!load(models)) return std::nullopt;
    return layout(width, height);
  }

  std::optional<PageText> readPage(const std::string& models, Segmentation segmentation, Thresholding thresholding,
                                   const GreyImage& page, int ppi) override {
    const int width = page.width, height = page.height;
    log.push_back("page " + models + " " + name(segmentation) + " " +
                  (thresholding == Thresholding::global ? "global " : "local ") + size(width, height));
    if (!load(models)) return std::nullopt;
    return pageText(PageCall{models, segmentation, thresholding, width, height, ppi});
  }

  std::optional<std::vector<ReadLine>> readRegion(const std::string& models, const GreyImage&, const Box& wanted,
                                                  int, const InkBits*) override {
    log.push_back("region " + models + " " + box(wanted));
    if (!load(models)) return std::nullopt;
    return region(models, wanted);
  }

  std::vector<Symbol> readSymbols(const std::string& models, const GreyImage&, const Box& wanted, int) override {
    log.push_back("symbols " + models + " " + box(wanted));
    if (!load(models)) return {};
    return symbols(models, wanted);
  }

  int readingConfidence(const std::string& models, const GreyImage&, const Box& wanted, RegionTurn turn) override {
    log.push_back("confidence " + models + " " + box(wanted) + " " + name(turn));
    if (!load(models)) return -1;
    return confidence(models, wanted, turn);
  }

  SkewMeasure measureSkew(const GreyImage&, int, int, int top, int bottom) override {
    log.push_back("skew " + std::to_string(top) + ".." + std::to_string(bottom));
    return skew(top, bottom);
  }

  // A white canvas of the turned page's size.
  bool rotate(const GreyImage& page, double radians, GreyImage& turned) override {
    log.push_back("rotate " + size(page.width, page.height));
    const recognition::PageTurn turn = recognition::PageTurn::of(page.width, page.height, radians);
    if (!turned.allocate(turn.turnedWidth, turn.turnedHeight)) return false;
    std::fill_n(turned.data, turned.pixels(), uint8_t{255});
    return true;
  }

  InkPage localInkAtHalf(const GreyImage& page, int) override {
    log.push_back("local ink " + size(page.width, page.height));
    return localInk(page.width, page.height);
  }

  std::vector<Plane> drawReferenceGlyph(UChar32, bool, int) override { return {}; }

 private:
  bool load(const std::string& models) {
    if (missing.count(models) != 0) failed_ = true;
    return !failed_;
  }
  static std::string size(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }
  static std::string box(const Box& b) {
    return std::to_string(b.left) + "," + std::to_string(b.top) + "," + std::to_string(b.right) + "," +
           std::to_string(b.bottom);
  }
  static std::string name(Segmentation s) {
    return s == Segmentation::page ? "page" : s == Segmentation::line ? "line" : "sparse";
  }
  static std::string name(RegionTurn t) {
    return t == RegionTurn::none ? "none"
           : t == RegionTurn::clockwise ? "clockwise"
           : t == RegionTurn::counterClockwise ? "counterClockwise"
                                               : "half";
  }
  bool failed_ = false;
};

// An ink page of width × height with the boxes `ink` set.
inline InkPage inkWith(int width, int height, const std::vector<Box>& ink) {
  const int wordsPerRow = (width + 31) / 32;
  std::vector<uint32_t> words(static_cast<size_t>(wordsPerRow) * static_cast<size_t>(height), 0);
  for (const auto& b : ink)
    for (int y = b.top; y < b.bottom; ++y)
      for (int x = b.left; x < b.right; ++x)
        words[static_cast<size_t>(y) * wordsPerRow + (x >> 5)] |= 1u << (31 - (x & 31));
  return InkPage(std::move(words), wordsPerRow, width, height);
}

}  // namespace kvo::fakes
