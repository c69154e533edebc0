#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <unicode/umachine.h>
#include <unicode/uversion.h>

#include "recognition/GlyphForms.h"
#include "recognition/LineGeometry.h"
#include "recognition/SignedRank.h"

U_NAMESPACE_BEGIN
class Transliterator;
U_NAMESPACE_END

namespace kvo::recognition {

// The sample a page's script is decided on (recognition/ScriptDecision):
// lines of the page are read with each of the two Chinese models alone. Where the two readings hold the same character in the two
// scripts' different forms (说 and 說), both models looked at the same glyph
// and each wrote its own form: the one more confident of it gets that
// glyph's vote, weighted by the rank of its margin among all votes' (as
// does the one more confident of a glyph the two read as different
// characters). Lines are read until the votes are too one-sided to be
// chance (a signed-rank test) or the sample ends, and the model whose votes
// weigh more reads the page. The vote compares the two models glyph by glyph, so
// what makes a glyph hard to read (blur, size, ground) weighs on both alike.
// Without votes, or on a tie, the model with less doubt over all its Han
// characters wins, and the first requested on a tie of that too. Lines the
// layout analysis missed and the page read found later join a sample whose
// votes were not settled (extendSample). Votes that do not settle are
// weighed together with the glyphs themselves when they can be
// (recognition/GlyphForms): which of the two forms each glyph read in both
// looks like, each kind of evidence as far as it is unlikely under chance.

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
  // The character both scripts' forms of `c` are compared by: its
  // Simplified form when that is one code point, `c` otherwise.
  UChar32 simplified(UChar32 c) const;

 private:
  std::unique_ptr<icu::Transliterator> transliterator_;
  bool traditional_;
};

// One Han character of a reading.
struct HanSymbol {
  UChar32 c = 0;
  UChar32 simplified = 0;  // ScriptForms::simplified(c)
  double confidence = 0;
  Box box;  // where the model placed it, page pixels
};

// The Han characters of a reading: all of them, and those written in a form
// of the reading model's own script only; and, line by line, the characters
// in reading order.
struct HanReading {
  Confidences han, ownForms;
  std::vector<std::vector<HanSymbol>> lines;
  void add(const HanReading& o) {
    han.add(o.han);
    ownForms.add(o.ownForms);
    lines.insert(lines.end(), o.lines.begin(), o.lines.end());
  }
  // Counts one recognised symbol (UTF-8), placed in `box`, when it is Han,
  // on the last line (a first one when there is none).
  void addSymbol(const char* symbol, double confidence, const ScriptForms& forms, const Box& box = {});
};

// The votes of the glyphs both readings hold in different forms: for each,
// by how much the first model was more confident of it than the second
// (0..100; negative when the second was the more confident). A glyph both
// were equally sure of casts none.
struct Votes {
  std::vector<double> margins;
  // The glyphs the two readings agree on in different forms, in order.
  std::vector<FormPair> forms;
  // The votes for the first model, and for the second.
  int first() const;
  int second() const;
  void add(double margin) {
    if (margin != 0) margins.push_back(margin);
  }
  void add(const Votes& o) {
    margins.insert(margins.end(), o.margins.begin(), o.margins.end());
    forms.insert(forms.end(), o.forms.begin(), o.forms.end());
  }
  // The signed-rank sum of the margins (signedRankSum): each rank counted
  // for the model the vote is for, the first's minus the second's. Positive
  // when the first model's votes outweigh the second's, 0 on a tie. A glyph one
  // model misread while the other was sure of it weighs more than one both
  // read in their own forms at nearly the same confidence, whose margin is
  // as much noise as the script.
  double rankSum() const;
};
// Pairs the lines of two readings of the same sample lines in order and,
// on each, the characters the readings agree on (compared by their
// Simplified forms, longest common subsequence): a pair written in two
// different forms is a vote; so is each pair of characters read differently
// where both readings hold as many between the same two agreements.
Votes countVotes(const HanReading& first, const HanReading& second);

// Whether a line from the layout analysis can be sampled: horizontal and tall enough to read.
bool isSampleLine(const Box& line);

// The page's sampleable lines in the order they are sampled: first
// kSpreadLines of them in pairs of neighbours spread evenly over the page
// (all of them when there are no more), then the others in page order, at
// most kMostSampleLines in all.
std::vector<Box> sampleOrder(const std::vector<Box>& lines);
constexpr size_t kSpreadLines = 8;
constexpr size_t kMostSampleLines = 16;

// Reads one sample line with one model, at most `widest` pixels of it
// (`lines` holds at most one; readSample pairs the two models' lines).
using SampleReader = std::function<HanReading(const Box& line, int widest)>;
constexpr int kWholeLine = std::numeric_limits<int>::max();

// What the sample showed: both models' readings of the lines with Han, line
// for line, and the votes they cast.
struct SampleReading {
  HanReading first, second;
  Votes votes;
  int linesWithHan = 0;
};

// True when `votes` are more one-sided than chance would make them in one
// case out of twenty (recognition/SignedRank: signedRankRejectsChance of
// their margins).
bool settled(const Votes& votes);

// Reads the sample in order, each line with the first model and, when it
// holds Han (kHanPerLine characters or more; fewer are stray misreadings),
// with the second: until the votes are settled or the sample runs out.
// Until Han turns up only the start of a line is read (kProbeWidthInHeights
// times its height: a dozen Chinese characters), and the page is taken to
// have none when none of the kSpreadLines lines spread over it shows any: a
// page without Han costs eight short reads.
SampleReading readSample(const std::vector<Box>& sample, const SampleReader& first, const SampleReader& second);

// Reads more lines into a sample whose votes are not settled, in order, each
// whole with the first model and, when it holds Han, with the second, until
// the votes are settled or the lines run out: lines the page's first layout
// analysis missed, found when the page was read (recognition/UnreadInk).
void extendSample(SampleReading& sample, const std::vector<Box>& lines, const SampleReader& first,
                  const SampleReader& second);
constexpr int kHanPerLine = 4;
constexpr int kProbeWidthInHeights = 12;

}  // namespace kvo::recognition
