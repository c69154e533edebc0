#include "recognition/ScriptSample.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "recognition/Characters.h"
#include "recognition/SignedRank.h"

namespace kvo::recognition {

namespace {

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

void HanReading::addSymbol(const char* symbol, double confidence, const ScriptForms& forms, const Box& box) {
  int32_t i = 0;
  UChar32 c = 0;
  const auto length = static_cast<int32_t>(std::strlen(symbol));
  U8_NEXT(symbol, i, length, c);
  if (c < 0 || !isHan(c)) return;
  han.add(confidence);
  if (forms.own(c)) ownForms.add(confidence);
  if (lines.empty()) lines.emplace_back();
  lines.back().push_back(HanSymbol{c, forms.simplified(c), confidence, box});
}

bool isSampleLine(const Box& b) {
  return b.height() >= kLeastSampleHeight && b.width() >= kLeastSampleWidthInHeights * b.height();
}

std::vector<Box> sampleOrder(const std::vector<Box>& lines) {
  std::vector<Box> sample;
  std::vector<bool> taken(lines.size(), false);
  auto take = [&](size_t k) {
    if (k < lines.size() && !taken[k]) {
      sample.push_back(lines[k]);
      taken[k] = true;
    }
  };
  if (lines.size() > kSpreadLines) {
    // Pairs of neighbours: a page whose lines alternate (a manual's option
    // lines and the Chinese lines describing them) shows both kinds in
    // each pair, where single lines at an even stride could all be of one.
    const size_t pairs = kSpreadLines / 2;
    for (size_t i = 0; i < pairs; ++i) {
      const size_t k = std::min((2 * i + 1) * lines.size() / (2 * pairs), lines.size() - 2);
      take(k);
      take(k + 1);
    }
  }
  for (size_t k = 0; k < lines.size() && sample.size() < kMostSampleLines; ++k) take(k);
  return sample;
}

int Votes::first() const {
  return static_cast<int>(std::count_if(margins.begin(), margins.end(), [](double m) { return m > 0; }));
}

int Votes::second() const {
  return static_cast<int>(std::count_if(margins.begin(), margins.end(), [](double m) { return m < 0; }));
}

double Votes::rankSum() const { return signedRankSum(margins); }

bool settled(const Votes& votes) { return signedRankRejectsChance(votes.margins); }

namespace {

// Reads line `b`, which the first model read as `one`, with the second too,
// and adds both readings and their votes to `sample`: true when the votes
// are then settled. A line with too little Han is left out.
bool addLine(SampleReading& sample, HanReading one, const SampleReader& second, const Box& b) {
  if (one.han.count < kHanPerLine) return false;
  ++sample.linesWithHan;
  HanReading other = second(b, kWholeLine);
  // One line each, even one with no Han: the readings' lines pair up by position.
  for (HanReading* reading : {&one, &other})
    if (reading->lines.empty()) reading->lines.emplace_back();
  Votes votes = countVotes(one, other);
  for (FormPair& pair : votes.forms) pair.line = b;
  sample.votes.add(votes);
  sample.first.add(one);
  sample.second.add(other);
  return settled(sample.votes);
}

}  // namespace

SampleReading readSample(const std::vector<Box>& sample, const SampleReader& first, const SampleReader& second) {
  SampleReading result;
  for (size_t i = 0; i < sample.size(); ++i) {
    const Box& b = sample[i];
    const bool probing = result.linesWithHan == 0;
    // No Han on any of the lines spread over the page: a page without it.
    if (probing && i >= kSpreadLines) break;
    const int probeWidth = kProbeWidthInHeights * b.height();
    if (probing && b.width() > probeWidth && first(b, probeWidth).han.count == 0) continue;
    if (addLine(result, first(b, kWholeLine), second, b)) break;
  }
  return result;
}

void extendSample(SampleReading& sample, const std::vector<Box>& lines, const SampleReader& first,
                  const SampleReader& second) {
  if (settled(sample.votes)) return;
  for (const Box& b : lines)
    if (addLine(sample, first(b, kWholeLine), second, b)) return;
}

namespace {

// One glyph's vote: for the model more confident of it, none on a tie.
void cast(const HanSymbol& a, const HanSymbol& b, Votes& votes) { votes.add(a.confidence - b.confidence); }

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
      if (a[i].c != b[j].c) {
        cast(a[i], b[j], votes);
        votes.forms.push_back(FormPair{a[i].c, b[j].c, a[i].box, b[j].box, Box{}});  // the line: set by the sample
      }
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

}  // namespace kvo::recognition
