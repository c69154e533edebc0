#include "VisionOcrCore/Text.h"

#include <gtest/gtest.h>

#include <string>

namespace kvotest {
namespace {

using kvo::graphemePrefix;
using kvo::normalizeText;
using kvo::trimWhitespaceAndNewlines;

const std::string kFamily = "\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7";  // 👩‍👩‍👧
const std::string kCombined = "e\xCC\x81\xCC\xA3";  // e + acute + dot below: one character
const std::string kFlag = "\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7";  // regional indicators F R
const std::string kNbsp = "\xC2\xA0";

std::string repeat(const std::string& s, size_t n) {
  std::string out;
  for (size_t i = 0; i < n; ++i) out += s;
  return out;
}

class Text : public ::testing::Test {};

// ---- normalisation of a page's own text ----------------------------------------------

TEST_F(Text, EmptyStaysEmpty) { EXPECT_EQ(normalizeText(""), ""); }

TEST_F(Text, InnerRunsOfSpacesAndTabsBecomeOneSpaceAndEndsAreTrimmed) {
  EXPECT_EQ(normalizeText("  a \t b  "), "a b");
}

TEST_F(Text, CarriageReturnLineFeedAndLoneCarriageReturnBecomeLineFeed) {
  EXPECT_EQ(normalizeText("a\r\nb\rc"), "a\nb\nc");
}

TEST_F(Text, BlankLinesAreKeptNotMerged) { EXPECT_EQ(normalizeText("a\n\n\nb"), "a\n\n\nb"); }

TEST_F(Text, WhitespaceOnlyLineBecomesEmptyButStays) { EXPECT_EQ(normalizeText("a\n   \nb"), "a\n\nb"); }

TEST_F(Text, LeadingAndTrailingBlankLinesDisappear) { EXPECT_EQ(normalizeText("\n\n a \n\n"), "a"); }

TEST_F(Text, NoBreakSpaceBecomesASpace) { EXPECT_EQ(normalizeText("a" + kNbsp + "b"), "a b"); }

TEST_F(Text, OnlySpacesTabsAndLineBreaksGiveEmpty) { EXPECT_EQ(normalizeText(" \t\n\r\n \r\t "), ""); }

TEST_F(Text, CarriageReturnPairsBecomeBlankLinesThatStay) { EXPECT_EQ(normalizeText("a\r\n\r\nb"), "a\n\nb"); }

TEST_F(Text, OtherUnicodeSpacesInsideALineCollapse) {
  // ideographic space, em space, vertical tab, form feed, next line
  EXPECT_EQ(normalizeText("a\xE3\x80\x80\xE2\x80\x83" "b\vc\fd\xC2\x85" "e"), "a b c d e");
}

TEST_F(Text, LineAndParagraphSeparatorsDoNotSplitLines) {
  EXPECT_EQ(normalizeText("a\xE2\x80\xA8" "b\xE2\x80\xA9" "c"), "a b c");
}

TEST_F(Text, InnerTextOfEachLineIsKeptInOrder) {
  EXPECT_EQ(normalizeText("The  quick\tbrown\n\nfox   jumps\r\n  over  "), "The quick brown\n\nfox jumps\nover");
}

TEST_F(Text, CombiningMarksAndEmojiAreKeptWhole) {
  EXPECT_EQ(normalizeText(" " + kCombined + "  " + kFamily + " "), kCombined + " " + kFamily);
}

TEST_F(Text, WordStartingWithACombiningMarkKeepsItAfterTheJoiningSpace) {
  // The tab is a character of its own, so the acute accent (U+0301) starts the word that follows.
  EXPECT_EQ(normalizeText("a\t\xCC\x81" "b"), "a \xCC\x81" "b");
}

TEST_F(Text, SpaceWithACombiningMarkIsOneWhiteSpaceCharacter) {
  EXPECT_EQ(normalizeText("a \xCC\x81" "b"), "a b");
}

// ---- trimming of recognised text ------------------------------------------------------

TEST_F(Text, TrimRemovesWhitespaceAndNewlinesAtBothEndsOnly) {
  EXPECT_EQ(trimWhitespaceAndNewlines(" a b "), "a b");
  EXPECT_EQ(trimWhitespaceAndNewlines("  \n "), "");
  EXPECT_EQ(trimWhitespaceAndNewlines("\t\r\n\v\fx\xC2\x85"), "x");
}

TEST_F(Text, TrimRemovesUnicodeSpaceSeparators) {
  EXPECT_EQ(trimWhitespaceAndNewlines("\xE3\x80\x80" + kNbsp + "abc\xE2\x80\xA8\xE2\x80\xA9"), "abc");
}

TEST_F(Text, TrimKeepsFormatCharactersThatAreNotSpaces) {
  // U+200B ZERO WIDTH SPACE is a format character, not a space separator.
  EXPECT_EQ(trimWhitespaceAndNewlines("\xE2\x80\x8B" "a"), "\xE2\x80\x8B" "a");
}

// ---- the preview -------------------------------------------------------------------------

TEST_F(Text, TwoThousandCharactersAreKeptWhole) {
  const auto prefix = graphemePrefix(std::string(2000, 'a'), 2000);
  EXPECT_EQ(prefix.text, std::string(2000, 'a'));
  EXPECT_FALSE(prefix.truncated);
}

TEST_F(Text, TwoThousandAndOneCharactersAreCut) {
  const auto prefix = graphemePrefix(std::string(2000, 'a') + "b", 2000);
  EXPECT_EQ(prefix.text, std::string(2000, 'a'));
  EXPECT_TRUE(prefix.truncated);
}

TEST_F(Text, EmojiZwjSequenceCountsAsOneCharacter) {
  const auto whole = graphemePrefix(std::string(1999, 'a') + kFamily, 2000);
  EXPECT_FALSE(whole.truncated);
  EXPECT_EQ(whole.text, std::string(1999, 'a') + kFamily);
  const auto cut = graphemePrefix(std::string(1999, 'a') + kFamily + "z", 2000);
  EXPECT_TRUE(cut.truncated);
  EXPECT_EQ(cut.text, std::string(1999, 'a') + kFamily);
}

TEST_F(Text, LetterWithCombiningMarksCountsAsOneCharacter) {
  EXPECT_FALSE(graphemePrefix(repeat(kCombined, 2000), 2000).truncated);
  const auto cut = graphemePrefix(repeat(kCombined, 2001), 2000);
  EXPECT_TRUE(cut.truncated);
  EXPECT_EQ(cut.text, repeat(kCombined, 2000));
}

TEST_F(Text, FlagAndCarriageReturnLineFeedCountAsOneCharacterEach) {
  const auto prefix = graphemePrefix(kFlag + "\r\n" + kFlag, 2);
  EXPECT_TRUE(prefix.truncated);
  EXPECT_EQ(prefix.text, kFlag + "\r\n");
}

TEST_F(Text, CutNeverSplitsAMultiByteCharacter) {
  const auto prefix = graphemePrefix("\xE6\xBC\xA2\xE5\xAD\x97\xE5\xAD\x97", 2);  // 漢字字
  EXPECT_EQ(prefix.text, "\xE6\xBC\xA2\xE5\xAD\x97");
  EXPECT_TRUE(prefix.truncated);
}

TEST_F(Text, EmptyTextHasEmptyPreview) {
  const auto prefix = graphemePrefix("", 2000);
  EXPECT_EQ(prefix.text, "");
  EXPECT_FALSE(prefix.truncated);
}

// ---- valid text ----------------------------------------------------------------------------

TEST_F(Text, IllFormedBytesBecomeReplacementCharacters) {
  EXPECT_EQ(kvo::makeValidUtf8("a\xFF" "b"), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(kvo::makeValidUtf8("ok " + kFamily), "ok " + kFamily);
}

}  // namespace
}  // namespace kvotest
