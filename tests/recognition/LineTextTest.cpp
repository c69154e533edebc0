#include "recognition/LineText.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvo::recognition::Word;

class LineText : public ::testing::Test {
 protected:
  // The text of a line 40 pixels high made of `words`.
  static std::string join(const std::vector<Word>& words) { return kvo::recognition::joinLineWords(words, 40); }
};

TEST_F(LineText, JoinsLatinWordsWithSpaces) {
  EXPECT_EQ(join({{"Hello", 0}, {"World", 2}, {"again.", 1}}), "Hello World again.");
}

TEST_F(LineText, JoinsChineseCharactersSetSolid) {
  const std::vector<Word> words = {{"我们", 0}, {"今", 3}, {"天", 19}, {"学习", 2}, {"。", 30}, {"ひらがな", 5},
                                   {"한국어", 4}, {"，", 8}, {"ㄅ", 6}, {"２", 1}};
  EXPECT_EQ(join(words), "我们今天学习。ひらがな한국어，ㄅ２");
}

TEST_F(LineText, KeepsASpaceAtAWideGapBetweenChineseCharacters) {
  EXPECT_EQ(join({{"今天", 0}, {"很好", 21}}), "今天 很好");
  // Punctuation carries blank space of its own: only a wider gap counts.
  EXPECT_EQ(join({{"好。", 0}, {"明天", 39}}), "好。明天");
  EXPECT_EQ(join({{"好。", 0}, {"明天", 41}}), "好。 明天");
}

TEST_F(LineText, AttachesStandAlonePunctuationToChinese) {
  EXPECT_EQ(join({{"木門", 0}, {",", 4}, {"讓", 9}}), "木門,讓");
  EXPECT_EQ(join({{"说：", 0}, {"“你好”", 5}}), "说：“你好”");
  EXPECT_EQ(join({{"等等", 0}, {"……", 5}}), "等等……");
}

TEST_F(LineText, KeepsSpacesBetweenLatinAndChinese) {
  EXPECT_EQ(join({{"Hello", 0}, {"世界", 2}}), "Hello 世界");
  EXPECT_EQ(join({{"世界", 0}, {"OCR", 2}}), "世界 OCR");
  EXPECT_EQ(join({{"Hello,", 0}, {"世界", 2}}), "Hello, 世界");
  EXPECT_EQ(join({{"He", 0}, {"said", 2}, {"“Hi”", 2}}), "He said “Hi”");
}

// Lines 40 pixels thick: a fullwidth mark's blank is about 16-20 pixels,
// an ASCII one's 0-6.
TEST_F(LineText, WidensPunctuationStandingAfterHanWithAFullwidthBlank) {
  EXPECT_EQ(join({{"木門", 0}, {",", 17}, {"讓", 15}}), "木門，讓");
  EXPECT_EQ(join({{"注意", 0}, {":", 16}, {"参数", 18}, {";", 17}, {"是吗", 2}, {"?", 18}, {"好", 16}, {"!", 17}}),
            "注意：参数；是吗？好！");
  // Or with the blank after it.
  EXPECT_EQ(join({{"大小", 0}, {";", 6}, {"例如", 22}, {":", 9}, {"\"--size\"", 25}}), "大小；例如：\"--size\"");
  // A ) widened before it counts as Chinese.
  EXPECT_EQ(join({{"时间", 0}, {"(ctime)", 24}, {";", 30}, {"与", 28}}), "时间（ctime）；与");
  // A space Tesseract would keep next to it goes.
  EXPECT_EQ(join({{"文件", 0}, {",", 16}, {"OCR", 30}}), "文件，OCR");
  // After fullwidth punctuation too.
  EXPECT_EQ(join({{"（默认）", 0}, {",", 16}, {"下", 15}}), "（默认），下");
}

TEST_F(LineText, KeepsAsciiPunctuationThatFollowsHanClosely) {
  EXPECT_EQ(join({{"木門", 0}, {",", 4}, {"讓", 9}}), "木門,讓");
  EXPECT_EQ(join({{"时间", 0}, {":", 3}, {"12:30", 12}}), "时间: 12:30");
  EXPECT_EQ(join({{"命令", 0}, {",", 4}, {"只", 13}, {",", 5}, {"或", 12}}), "命令,只,或");
  // Only marks standing alone: one inside a word was set solid.
  EXPECT_EQ(join({{"时间:", 0}, {"12", 20}}), "时间: 12");
}

TEST_F(LineText, WidensParenthesesNextToHanWithAFullwidthBlank) {
  EXPECT_EQ(join({{"选项", 0}, {"(默认)", 20}, {"生效", 30}}), "选项（默认）生效");
  EXPECT_EQ(join({{"选项", 0}, {"(", 24}, {"默认", 3}, {")", 2}, {"生效", 30}}), "选项（默认）生效");
  // The blank after the ) alone is enough, Han inside is.
  EXPECT_EQ(join({{"--color", 0}, {"(默认)", 8}, {"时", 30}}), "--color（默认）时");
  EXPECT_EQ(join({{"文件", 0}, {"(file)", 20}, {"和", 4}}), "文件（file）和");
  EXPECT_EQ(join({{"命令", 0}, {"(ls),", 22}, {"和", 4}}), "命令（ls）,和");
  // Opened on an earlier line; before fullwidth punctuation a narrower
  // blank will do.
  EXPECT_EQ(join({{"的结果)", 0}, {"然后", 30}}), "的结果）然后");
  EXPECT_EQ(join({{"的", 0}, {")", 13}, {"，", 13}, {"你", 13}}), "的），你");
  EXPECT_EQ(join({{"的", 0}, {")", 13}, {"然后", 13}}), "的)然后");
  // A fullwidth ( read as 〈, unless the line closes it with 〉.
  EXPECT_EQ(join({{"启动", 0}, {"〈比如说", 23}}), "启动（比如说");
  EXPECT_EQ(join({{"表", 0}, {"〈即启动参数", 23}, {"）。", 3}}), "表（即启动参数）。");
  EXPECT_EQ(join({{"见", 0}, {"〈篇名〉", 23}}), "见〈篇名〉");
  // Set close, they are ASCII.
  EXPECT_EQ(join({{"选项", 0}, {"(默认)", 6}, {"生效", 5}}), "选项 (默认) 生效");
  EXPECT_EQ(join({{"的结果)", 0}, {"然后", 4}}), "的结果) 然后");
}

TEST_F(LineText, LeavesPunctuationAmongLatinAlone) {
  EXPECT_EQ(join({{"1,234.56", 0}}), "1,234.56");
  EXPECT_EQ(join({{"(see", 0}, {"man", 25}, {"page)", 25}, {"and", 30}}), "(see man page) and");
  EXPECT_EQ(join({{"a", 0}, {":", 20}, {"b", 20}}), "a : b");
  EXPECT_EQ(join({{"a:", 0}, {"b", 20}}), "a: b");
  EXPECT_EQ(join({{"Hello", 0}, {",", 20}, {"world", 20}, {"!", 20}}), "Hello , world !");
  EXPECT_EQ(join({{"参见", 0}, {"ls(1),", 30}, {"tar(1)", 30}}), "参见 ls(1), tar(1)");
  EXPECT_EQ(join({{"1)", 0}, {"first", 30}}), "1) first");
  EXPECT_EQ(join({{"한국어", 0}, {",", 20}, {"좋아요", 20}}), "한국어,좋아요");
  EXPECT_EQ(join({{"（例如", 0}, {"a", 20}, {",", 20}, {"b", 20}, {"）", 2}}), "（例如 a , b ）");
}

TEST_F(LineText, JoinsNothingToAnEmptyLine) {
  EXPECT_EQ(join({}), "");
  EXPECT_EQ(join({{"", 0}, {"", 5}}), "");
}

TEST_F(LineText, MeasuresBlanksAgainstTheLineThickness) {
  // Half the thickness is the widest blank between characters set solid.
  EXPECT_EQ(kvo::recognition::joinLineWords({{"今天", 0}, {"很好", 10}}, 20), "今天很好");
  EXPECT_EQ(kvo::recognition::joinLineWords({{"今天", 0}, {"很好", 11}}, 20), "今天 很好");
  // A thickness below one pixel counts as one.
  EXPECT_EQ(kvo::recognition::joinLineWords({{"今天", 0}, {"很好", 1}}, 0), "今天 很好");
}

}  // namespace
