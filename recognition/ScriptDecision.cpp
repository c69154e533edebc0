#include "recognition/ScriptDecision.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
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
// Han characters on a line at most for the votes to be counted on it
// (a table of this size squared).
constexpr size_t kMostVotingSymbols = 1000;
// A sampleable line: at least this tall, and this many times as wide as tall.
constexpr int kLeastSampleHeight = 8;
constexpr int kLeastSampleWidthInHeights = 3;

}  // namespace

ScriptForms::ScriptForms(const std::string& modelCode) : traditional_(modelCode == "chi_tra") {
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

UChar32 ScriptForms::simplified(UChar32 c) const {
  if (!traditional_ || !transliterator_) return c;
  icu::UnicodeString text(c);
  transliterator_->transliterate(text);
  return text.countChar32() == 1 ? text.char32At(0) : c;
}

void HanReading::addSymbol(const char* symbol, double confidence, const ScriptForms& forms) {
  int32_t i = 0;
  UChar32 c = 0;
  const auto length = static_cast<int32_t>(std::strlen(symbol));
  U8_NEXT(symbol, i, length, c);
  if (c < 0 || !isHan(c)) return;
  han.add(confidence);
  if (forms.own(c)) ownForms.add(confidence);
  if (lines.empty()) lines.emplace_back();
  lines.back().push_back(HanSymbol{c, forms.simplified(c), confidence});
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

namespace {

// One glyph's vote: for the model more confident of it, none on a tie.
void cast(const HanSymbol& a, const HanSymbol& b, Votes& votes) {
  if (a.confidence > b.confidence) ++votes.first;
  if (b.confidence > a.confidence) ++votes.second;
}

// Adds the votes of one line read by both models: the characters they agree
// on in different forms, and between two agreements (or the line's ends) the
// characters each read differently in the same number, paired in order (a
// glyph one model knows and the other misreads: 體 and 采).
void vote(const std::vector<HanSymbol>& a, const std::vector<HanSymbol>& b, Votes& votes) {
  // Longest common subsequence of the Simplified forms, then walked back.
  const size_t n = a.size(), m = b.size();
  std::vector<uint16_t> length((n + 1) * (m + 1), 0);
  auto at = [&](size_t i, size_t j) -> uint16_t& { return length[i * (m + 1) + j]; };
  for (size_t i = n; i-- > 0;)
    for (size_t j = m; j-- > 0;)
      at(i, j) = a[i].simplified == b[j].simplified ? static_cast<uint16_t>(at(i + 1, j + 1) + 1)
                                                    : std::max(at(i + 1, j), at(i, j + 1));
  size_t i = 0, j = 0, gapA = 0, gapB = 0;  // where the characters since the last agreement start
  auto closeGap = [&] {
    if (i - gapA == j - gapB)
      for (size_t k = 0; k < i - gapA; ++k) cast(a[gapA + k], b[gapB + k], votes);
  };
  while (i < n && j < m) {
    if (a[i].simplified == b[j].simplified) {
      closeGap();
      if (a[i].c != b[j].c) cast(a[i], b[j], votes);
      gapA = ++i;
      gapB = ++j;
    } else if (at(i + 1, j) >= at(i, j + 1)) {
      ++i;
    } else {
      ++j;
    }
  }
  i = n;
  j = m;
  closeGap();
}

}  // namespace

Votes countVotes(const HanReading& first, const HanReading& second) {
  Votes votes;
  const size_t lines = std::min(first.lines.size(), second.lines.size());
  for (size_t k = 0; k < lines; ++k)
    // Lines stay short; a longer one is not worth the table.
    if (first.lines[k].size() <= kMostVotingSymbols && second.lines[k].size() <= kMostVotingSymbols)
      vote(first.lines[k], second.lines[k], votes);
  return votes;
}

Script decideScript(const HanReading& first, const HanReading& second) {
  if (second.han.count == 0) return Script::first;
  const Votes votes = countVotes(first, second);
  if (votes.first != votes.second) return votes.first > votes.second ? Script::first : Script::second;
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
