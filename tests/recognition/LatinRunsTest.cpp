#include "recognition/LatinRuns.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvo::recognition::Box;
using kvo::recognition::LatinRun;
using kvo::recognition::ReadLine;

class LatinRuns : public ::testing::Test {
 protected:
  // A line 30 pixels high at the top of the page: word i is 40 pixels wide
  // from x = 50 i, read with confidence `confidences[i]`.
  static ReadLine line(const std::vector<std::string>& words, const std::vector<float>& confidences) {
    ReadLine l;
    l.placed = true;
    l.box = Box{0, 100, 50 * static_cast<int>(words.size()), 130};
    for (size_t i = 0; i < words.size(); ++i) {
      l.words.push_back({words[i], i == 0 ? 0 : 10});
      const int left = 50 * static_cast<int>(i);
      l.boxes.push_back(Box{left, 100, left + 40, 130});
      l.confidences.push_back(confidences[i]);
    }
    return l;
  }
  // The runs of a line 30 pixels thick whose words stand `gap` pixels apart.
  static std::vector<std::pair<size_t, size_t>> runs(const std::vector<std::string>& words, int gap = 0) {
    std::vector<kvo::recognition::Word> w;
    for (const auto& text : words) w.push_back({text, w.empty() ? 0 : gap});
    std::vector<std::pair<size_t, size_t>> found;
    for (const LatinRun& r : kvo::recognition::latinRuns(w, 30)) found.emplace_back(r.begin, r.end);
    return found;
  }
  static std::vector<std::string> texts(const ReadLine& l) {
    std::vector<std::string> t;
    for (const auto& w : l.words) t.push_back(w.text);
    return t;
  }
};

TEST_F(LatinRuns, StartAtLatinLettersAndEndBeforeHan) {
  using Runs = std::vector<std::pair<size_t, size_t>>;
  EXPECT_EQ(runs({"使用", "ls", "-l", "命令"}), (Runs{{1, 3}}));
  EXPECT_EQ(runs({"a", "中文", "b", "c"}), (Runs{{0, 1}, {2, 4}}));
  // Digits and punctuation alone start none; a word mixing Han and Latin ends one.
  EXPECT_EQ(runs({"12", "-", "中文"}), Runs{});
  // A run takes in the words with digits just before it, back to anything
  // Chinese: `-h,` read as `-]1,` before `--human-readable`; punctuation
  // alone it leaves to the Chinese reading.
  EXPECT_EQ(runs({"中文", "12", "b", "c"}), (Runs{{1, 4}}));
  EXPECT_EQ(runs({"-]1,", "--human-readable"}), (Runs{{0, 2}}));
  EXPECT_EQ(runs({"~-1,", "1", "x"}), (Runs{{0, 3}}));
  EXPECT_EQ(runs({"中止", ",", "shell"}), (Runs{{2, 3}}));
  EXPECT_EQ(runs({"[选项", "]...", "--reference="}), (Runs{{2, 3}}));
  EXPECT_EQ(runs({"中文", "1。", "x"}), (Runs{{2, 3}}));
  EXPECT_EQ(runs({"see", "ls命令", "x"}), (Runs{{0, 1}, {2, 3}}));
  // Latin letters are Latin script: Greek and full-width forms are not.
  EXPECT_EQ(runs({"αβγ", "中文"}), Runs{});
  EXPECT_EQ(runs({"é", "中文"}), (Runs{{0, 1}}));
}

TEST_F(LatinRuns, TakeALoneHanCharacterStandingApartBesideLatinForARunOfItsOwn) {
  using Runs = std::vector<std::pair<size_t, size_t>>;
  // A blank the text writes as a space (more than half the line's
  // thickness) or a word without Han on each side, and Latin letters or
  // digits beside it: `it.` read as 让, `-H,` as 有, `-i,` as 一.
  EXPECT_EQ(runs({"让", ".There", "is"}), (Runs{{0, 1}, {1, 3}}));
  EXPECT_EQ(runs({"~", "有,", "--si"}), (Runs{{1, 2}, {2, 3}}));
  EXPECT_EQ(runs({"一", "1,", "--inodes"}, 16), (Runs{{0, 1}, {1, 3}}));
  EXPECT_EQ(runs({"David", "和", "Jim"}), (Runs{{0, 1}, {1, 2}, {2, 3}}));
  EXPECT_EQ(runs({"x", "中", "文字"}, 16), (Runs{{0, 1}, {1, 2}}));
  // Set solid against the Han beside it (a blank of at most half the
  // thickness), it is Chinese.
  EXPECT_EQ(runs({"x", "中", "文字"}, 15), (Runs{{0, 1}}));
  // Letter-spaced Chinese (a heading, a spaced-out line) has no Latin beside
  // its characters: the Chinese model's reading stands, however unsure.
  EXPECT_EQ(runs({"第", "一", "章"}, 40), Runs{});
  EXPECT_EQ(runs({"我将", "各", "及其"}, 16), Runs{});
  // CJK punctuation is Chinese too: it neither parts a character from the
  // text nor counts as Latin.
  EXPECT_EQ(runs({"x", "写", "。"}, 15), (Runs{{0, 1}}));
  EXPECT_EQ(runs({"。", "写", "x"}, 16), (Runs{{1, 2}, {2, 3}}));
  // Two Han characters, or one with Latin letters, are no lone character.
  EXPECT_EQ(runs({"x", "中文", "y"}, 16), (Runs{{0, 1}, {2, 3}}));
  EXPECT_EQ(runs({"a中", "b"}, 16), (Runs{{1, 2}}));
}

TEST_F(LatinRuns, ReplaceALoneHanCharacterOnlyByOneWord) {
  const std::vector<kvo::recognition::Word> words = {{"F", 0}, {"是\"-\",", 20}};
  const std::vector<LatinRun> found = kvo::recognition::latinRuns(words, 30);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_FALSE(found[0].loneHan);
  EXPECT_TRUE(found[1].loneHan);
  ReadLine l = line({"F", "是\"-\","}, {3, 3});
  ReadLine again = line({"SS", "Lene", "9"}, {50, 4, 57});
  EXPECT_FALSE(kvo::recognition::replaceRun(l, found[1], again, nullptr));
  EXPECT_EQ(texts(l), (std::vector<std::string>{"F", "是\"-\","}));
  l = line({"让", ".There"}, {40, 90});
  EXPECT_TRUE(kvo::recognition::replaceRun(l, {0, 1, true}, line({"it."}, {93}), nullptr));
  EXPECT_EQ(texts(l), (std::vector<std::string>{"it.", ".There"}));
}

TEST_F(LatinRuns, RereadsPlacedHorizontalLinesOnly) {
  ReadLine l = line({"ls"}, {50});
  EXPECT_TRUE(kvo::recognition::rereadsLine(l));
  l.placed = false;
  EXPECT_FALSE(kvo::recognition::rereadsLine(l));
  l.placed = true;
  l.box = Box{0, 0, 30, 60};
  EXPECT_FALSE(kvo::recognition::rereadsLine(l));
  l.box = Box{0, 0, 30, 3};
  EXPECT_FALSE(kvo::recognition::rereadsLine(l));
}

TEST_F(LatinRuns, ReadsARunAgainWithoutItsNeighbours) {
  const ReadLine l = line({"使用", "ls", "-l", "命令"}, {90, 60, 60, 90});
  // Padding 7 (a quarter of 30); halfway to the neighbours' boxes.
  const auto region = kvo::recognition::runRegion(l, {1, 3}, 1000, 1000);
  ASSERT_TRUE(region.has_value());
  EXPECT_EQ(region->left, 45);
  EXPECT_EQ(region->right, 145);
  EXPECT_EQ(region->top, 93);
  EXPECT_EQ(region->bottom, 137);
  // Clipped to the page, and too little of it left to read.
  const auto clipped = kvo::recognition::runRegion(l, {3, 4}, 175, 1000);
  ASSERT_TRUE(clipped.has_value());
  EXPECT_EQ(clipped->left, 145);
  EXPECT_EQ(clipped->right, 175);
  EXPECT_FALSE(kvo::recognition::runRegion(l, {3, 4}, 148, 1000).has_value());
}

TEST_F(LatinRuns, KeepsTheNewReadingOnlyWhenClearlyMoreConfident) {
  ReadLine l = line({"使用", "1s", "-1", "命令"}, {90, 60, 60, 90});
  ReadLine again = line({"ls", "-l"}, {80, 80});
  EXPECT_FALSE(kvo::recognition::replaceRun(l, {1, 3}, again, nullptr));
  EXPECT_EQ(texts(l), (std::vector<std::string>{"使用", "1s", "-1", "命令"}));
  again.confidences = {80, 81};
  EXPECT_TRUE(kvo::recognition::replaceRun(l, {1, 3}, again, nullptr));
  EXPECT_EQ(texts(l), (std::vector<std::string>{"使用", "ls", "-l", "命令"}));
  EXPECT_EQ(l.confidences, (std::vector<float>{90, 80, 81, 90}));
  EXPECT_FALSE(kvo::recognition::replaceRun(l, {1, 3}, ReadLine{}, nullptr));
}

TEST_F(LatinRuns, ReadsARunAgainFromNoFurtherThanTheWordsBesideIt) {
  // Halfway to the neighbours when the blanks are wide.
  ReadLine l = line({"的", "type", "是"}, {90, 38, 90});
  auto region = kvo::recognition::runRegion(l, {1, 2}, 1000, 1000);
  ASSERT_TRUE(region.has_value());
  EXPECT_EQ(region->left, 45);
  EXPECT_EQ(region->right, 95);
  // An unsure word's box reaching over the next word's stops at it.
  l.boxes[1].right = 120;
  region = kvo::recognition::runRegion(l, {1, 2}, 1000, 1000);
  ASSERT_TRUE(region.has_value());
  EXPECT_EQ(region->right, 100);
  l.boxes[1].left = 20;
  region = kvo::recognition::runRegion(l, {1, 2}, 1000, 1000);
  ASSERT_TRUE(region.has_value());
  EXPECT_EQ(region->left, 40);
}

TEST_F(LatinRuns, ReachesTheLineEdgeWhenTheRunEndsOrStartsTheLine) {
  // The recogniser placed the last word's characters short of the line's end.
  ReadLine l = line({"更改为", "\"root\"。"}, {90, 45});
  l.boxes[1] = Box{60, 100, 75, 130};
  const auto end = kvo::recognition::runRegion(l, {1, 2}, 1000, 1000);
  ASSERT_TRUE(end.has_value());
  EXPECT_EQ(end->right, 100 + 7);
  l = line({"ls", "命令"}, {60, 90});
  l.box.left = 0;
  l.boxes[0] = Box{20, 100, 40, 130};
  const auto start = kvo::recognition::runRegion(l, {0, 1}, 1000, 1000);
  ASSERT_TRUE(start.has_value());
  EXPECT_EQ(start->left, 0);
}

TEST_F(LatinRuns, ReplacesTheWordsANewReadingIsClearlyBetterAtOneByOne) {
  // The run as a whole is no better by the margin; its last word is.
  ReadLine l = line({"chown", "-hR", "root", "ua"}, {92, 82, 91, 0});
  const ReadLine again = line({"chown", "-hR", "root", "/u"}, {93, 60, 89, 89});
  ASSERT_TRUE(kvo::recognition::replaceRun(l, {0, 4}, again, nullptr));
  EXPECT_EQ(texts(l), (std::vector<std::string>{"chown", "-hR", "root", "/u"}));
  EXPECT_EQ(l.confidences, (std::vector<float>{92, 82, 91, 89}));
}

TEST_F(LatinRuns, ReplacesOldWordsANewWordSpansTogether) {
  ReadLine l = line({"date", "-date=TZ=", "America”", "next"}, {90, 83, 26, 90});
  ReadLine again = line({"date", "--date=\"TZ=\"America\"", "next"}, {93, 83, 91});
  again.boxes[1] = Box{50, 100, 140, 130};
  again.boxes[2] = Box{150, 100, 190, 130};
  ASSERT_TRUE(kvo::recognition::replaceRun(l, {0, 4}, again, nullptr));
  EXPECT_EQ(texts(l), (std::vector<std::string>{"date", "--date=\"TZ=\"America\"", "next"}));
}

TEST_F(LatinRuns, RejectsAReadingOfOnlyAPieceOfTheRun) {
  // A region cut short holds the full stop alone, read with confidence.
  ReadLine l = line({"更改为", "\"root\"。"}, {90, 45});
  ReadLine again = line({"°"}, {82});
  again.boxes[0] = Box{60, 100, 75, 130};
  EXPECT_FALSE(kvo::recognition::replaceRun(l, {1, 2}, again, nullptr));
  EXPECT_EQ(texts(l), (std::vector<std::string>{"更改为", "\"root\"。"}));
}

TEST_F(LatinRuns, KeepsTheBlankBeforeTheRunAndRemeasuresTheOneAfter) {
  ReadLine l = line({"使用", "1s", "命令"}, {90, 10, 90});
  l.words[1].gapBefore = 17;
  ReadLine again;
  again.words = {{"ls", 0}};
  again.boxes = {Box{52, 100, 70, 130}};
  again.confidences = {90};
  ASSERT_TRUE(kvo::recognition::replaceRun(l, {1, 2}, again, nullptr));
  EXPECT_EQ(l.words[1].gapBefore, 17);
  // Without the page, the distance between the boxes.
  EXPECT_EQ(l.words[2].gapBefore, 100 - 70);
}

TEST_F(LatinRuns, JoinsTheLinesOfARegionIntoOne) {
  ReadLine a = line({"ls", "-l"}, {80, 70});
  ReadLine b = line({"file"}, {60});
  b.boxes[0] = Box{120, 100, 160, 130};
  const ReadLine joined = kvo::recognition::joinParts({a, b}, Box{0, 100, 200, 130}, nullptr);
  EXPECT_EQ(texts(joined), (std::vector<std::string>{"ls", "-l", "file"}));
  EXPECT_EQ(joined.confidences, (std::vector<float>{80, 70, 60}));
  EXPECT_EQ(joined.words[1].gapBefore, 10);
  EXPECT_EQ(joined.words[2].gapBefore, 120 - 90);
}

TEST_F(LatinRuns, AveragesWordConfidences) {
  EXPECT_DOUBLE_EQ(kvo::recognition::meanConfidence({10, 20, 60}, 0, 3), 30);
  EXPECT_DOUBLE_EQ(kvo::recognition::meanConfidence({10, 20, 60}, 1, 3), 40);
  EXPECT_DOUBLE_EQ(kvo::recognition::meanConfidence({10}, 1, 1), 0);
}

}  // namespace
