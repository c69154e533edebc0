#pragma once

// The reader port (interfaces/TextReader.h) over Tesseract 5 (LSTM models
// only) and Leptonica: model loading and caching, and the calls into the
// libraries. What is read, when and with which models is
// recognition/PageReading's to decide.

#include <tesseract/baseapi.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "interfaces/TextReader.h"
#include "platform/ReferenceGlyphs.h"
#include "platform/TesseractReading.h"

namespace kvo {

// The reader port over Tesseract: each call takes the instance loaded for its
// models (loading it on first use), sets the page segmentation, hands it the
// page and reads off what it found. Loading a model costs about as much as
// reading a page with it, so one instance serves pages and lines alike.
class TesseractReader final : public TextReader {
 public:
  explicit TesseractReader(std::string tessdataDir) : tessdataDir_(std::move(tessdataDir)) {}

  // Every model of `models` ("chi_sim+eng") has its file; a missing one
  // fails the reader for good. Drops the loaded instances when the models
  // or the dictionary setting change.
  bool configure(const std::string& models, bool correction);

  bool failed() const override { return failed_; }
  int largestSide() const override { return static_cast<int>(tesseract_reading::kMaxSide); }

  std::optional<Layout> findLayout(const std::string& models, const GreyImage& page, int ppi) override;
  std::optional<PageText> readPage(const std::string& models, Segmentation segmentation, Thresholding thresholding,
                                   const GreyImage& page, int ppi) override;
  std::optional<std::vector<ReadLine>> readRegion(const std::string& models, const GreyImage& page, const Box& region,
                                                  int resolution, const InkBits* ink) override;
  std::vector<Symbol> readSymbols(const std::string& models, const GreyImage& page, const Box& region,
                                  int resolution) override;
  int readingConfidence(const std::string& models, const GreyImage& page, const Box& region,
                        RegionTurn turn) override;

  SkewMeasure measureSkew(const GreyImage& page, int inkLevel, int reduction, int top, int bottom) override {
    return tesseract_reading::measureSkew(page, top, bottom, inkLevel, reduction);
  }
  bool rotate(const GreyImage& page, double radians, GreyImage& turned) override {
    return tesseract_reading::rotate(page, radians, turned);
  }
  InkPage localInkAtHalf(const GreyImage& page, int halfWindow) override {
    return tesseract_reading::localInkAtHalf(page, halfWindow);
  }

  // The reference typefaces are opened when a page's votes first fail to settle.
  std::vector<Plane> drawReferenceGlyph(UChar32 c, bool traditional, int em) override {
    if (!referenceGlyphs_) referenceGlyphs_ = std::make_unique<ReferenceGlyphs>();
    return referenceGlyphs_->draw(c, traditional, em);
  }

 private:
  tesseract::TessBaseAPI* reader(const std::string& models, Segmentation segmentation);
  // `region` of `page` (clipped to it) recognised as one line with `models`;
  // when that succeeds, `readOff` reads the result, given the clipped region.
  // False when the models fail to load, none of the region is on the page or
  // recognition fails. The instance is cleared afterwards either way.
  bool readAsLine(const std::string& models, const GreyImage& page, const Box& region, int resolution,
                  const std::function<void(tesseract::TessBaseAPI&, const Box&)>& readOff);
  // Tesseract copies the pixels into its own image.
  static void load(tesseract::TessBaseAPI& api, const GreyImage& page, int ppi) {
    api.Clear();
    api.SetImage(page.data, page.width, page.height, 1, page.width);
    if (ppi > 0) api.SetSourceResolution(ppi);
  }

  std::string tessdataDir_;
  bool failed_ = false;
  bool correction_ = false;
  // Loaded on first use, each at most once, keyed by models: those reading
  // pages ("chi_sim+eng", "chi_sim", ...), sample lines ("chi_sim",
  // "chi_tra") and Latin runs ("eng"); a Chinese page loads the two Chinese
  // models and the Latin ones once each.
  std::map<std::string, std::unique_ptr<tesseract::TessBaseAPI>> readers_;
  std::unique_ptr<ReferenceGlyphs> referenceGlyphs_;
};

}  // namespace kvo
