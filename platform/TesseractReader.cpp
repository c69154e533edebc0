#include "platform/TesseractReader.h"

#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <utility>

#include "recognition/ReadingPlan.h"

namespace kvo {

using recognition::Box;
using recognition::GreyImage;
using recognition::InkBits;
using recognition::ReadLine;
using tesseract_reading::kMaxSide;

namespace {

// Tesseract's thresholding_method: its global Otsu level, which every page
// is read with first, and Sauvola's local threshold.
constexpr const char* kGlobalThresholding = "0";
constexpr const char* kSauvolaThresholding = "2";
// The smallest side a page read with Sauvola's threshold may have:
// Tesseract's window is at least 7 pixels, and Leptonica's tiles must hold
// a window and 3 pixels more. On a smaller page the thresholding fails, and
// Tesseract 5.3 then loses its copy of the page.
constexpr int kLeastSauvolaSide = 7 + 3;

}  // namespace

bool TesseractReader::configure(const std::string& models, bool correction) {
  if (failed_) return false;
  readers_.clear();
  // Every requested model must be there, even one this page will not need.
  for (const auto& code : recognition::splitCodes(models)) {
    struct stat st {};
    const std::string file = tessdataDir_ + "/" + code + ".traineddata";
    if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
      failed_ = true;
      return false;
    }
  }
  correction_ = correction;
  return true;
}

std::optional<TextReader::Layout> TesseractReader::findLayout(const std::string& models, const GreyImage& page,
                                                              int ppi) {
  tesseract::TessBaseAPI* api = reader(models, Segmentation::page);
  if (api == nullptr) return std::nullopt;
  load(*api, page, ppi);
  Layout layout = tesseract_reading::analyseLayout(*api);
  layout.resolution = api->GetSourceYResolution();
  return layout;
}

bool TesseractReader::readAsLine(const std::string& models, const GreyImage& page, const Box& region,
                                 int resolution,
                                 const std::function<void(tesseract::TessBaseAPI&, const Box&)>& readOff) {
  tesseract::TessBaseAPI* api = reader(models, Segmentation::line);
  if (api == nullptr) return false;
  const bool read = tesseract_reading::recognizeRegion(*api, page, region, resolution);
  if (read) readOff(*api, *recognition::clipToPage(region, page.width, page.height));
  api->Clear();
  return read;
}

std::optional<std::vector<ReadLine>> TesseractReader::readRegion(const std::string& models, const GreyImage& page,
                                                                 const Box& region, int resolution,
                                                                 const InkBits* ink) {
  std::optional<std::vector<ReadLine>> lines;
  if (!readAsLine(models, page, region, resolution, [&](tesseract::TessBaseAPI& api, const Box& clipped) {
        lines = tesseract_reading::readLines(api, ink, clipped.left, clipped.top);
      }))
    return std::nullopt;
  return lines;
}

std::vector<TextReader::Symbol> TesseractReader::readSymbols(const std::string& models, const GreyImage& page,
                                                             const Box& region, int resolution) {
  std::vector<Symbol> found;
  readAsLine(models, page, region, resolution, [&](tesseract::TessBaseAPI& api, const Box& clipped) {
    found = tesseract_reading::symbols(api, clipped.left, clipped.top);
  });
  return found;
}

int TesseractReader::readingConfidence(const std::string& models, const GreyImage& page, const Box& region,
                                       RegionTurn turn) {
  tesseract::TessBaseAPI* api = reader(models, Segmentation::line);
  if (api == nullptr) return -1;
  return tesseract_reading::readingConfidence(*api, page, region, turn);
}

std::optional<TextReader::PageText> TesseractReader::readPage(const std::string& models, Segmentation segmentation,
                                                              Thresholding thresholding, const GreyImage& page,
                                                              int ppi) {
  const int width = page.width, height = page.height;
  const bool local = thresholding == Thresholding::local;
  if (local && std::min(width, height) < kLeastSauvolaSide) return std::nullopt;
  tesseract::TessBaseAPI* api = reader(models, segmentation);
  if (api == nullptr) return std::nullopt;
  if (local) api->SetVariable("thresholding_method", kSauvolaThresholding);
  load(*api, page, ppi);
  std::optional<PageText> text;
  if (api->Recognize(nullptr) == 0) {
    text.emplace();
    text->ink = tesseract_reading::takeInk(api->GetThresholdedImage(), width, height);
    text->lines = tesseract_reading::readLines(*api, text->ink.bits());
    text->resolution = api->GetSourceYResolution();
  }
  if (local) api->SetVariable("thresholding_method", kGlobalThresholding);
  api->Clear();
  return text;
}

tesseract::TessBaseAPI* TesseractReader::reader(const std::string& wanted, Segmentation segmentation) {
  // A page in the automatic segmentation, a region as one line, the rest of
  // a page whose layout analysis dropped lines as sparse text (remnants in
  // no layout of columns and blocks, which the automatic one drops again).
  const auto mode = segmentation == Segmentation::page   ? tesseract::PSM_AUTO
                    : segmentation == Segmentation::line ? tesseract::PSM_SINGLE_LINE
                                                         : tesseract::PSM_SPARSE_TEXT;
  if (auto found = readers_.find(wanted); found != readers_.end()) {
    found->second->SetPageSegMode(mode);
    return found->second.get();
  }
  if (failed_) return nullptr;
  // Dictionaries are init-only parameters. The LSTM recogniser loads its
  // own word lists only when it decodes with the ratings matrix
  // (lstm_use_matrix), so that is switched off with the legacy ones.
  const char* dictionaries = correction_ ? "1" : "0";
  const std::vector<std::string> names = {"load_system_dawg", "load_freq_dawg",   "load_unambig_dawg",
                                          "load_punc_dawg",   "load_number_dawg", "load_bigram_dawg",
                                          "lstm_use_matrix"};
  const std::vector<std::string> values(names.size(), dictionaries);
  auto api = std::make_unique<tesseract::TessBaseAPI>();
  if (api->Init(tessdataDir_.c_str(), wanted.c_str(), tesseract::OEM_LSTM_ONLY, nullptr, 0, &names, &values,
                false) == 0) {
    // Tesseract carries on when some of the languages fail to load; the
    // reader does not.
    std::vector<std::string> loaded;
    api->GetLoadedLanguagesAsVector(&loaded);
    bool all = true;
    for (const auto& code : recognition::splitCodes(wanted))
      all = all && std::find(loaded.begin(), loaded.end(), code) != loaded.end();
    if (all) {
      api->SetPageSegMode(mode);
      return readers_.emplace(wanted, std::move(api)).first->second.get();
    }
  }
  api->End();
  failed_ = true;
  readers_.clear();
  return nullptr;
}

}  // namespace kvo
