#include "recognition/ScriptDecision.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using kvo::recognition::Box;
using kvo::recognition::HanReading;
using kvo::recognition::Script;
using kvo::recognition::ScriptForms;

class ScriptDecision : public ::testing::Test {
 protected:
  // `count` Han characters read with confidence `confidence`, `own` of them
  // in forms of the model's own script with confidence `ownConfidence`.
  static HanReading reading(int count, double confidence, int own = 0, double ownConfidence = 0) {
    HanReading r;
    for (int i = 0; i < count - own; ++i) r.han.add(confidence);
    for (int i = 0; i < own; ++i) {
      r.han.add(ownConfidence);
      r.ownForms.add(ownConfidence);
    }
    return r;
  }
  // A line read by the model of `forms`: its Han characters, with
  // confidences in order.
  static HanReading lineRead(const std::u32string& text, const std::vector<double>& confidences,
                             const ScriptForms& forms) {
    HanReading r;
    r.lines.emplace_back();
    for (size_t i = 0; i < text.size(); ++i) {
      std::string utf8;
      appendUtf8(text[i], utf8);
      r.addSymbol(utf8.c_str(), confidences.at(i), forms);
    }
    return r;
  }
  static void appendUtf8(char32_t c, std::string& out) {
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  const ScriptForms simplified_{"chi_sim"}, traditional_{"chi_tra"};

  // A line 30 pixels high, `widthInHeights` times as wide, at row `row`.
  static Box line(int row, int widthInHeights = 40) { return Box{10, 40 * row, 10 + 30 * widthInHeights, 40 * row + 30}; }

  // Reads sample lines from a script: `han[i]` Han characters on the line
  // at row i, each 说 (with `first`) or 說, with confidence `confidence`.
  struct ScriptedReader {
    const ScriptForms& forms;
    std::vector<int> han;
    double confidence;
    std::vector<std::pair<int, int>> reads;  // row, widest
    HanReading operator()(const Box& b, int widest) {
      const int row = b.top / 40;
      reads.emplace_back(row, widest);
      const bool simplified = forms.own(U'说');
      return lineRead(std::u32string(static_cast<size_t>(han.at(row)), simplified ? U'说' : U'說'),
                      std::vector<double>(static_cast<size_t>(han.at(row)), confidence), forms);
    }
  };
  // Both models read the same lines; the first is the more confident of
  // every glyph.
  struct Sampling {
    ScriptedReader first, second;
    Sampling(const ScriptForms& a, const ScriptForms& b, std::vector<int> han)
        : first{a, han, 99, {}}, second{b, han, 90, {}} {}
    kvo::recognition::SampleReading read(const std::vector<Box>& sample) {
      return kvo::recognition::readSample(
          sample, [&](const Box& b, int widest) { return first(b, widest); },
          [&](const Box& b, int widest) { return second(b, widest); });
    }
    void extend(kvo::recognition::SampleReading& sample, const std::vector<Box>& more) {
      kvo::recognition::extendSample(
          sample, more, [&](const Box& b, int widest) { return first(b, widest); },
          [&](const Box& b, int widest) { return second(b, widest); });
    }
  };
  static std::vector<Box> rows(int count, int widthInHeights = 40) {
    std::vector<Box> lines;
    for (int i = 0; i < count; ++i) lines.push_back(line(i, widthInHeights));
    return lines;
  }
  // The rows of `count` lines in the order they are sampled.
  static std::vector<int> sampledRows(int count) {
    std::vector<int> order;
    for (const Box& b : kvo::recognition::sampleOrder(rows(count))) order.push_back(b.top / 40);
    return order;
  }
  // `first` votes for the first model and `second` for the second, all by
  // the same margin.
  static kvo::recognition::Votes votes(int first, int second) {
    kvo::recognition::Votes v;
    for (int i = 0; i < first; ++i) v.add(5);
    for (int i = 0; i < second; ++i) v.add(-5);
    return v;
  }
  // The decision on two readings of the same lines, with the votes they cast.
  static Script decide(const HanReading& first, const HanReading& second) {
    return kvo::recognition::decideScript({first, second, kvo::recognition::countVotes(first, second)});
  }
  static kvo::recognition::Votes margins(const std::vector<double>& each) {
    kvo::recognition::Votes v;
    for (double m : each) v.add(m);
    return v;
  }
};

TEST_F(ScriptDecision, MeasuresDoubtAsWhatTheMeanConfidenceLeaves) {
  EXPECT_DOUBLE_EQ(reading(4, 98).han.doubt(), 2);
  EXPECT_DOUBLE_EQ(reading(0, 0).han.doubt(), 100);
  HanReading sum = reading(2, 90);
  sum.add(reading(2, 100));
  EXPECT_EQ(sum.han.count, 4);
  EXPECT_DOUBLE_EQ(sum.han.doubt(), 5);
}

TEST_F(ScriptDecision, KeepsTheFirstModelWhenTheSecondReadNoHan) {
  EXPECT_EQ(decide(reading(50, 80), reading(0, 0)), Script::first);
}

TEST_F(ScriptDecision, GivesThePageToTheModelWithLessDoubtWhicheverWasRequestedFirst) {
  EXPECT_EQ(decide(reading(50, 97), reading(50, 98)), Script::second);
  EXPECT_EQ(decide(reading(50, 98), reading(50, 97)), Script::first);
  // Near certainty on both sides decides the same way.
  EXPECT_EQ(decide(reading(50, 99.8), reading(50, 99.9)), Script::second);
}

TEST_F(ScriptDecision, KeepsTheFirstModelOnlyOnATie) {
  EXPECT_EQ(decide(reading(50, 97), reading(50, 97)), Script::first);
}

TEST_F(ScriptDecision, WeighsOnlyOwnFormsWhenBothReadingsHaveEnough) {
  // Shared characters alike; the wrong model hesitates on its own forms.
  EXPECT_EQ(decide(reading(60, 99, 8, 90), reading(60, 99, 8, 98)), Script::second);
  EXPECT_EQ(decide(reading(60, 99, 8, 98), reading(60, 99, 8, 90)), Script::first);
  // Seven own forms in one reading: all Han characters count (doubt 2.2
  // against 2.77), though the own forms alone (10 against 1) would favour the second.
  EXPECT_EQ(decide(reading(60, 99, 8, 90), reading(60, 97, 8, 99)), Script::second);
  EXPECT_EQ(decide(reading(60, 99, 8, 90), reading(60, 97, 7, 99)), Script::first);
}

TEST_F(ScriptDecision, CountsHanSymbolsAndTheirOwnForms) {
  const ScriptForms simplified("chi_sim"), traditional("chi_tra");
  EXPECT_TRUE(simplified.own(U'门'));
  EXPECT_FALSE(simplified.own(U'門'));
  EXPECT_FALSE(simplified.own(U'人'));
  EXPECT_TRUE(traditional.own(U'門'));
  EXPECT_FALSE(traditional.own(U'人'));
  HanReading r;
  r.addSymbol("门", 90, simplified);
  r.addSymbol("人", 80, simplified);
  r.addSymbol("A", 10, simplified);
  r.addSymbol("，", 10, simplified);
  r.addSymbol("\xff", 10, simplified);
  EXPECT_EQ(r.han.count, 2);
  EXPECT_DOUBLE_EQ(r.han.sum, 170);
  EXPECT_EQ(r.ownForms.count, 1);
  EXPECT_DOUBLE_EQ(r.ownForms.sum, 90);
}

TEST_F(ScriptDecision, ComparesCharactersByTheirSimplifiedForms) {
  EXPECT_EQ(simplified_.simplified(U'说'), U'说');
  EXPECT_EQ(traditional_.simplified(U'說'), U'说');
  EXPECT_EQ(traditional_.simplified(U'人'), U'人');
  EXPECT_EQ(traditional_.simplified(U'A'), U'A');
}

TEST_F(ScriptDecision, GlyphsReadInBothFormsVoteForTheMoreConfidentModel) {
  // 说 and 这 read both ways; 明 alike in both scripts casts no vote.
  const auto first = lineRead(U"说明这", {90, 99, 80}, simplified_);
  const auto second = lineRead(U"說明這", {95, 10, 95}, traditional_);
  const auto votes = kvo::recognition::countVotes(first, second);
  EXPECT_EQ(votes.first(), 0);
  EXPECT_EQ(votes.second(), 2);
  // The votes decide though the second model's doubt over all its Han is the greater.
  EXPECT_GT(second.han.doubt(), first.han.doubt());
  EXPECT_EQ(decide(first, second), Script::second);
  EXPECT_EQ(decide(second, first), Script::first);
}

TEST_F(ScriptDecision, PairsGlyphsAcrossCharactersOnlyOneModelRead) {
  // The second reading misses 明 and adds 口 and 门: 说 and 这 still pair
  // up; 明 against 口门 is no pair.
  const auto first = lineRead(U"说明这个", {99, 90, 99, 60}, simplified_);
  const auto second = lineRead(U"說口门這個", {90, 99, 99, 90, 65}, traditional_);
  const auto votes = kvo::recognition::countVotes(first, second);
  EXPECT_EQ(votes.first(), 2);
  EXPECT_EQ(votes.second(), 1);
  EXPECT_EQ(decide(first, second), Script::first);
}

TEST_F(ScriptDecision, AGlyphTheModelsReadAsDifferentCharactersVotesToo) {
  // 采 and 體 between 繁 and 中, and 天 and 夭 at the end, pair up; 繁 and
  // 中, alike in both, do not vote.
  const auto first = lineRead(U"繁采中天", {80, 81, 60, 99}, simplified_);
  const auto second = lineRead(U"繁體中夭", {99, 99, 99, 50}, traditional_);
  const auto votes = kvo::recognition::countVotes(first, second);
  EXPECT_EQ(votes.first(), 1);
  EXPECT_EQ(votes.second(), 1);
}

TEST_F(ScriptDecision, PairsLinesByPositionAndAnEmptyReadingKeepsItsPlace) {
  HanReading first = lineRead(U"说", {99}, simplified_);
  first.add(lineRead(U"这", {10}, simplified_));
  HanReading second;
  second.lines.emplace_back();  // the first line read no Han
  second.add(lineRead(U"這", {90}, traditional_));
  const auto votes = kvo::recognition::countVotes(first, second);
  EXPECT_EQ(votes.first(), 0);
  EXPECT_EQ(votes.second(), 1);
}

TEST_F(ScriptDecision, FallsBackToTheDoubtOnATieOfVotes) {
  const auto first = lineRead(U"说这明", {99, 50, 99}, simplified_);
  const auto second = lineRead(U"說這明", {50, 99, 90}, traditional_);
  const auto votes = kvo::recognition::countVotes(first, second);
  EXPECT_EQ(votes.first(), 1);
  EXPECT_EQ(votes.second(), 1);
  EXPECT_EQ(decide(first, second), Script::first);
  EXPECT_EQ(decide(second, first), Script::second);
}

TEST_F(ScriptDecision, SamplesWideHorizontalLinesOnly) {
  EXPECT_TRUE(kvo::recognition::isSampleLine(Box{0, 0, 24, 8}));
  EXPECT_FALSE(kvo::recognition::isSampleLine(Box{0, 0, 23, 8}));
  EXPECT_FALSE(kvo::recognition::isSampleLine(Box{0, 0, 300, 7}));
  EXPECT_FALSE(kvo::recognition::isSampleLine(Box{0, 0, 30, 300}));
}

TEST_F(ScriptDecision, SamplesPairsOfNeighboursSpreadOverThePageFirstThenTheRestInPageOrder) {
  EXPECT_EQ(sampledRows(32), (std::vector<int>{4, 5, 12, 13, 20, 21, 28, 29, 0, 1, 2, 3, 6, 7, 8, 9}));
  EXPECT_EQ(sampledRows(9), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 0}));
  EXPECT_EQ(sampledRows(3), (std::vector<int>{0, 1, 2}));
  EXPECT_TRUE(sampledRows(0).empty());
}

TEST_F(ScriptDecision, FindsHanOnAPageWhoseLinesAlternateWithLatinOnes) {
  // Sixteen lines, Han on the odd ones only: each pair holds one.
  std::vector<int> han(16, 0);
  for (size_t row = 1; row < han.size(); row += 2) han[row] = 20;
  Sampling s(simplified_, traditional_, han);
  const auto sample = s.read(kvo::recognition::sampleOrder(rows(16)));
  EXPECT_EQ(sample.linesWithHan, 1);
  EXPECT_EQ(s.first.reads.size(), 3u);  // row 2 probed; row 3 probed, then read whole
}

TEST_F(ScriptDecision, VotesOfEqualMarginsSettleWhenChanceWouldSplitThemSoUnevenlyLessThanOnceInTwenty) {
  using kvo::recognition::settled;
  EXPECT_FALSE(settled(votes(0, 0)));
  EXPECT_FALSE(settled(votes(5, 0)));  // 2 × 1/32 = 0.0625
  EXPECT_TRUE(settled(votes(6, 0)));   // 2 × 1/64
  EXPECT_TRUE(settled(votes(0, 6)));
  EXPECT_FALSE(settled(votes(9, 2)));  // 2 × 67/2048 = 0.065
  EXPECT_TRUE(settled(votes(10, 2)));  // 2 × 79/4096 = 0.039
  EXPECT_FALSE(settled(votes(60, 40)));
  EXPECT_TRUE(settled(votes(600, 400)));
}

TEST_F(ScriptDecision, AVoteWeighsByTheRankOfItsMargin) {
  using kvo::recognition::settled;
  // Six votes for the first model and one for the second, which the sign
  // test leaves open (2 × 8/128): against the least margin they settle
  // (2 × 2/128), against the greatest they do not (2 × 19/128).
  EXPECT_TRUE(settled(margins({10, 11, 12, 13, 14, 15, -1})));
  EXPECT_FALSE(settled(margins({10, 11, 12, 13, 14, 15, -50})));
  EXPECT_DOUBLE_EQ(margins({10, 11, 12, 13, 14, 15, -1}).rankSum(), 26);
  EXPECT_DOUBLE_EQ(margins({10, 11, 12, 13, 14, 15, -50}).rankSum(), 14);
  // Equal margins share their mean rank; a glyph both models were equally sure of casts no vote.
  EXPECT_DOUBLE_EQ(margins({3, -3, 3, 0}).rankSum(), 2);
  EXPECT_EQ(margins({3, -3, 3, 0}).first(), 2);
  EXPECT_EQ(margins({3, -3, 3, 0}).second(), 1);
}

TEST_F(ScriptDecision, ApproximatesTheTestBeyondTheVotesItCountsExactly) {
  using kvo::recognition::settled;
  static_assert(kvo::recognition::kExactSignedRankCount < 150);
  EXPECT_TRUE(settled(votes(90, 60)));   // exact 0.018
  EXPECT_FALSE(settled(votes(80, 70)));  // exact 0.46
  std::vector<double> lopsided;
  for (int i = 1; i <= 150; ++i) lopsided.push_back(i);
  lopsided.push_back(-151);
  EXPECT_TRUE(settled(margins(lopsided)));
  EXPECT_FALSE(settled(margins({})));
}

TEST_F(ScriptDecision, TheModelWhoseVotesWeighMoreReadsThePageNotTheOneWithMoreVotes) {
  // 说这个 read both ways: the first model is the more confident of three
  // glyphs by a little, the second of two glyphs the first hesitated over.
  const auto first = lineRead(U"说这个们时", {99, 99, 99, 40, 50}, simplified_);
  const auto second = lineRead(U"說這個們時", {98, 97, 96, 99, 99}, traditional_);
  const auto votes = kvo::recognition::countVotes(first, second);
  EXPECT_EQ(votes.first(), 3);
  EXPECT_EQ(votes.second(), 2);
  EXPECT_EQ(decide(first, second), Script::second);
}

TEST_F(ScriptDecision, ProbesTheStartOfLinesUntilHanTurnsUp) {
  Sampling s(simplified_, traditional_, {0, 0, 20, 20, 20});
  const auto sample = s.read(rows(5));
  // Rows 0 and 1 probed 12 heights wide (360 pixels), row 2 probed then
  // read whole; its 20 votes settle the choice.
  const std::vector<std::pair<int, int>> expected = {
      {0, 360}, {1, 360}, {2, 360}, {2, kvo::recognition::kWholeLine}};
  EXPECT_EQ(s.first.reads, expected);
  EXPECT_EQ(s.second.reads, (std::vector<std::pair<int, int>>{{2, kvo::recognition::kWholeLine}}));
  EXPECT_EQ(sample.linesWithHan, 1);
  EXPECT_EQ(sample.votes.first(), 20);
  EXPECT_EQ(sample.votes.second(), 0);
}

TEST_F(ScriptDecision, ReadsOnUntilTheVotesSettle) {
  Sampling s(simplified_, traditional_, {4, 4, 4, 4});
  const auto sample = s.read(rows(4));
  // Four votes after one line, eight after two: settled.
  EXPECT_EQ(sample.linesWithHan, 2);
  EXPECT_EQ(s.second.reads.size(), 2u);
  EXPECT_EQ(kvo::recognition::decideScript(sample), Script::first);
}

TEST_F(ScriptDecision, DecidesOnWhatTheWholeSampleShowsWhenTheVotesNeverSettle) {
  // A line with Han cast no vote: both models read it alike.
  Sampling s(simplified_, simplified_, {5, 5, 5});
  const auto sample = s.read(rows(3));
  EXPECT_EQ(sample.linesWithHan, 3);
  EXPECT_EQ(sample.votes.first() + sample.votes.second(), 0);
  EXPECT_EQ(kvo::recognition::decideScript(sample), Script::first);
}

TEST_F(ScriptDecision, ReadsLinesFoundLaterIntoASampleThatDidNotSettle) {
  // Four votes from the one line the first layout found; the lines found
  // when the page was read add theirs, read whole, until the votes settle.
  Sampling s(simplified_, traditional_, {4, 0, 4, 4});
  auto sample = s.read(rows(1));
  EXPECT_FALSE(kvo::recognition::settled(sample.votes));
  s.first.reads.clear();
  s.extend(sample, {line(1), line(2), line(3)});
  const std::vector<std::pair<int, int>> whole = {{1, kvo::recognition::kWholeLine},
                                                  {2, kvo::recognition::kWholeLine}};
  EXPECT_EQ(s.first.reads, whole) << "row 1 holds no Han; row 2 brings the votes to 8, which settle";
  EXPECT_EQ(sample.linesWithHan, 2);
  EXPECT_EQ(sample.votes.first(), 8);
  EXPECT_EQ(kvo::recognition::decideScript(sample), Script::first);
}

TEST_F(ScriptDecision, LeavesASettledSampleAsItIs) {
  Sampling s(simplified_, traditional_, {20, 20});
  auto sample = s.read(rows(1));
  ASSERT_TRUE(kvo::recognition::settled(sample.votes));
  s.first.reads.clear();
  s.extend(sample, {line(1)});
  EXPECT_TRUE(s.first.reads.empty());
  EXPECT_EQ(sample.linesWithHan, 1);
}

TEST_F(ScriptDecision, TakesAPageForOneWithoutHanWhenNoneOfTheSpreadLinesShowsAny) {
  // Twelve lines: the spread ones are rows 1, 2, 4, 5, 7, 8, 10, 11; rows 0
  // and 6 hold Han but are not among them.
  std::vector<int> han(12, 0);
  han[0] = han[6] = 30;
  Sampling s(simplified_, traditional_, han);
  const auto sample = s.read(kvo::recognition::sampleOrder(rows(12)));
  EXPECT_EQ(sample.linesWithHan, 0);
  EXPECT_EQ(s.first.reads.size(), 8u);
  EXPECT_TRUE(s.second.reads.empty());
}

TEST_F(ScriptDecision, FindsHanOnTheLastSpreadLineAfterSevenWithout) {
  // A manual's page: Latin option lines, then the Chinese line describing them.
  std::vector<int> han(8, 0);
  han[7] = 20;
  Sampling s(simplified_, traditional_, han);
  const auto sample = s.read(rows(8));
  EXPECT_EQ(sample.linesWithHan, 1);
  EXPECT_EQ(sample.votes.first(), 20);
}

TEST_F(ScriptDecision, IgnoresLinesWithAFewStrayHan) {
  // Narrow lines are read whole at once.
  Sampling s(simplified_, traditional_, {3, 3, 3, 3});
  const auto sample = s.read(rows(4, 10));
  EXPECT_EQ(sample.linesWithHan, 0);
  EXPECT_EQ(s.first.reads.size(), 4u);
  EXPECT_TRUE(s.second.reads.empty());
}

}  // namespace

TEST_F(ScriptDecision, KeepsTheGlyphsReadInTwoFormsWithTheBoxesTheyWerePlacedIn) {
  HanReading first, second;
  first.addSymbol("说", 99, simplified_, Box{10, 0, 40, 30});
  first.addSymbol("明", 99, simplified_, Box{40, 0, 70, 30});
  second.addSymbol("說", 98, traditional_, Box{12, 1, 41, 30});
  second.addSymbol("明", 99, traditional_, Box{40, 0, 70, 30});
  const auto votes = kvo::recognition::countVotes(first, second);
  ASSERT_EQ(votes.forms.size(), 1u);
  EXPECT_EQ(votes.forms[0].first, U'说');
  EXPECT_EQ(votes.forms[0].second, U'說');
  EXPECT_EQ(votes.forms[0].firstBox.left, 10);
  EXPECT_EQ(votes.forms[0].secondBox.left, 12);
}

TEST_F(ScriptDecision, TheGlyphsWeighInWhenTheVotesDidNotSettle) {
  // One vote for the first model, far from settled.
  const auto first = lineRead(U"说明", {99, 99}, simplified_);
  const auto second = lineRead(U"說明", {98, 99}, traditional_);
  const kvo::recognition::SampleReading sample{first, second, kvo::recognition::countVotes(first, second), 1};
  ASSERT_FALSE(kvo::recognition::settled(sample.votes));
  EXPECT_EQ(kvo::recognition::decideScript(sample, {}), Script::first);
  EXPECT_EQ(kvo::recognition::decideScript(sample, {-0.2, -0.3}), Script::second);  // two glyphs against one vote
  EXPECT_EQ(kvo::recognition::decideScript(sample, {0.2}), Script::first);
}

TEST_F(ScriptDecision, OneGlyphDoesNotOutweighManyVotesLeaningTheOtherWay) {
  kvo::recognition::SampleReading sample{reading(20, 99), reading(20, 98), votes(13, 7), 3};
  ASSERT_FALSE(kvo::recognition::settled(sample.votes));
  EXPECT_EQ(kvo::recognition::decideScript(sample, {-0.3}), Script::first);
}

TEST_F(ScriptDecision, ADozenGlyphsOutweighAFewVotesLeaningTheOtherWay) {
  kvo::recognition::SampleReading sample{reading(20, 99), reading(20, 98), margins({3, 2, -1}), 3};
  ASSERT_FALSE(kvo::recognition::settled(sample.votes));
  EXPECT_EQ(kvo::recognition::decideScript(sample, std::vector<double>(12, -0.1)), Script::second);
}

TEST_F(ScriptDecision, SettledVotesDecideWhateverTheGlyphsLookLike) {
  kvo::recognition::SampleReading sample{reading(20, 99), reading(20, 90), votes(10, 0), 3};
  ASSERT_TRUE(kvo::recognition::settled(sample.votes));
  EXPECT_EQ(kvo::recognition::decideScript(sample, std::vector<double>(50, -5)), Script::first);
}

TEST_F(ScriptDecision, EvidenceIsNoneWithoutDifferencesOrWhenTheyLeanNeitherWay) {
  EXPECT_EQ(kvo::recognition::signedRankDeviate({}), 0);
  EXPECT_EQ(kvo::recognition::signedRankDeviate({0, 0}), 0);
  EXPECT_EQ(kvo::recognition::signedRankDeviate({1, -1}), 0);
  EXPECT_EQ(kvo::recognition::signedRankDeviate({3, -1, -2}), 0);  // ranks 3 against 1 + 2
}

TEST_F(ScriptDecision, EvidenceIsTheNormalDeviateOfTheMidP) {
  // One difference: the sum observed (its rank) has chance 1/2, none above: 1/4.
  EXPECT_NEAR(kvo::recognition::signedRankDeviate({0.4}), 0.6745, 1e-4);
  // Three of one side: only that sum, chance 1/8, half of it counted: 1/16.
  EXPECT_NEAR(kvo::recognition::signedRankDeviate({1, 2, 3}), 1.5341, 1e-4);
  EXPECT_NEAR(kvo::recognition::signedRankDeviate({-1, -2, -3}), -1.5341, 1e-4);
  EXPECT_NEAR(kvo::recognition::signedRankDeviate({1, 2, 0, 3}), 1.5341, 1e-4);  // a 0 leans nowhere
}

TEST_F(ScriptDecision, EvidenceWeighsDifferencesByTheRankOfTheirSizes) {
  // One large one way, one small the other: rank 2 against 1 (chance above 1/4, at it 1/4).
  EXPECT_NEAR(kvo::recognition::signedRankDeviate({5, -1}), 0.3186, 1e-4);
  EXPECT_NEAR(kvo::recognition::signedRankDeviate({-5, 1}), -0.3186, 1e-4);
}

TEST_F(ScriptDecision, ApproximatesTheEvidenceBeyondTheDifferencesItCountsExactly) {
  // 110 against 90 of equal size: (110 - 100) ranks of 100.5 over the
  // standard deviation of the sum, 100.5 × sqrt(200) / 2.
  std::vector<double> differences(110, 1.0);
  differences.insert(differences.end(), 90, -1.0);
  EXPECT_NEAR(kvo::recognition::signedRankDeviate(differences), 10 / (std::sqrt(200.0) / 2), 1e-9);
}

TEST_F(ScriptDecision, SampledGlyphsKeepTheLineTheyWereReadOn) {
  Sampling s(simplified_, traditional_, {4});
  const auto sample = s.read(rows(1));
  ASSERT_FALSE(sample.votes.forms.empty());
  for (const auto& pair : sample.votes.forms) {
    EXPECT_EQ(pair.line.top, rows(1)[0].top);
    EXPECT_EQ(pair.line.bottom, rows(1)[0].bottom);
  }
}
