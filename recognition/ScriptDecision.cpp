#include "recognition/ScriptDecision.h"

#include <unicode/translit.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "recognition/Characters.h"

namespace kvo::recognition {

namespace {

// The test's level: votes this unlikely under chance settle the choice.
constexpr double kSignificance = 0.05;
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

namespace {

// The votes' ranks doubled, in the order of `margins`: whole numbers, since
// a run of equal sizes from rank i to rank j shares the rank (i + j) / 2.
std::vector<int> doubledRanks(const std::vector<double>& margins) {
  const size_t n = margins.size();
  std::vector<size_t> order(n);
  for (size_t i = 0; i < n; ++i) order[i] = i;
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return std::fabs(margins[a]) < std::fabs(margins[b]); });
  std::vector<int> ranks(n);
  for (size_t i = 0; i < n;) {
    size_t j = i;
    while (j + 1 < n && std::fabs(margins[order[j + 1]]) == std::fabs(margins[order[i]])) ++j;
    for (size_t k = i; k <= j; ++k) ranks[order[k]] = static_cast<int>(i + j + 2);  // 2 × mean of ranks i+1..j+1
    i = j + 1;
  }
  return ranks;
}

// Under chance, each of `ranks` (doubled) counted for either side with
// probability 1/2: the chance of every doubled sum of those counted for one
// side, 0 up to the sum of them all.
std::vector<double> chanceOfSums(const std::vector<int>& ranks) {
  int64_t total = 0;
  for (const int rank : ranks) total += rank;
  std::vector<double> chance(static_cast<size_t>(total) + 1, 0.0);
  chance[0] = 1;
  int64_t reach = 0;
  for (const int rank : ranks) {
    for (int64_t s = reach; s >= 0; --s) {
      chance[static_cast<size_t>(s + rank)] += chance[static_cast<size_t>(s)] / 2;
      chance[static_cast<size_t>(s)] /= 2;
    }
    reach += rank;
  }
  return chance;
}

// The standard normal deviate with `p` of the distribution above it.
double deviateAbove(double p) {
  // The upper tail 0.5 erfc(z / sqrt 2) falls steadily with z: bisection,
  // to double precision well within a hundred halvings.
  double low = -40, high = 40;
  for (int i = 0; i < 100; ++i) {
    const double mid = (low + high) / 2;
    if (0.5 * std::erfc(mid / std::sqrt(2.0)) > p)
      low = mid;
    else
      high = mid;
  }
  return (low + high) / 2;
}

}  // namespace

double Votes::rankSum() const {
  const std::vector<int> ranks = doubledRanks(margins);
  double sum = 0;
  for (size_t i = 0; i < margins.size(); ++i) sum += margins[i] > 0 ? ranks[i] : -ranks[i];
  return sum / 2;
}

bool settled(const Votes& votes) {
  const size_t n = votes.margins.size();
  if (n == 0) return false;
  const std::vector<int> ranks = doubledRanks(votes.margins);
  // The doubled rank sum of the votes for the less favoured model.
  int64_t total = 0, smaller = 0;
  for (size_t i = 0; i < n; ++i) {
    total += ranks[i];
    if (votes.margins[i] < 0) smaller += ranks[i];
  }
  smaller = std::min(smaller, total - smaller);
  double p = 0;
  if (n <= kExactVotes) {
    const std::vector<double> chance = chanceOfSums(ranks);
    for (int64_t s = 0; s <= smaller; ++s) p += chance[static_cast<size_t>(s)];
    p *= 2;
  } else {
    // Mean total / 4 and variance (sum of squared ranks) / 4 of the
    // undoubled sum, with a continuity correction of half a rank.
    double squares = 0;
    for (const int rank : ranks) squares += static_cast<double>(rank) * rank / 4;
    const double z = (total / 4.0 - smaller / 2.0 - 0.5) / std::sqrt(squares / 4);
    p = std::erfc(z / std::sqrt(2.0));
  }
  return p < kSignificance;
}

double evidence(const std::vector<double>& differences) {
  std::vector<double> signedValues;
  std::copy_if(differences.begin(), differences.end(), std::back_inserter(signedValues),
               [](double d) { return d != 0; });
  if (signedValues.empty()) return 0;
  const std::vector<int> ranks = doubledRanks(signedValues);
  int64_t positive = 0, total = 0;
  double squares = 0;
  for (size_t i = 0; i < ranks.size(); ++i) {
    if (signedValues[i] > 0) positive += ranks[i];
    total += ranks[i];
    squares += static_cast<double>(ranks[i]) * ranks[i];
  }
  // Exactly as much either way: the middle of the distribution.
  if (2 * positive == total) return 0;
  if (signedValues.size() > kExactVotes) {
    // The normal approximation: the doubled sum of the positive ones has
    // mean total / 2 and variance (sum of squared doubled ranks) / 4.
    return (positive - total / 2.0) / std::sqrt(squares / 4);
  }
  // The mid-p: the chance of a sum above the one observed, and half the
  // chance of exactly it, so that differences leaning neither way give 0.
  const std::vector<double> chance = chanceOfSums(ranks);
  double above = chance[static_cast<size_t>(positive)] / 2;
  for (size_t s = static_cast<size_t>(positive) + 1; s < chance.size(); ++s) above += chance[s];
  return deviateAbove(above);
}

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

Script decideScript(const SampleReading& sample, const std::vector<double>& formLeans) {
  const HanReading& first = sample.first;
  const HanReading& second = sample.second;
  if (second.han.count == 0) return Script::first;
  // Votes that did not settle are as much chance as script; the glyphs
  // themselves then say which forms they are in, when they can. Each kind
  // of evidence counts as far as it is unlikely under chance, on one scale
  // (Stouffer's sum of the two deviates): one glyph leaning one way does
  // not outweigh dozens of votes leaning the other, nor a few near-tie
  // votes a dozen glyphs.
  if (!settled(sample.votes)) {
    const double weighed = evidence(sample.votes.margins) + evidence(formLeans);
    if (weighed != 0) return weighed > 0 ? Script::first : Script::second;
  }
  if (const double sum = sample.votes.rankSum(); sum != 0) return sum > 0 ? Script::first : Script::second;
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
