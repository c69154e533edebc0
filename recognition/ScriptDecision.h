#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <unicode/umachine.h>
#include <unicode/uversion.h>

#include "recognition/PageRaster.h"
#include "recognition/ReadingPlan.h"

U_NAMESPACE_BEGIN
class Transliterator;
U_NAMESPACE_END

namespace kvo::recognition {

// Which of the two requested Chinese models reads a page (README,
// "Recognition languages", step 1): a few of the page's text lines are read
// with each model alone, and the model with markedly less doubt about the
// Han characters it wrote in forms of its own script wins; the first
// requested wins when the evidence is weak.

// Confidences (0..100) of some characters of a reading.
struct Confidences {
  int count = 0;
  double sum = 0;
  // 100 - mean confidence; 100 when there are none.
  double doubt() const { return count > 0 ? 100 - sum / count : 100; }
  void add(double confidence) {
    ++count;
    sum += confidence;
  }
  void add(const Confidences& o) {
    count += o.count;
    sum += o.sum;
  }
};

// Tells the forms of one Chinese script from those the other writes
// differently, with ICU's Simplified/Traditional transliteration data.
class ScriptForms {
 public:
  // For the script of the model "chi_sim" or "chi_tra".
  explicit ScriptForms(const std::string& modelCode);
  ~ScriptForms();
  ScriptForms(const ScriptForms&) = delete;
  ScriptForms& operator=(const ScriptForms&) = delete;
  // True when the other script writes `c` differently; false when it
  // writes it the same way or the data is missing.
  bool own(UChar32 c) const;

 private:
  std::unique_ptr<icu::Transliterator> transliterator_;
};

// The Han characters of a reading: all of them, and those written in a form
// of the reading model's own script only.
struct HanReading {
  Confidences han, ownForms;
  void add(const HanReading& o) {
    han.add(o.han);
    ownForms.add(o.ownForms);
  }
  // Counts one recognised symbol (UTF-8) when it is Han.
  void addSymbol(const char* symbol, double confidence, const ScriptForms& forms);
};

// Whether a line from the layout analysis can be sampled: horizontal and tall enough to read.
bool isSampleLine(const Box& line);

// At most kSampleLines of the page's sampleable lines, spread over the page.
std::vector<Box> spreadSample(const std::vector<Box>& lines);

// Reads one sample line with one model, at most `widest` pixels of it.
using SampleReader = std::function<HanReading(const Box& line, int widest)>;
constexpr int kWholeLine = std::numeric_limits<int>::max();

// The sample lines the first model found Han on, and its reading of them.
struct FirstReading {
  std::vector<Box> hanLines;
  HanReading total;
};

// Reads the sample with the first model until enough Han is seen, or too
// many lines in a row show none.
FirstReading readWithFirstModel(const std::vector<Box>& sample, const SampleReader& read);

// The decision, given both models' readings of the same lines with Han.
Script decideScript(const HanReading& first, const HanReading& second);

}  // namespace kvo::recognition
