#include "recognition/ScriptDecision.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstring>

#include "recognition/Characters.h"

namespace kvo::recognition {

namespace {

// Lines sampled at most: enough to find Han on a page with some, few enough to stay cheap.
constexpr size_t kSampleLines = 8;
// Lines with Han, and Han characters, that suffice to decide.
constexpr int kEnoughSampleLines = 3;
constexpr int kEnoughHan = 60;
// Han characters a line needs to count as a line with Han (fewer are stray misreadings).
constexpr int kHanPerLine = 4;
// Lines without Han in a row before a page is taken to have none.
constexpr int kHanFreeLinesToGiveUp = 3;
// Until Han turns up, only the start of a line is read, this many times its
// height wide (a dozen Chinese characters): a page without Han costs little.
constexpr int kProbeWidthInHeights = 12;
// Own-form characters both readings need for the doubt to be measured on them alone.
constexpr int kEnoughOwnForms = 8;
// A sampleable line: at least this tall, and this many times as wide as tall.
constexpr int kLeastSampleHeight = 8;
constexpr int kLeastSampleWidthInHeights = 3;

}  // namespace

ScriptForms::ScriptForms(const std::string& modelCode) {
  UErrorCode status = U_ZERO_ERROR;
  const char* toOther = modelCode == "chi_tra" ? "Hant-Hans" : "Hans-Hant";
  transliterator_.reset(icu::Transliterator::createInstance(toOther, UTRANS_FORWARD, status));
  if (U_FAILURE(status)) transliterator_.reset();
}

ScriptForms::~ScriptForms() = default;

bool ScriptForms::own(UChar32 c) const {
  if (!transliterator_) return false;
  icu::UnicodeString text(c);
  transliterator_->transliterate(text);
  return text != icu::UnicodeString(c);
}

void HanReading::addSymbol(const char* symbol, double confidence, const ScriptForms& forms) {
  int32_t i = 0;
  UChar32 c = 0;
  const auto length = static_cast<int32_t>(std::strlen(symbol));
  U8_NEXT(symbol, i, length, c);
  if (c < 0 || !isHan(c)) return;
  han.add(confidence);
  if (forms.own(c)) ownForms.add(confidence);
}

bool isSampleLine(const Box& b) {
  return b.height() >= kLeastSampleHeight && b.width() >= kLeastSampleWidthInHeights * b.height();
}

std::vector<Box> spreadSample(const std::vector<Box>& lines) {
  std::vector<Box> sample;
  const size_t count = std::min(lines.size(), kSampleLines);
  for (size_t i = 0; i < count; ++i) sample.push_back(lines[(2 * i + 1) * lines.size() / (2 * count)]);
  return sample;
}

FirstReading readWithFirstModel(const std::vector<Box>& sample, const SampleReader& read) {
  FirstReading result;
  int hanFree = 0;
  for (const Box& b : sample) {
    const int probeWidth = kProbeWidthInHeights * b.height();
    if (result.hanLines.empty() && b.width() > probeWidth && read(b, probeWidth).han.count == 0) {
      if (++hanFree >= kHanFreeLinesToGiveUp) break;
      continue;
    }
    const HanReading r = read(b, kWholeLine);
    if (r.han.count >= kHanPerLine) {
      result.hanLines.push_back(b);
      result.total.add(r);
      hanFree = 0;
    } else if (++hanFree >= kHanFreeLinesToGiveUp && result.hanLines.empty()) {
      break;
    }
    if (static_cast<int>(result.hanLines.size()) >= kEnoughSampleLines && result.total.han.count >= kEnoughHan) break;
  }
  return result;
}

Script decideScript(const HanReading& first, const HanReading& second) {
  if (second.han.count == 0) return Script::first;
  // Both models are nearly sure of most characters; what tells them apart
  // is how much doubt each has left, on the characters each wrote in its
  // own script's forms when there are enough of them.
  const bool ownForms = first.ownForms.count >= kEnoughOwnForms && second.ownForms.count >= kEnoughOwnForms;
  const double firstDoubt = ownForms ? first.ownForms.doubt() : first.han.doubt();
  const double secondDoubt = ownForms ? second.ownForms.doubt() : second.han.doubt();
  // The model with less doubt wins, with no margin: any margin favours one
  // script over the other, and a page judged in the wrong script is
  // rewritten into it. Only a tie goes to the first model requested.
  return secondDoubt < firstDoubt ? Script::second : Script::first;
}

}  // namespace kvo::recognition
