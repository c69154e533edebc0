#include "recognition/LineText.h"

#include <unicode/uchar.h>

#include <algorithm>
#include <cctype>
#include <map>

#include "recognition/Characters.h"

namespace kvo::recognition {

namespace {

// Blanks in line thicknesses, measured between the middles of two word
// boxes on 200-dpi pages (figures in docs/recognition-languages.md).
// Before a full-width , : ; ? ! (or after a full-width ) before full-width
// punctuation): an ASCII mark has at most 0.18, a full-width one 0.4-0.5.
constexpr double kWideMarkGap = 0.25;
// After a full-width , : ; ? !: an ASCII mark has at most 0.32, a full-width one 0.45-0.7.
constexpr double kWideMarkGapAfter = 0.42;
// Outside a full-width parenthesis 0.45-0.9, outside an ASCII one 0-0.25 (0.4 next to a space).
constexpr double kWideParenthesisGap = 0.45;
// The widest blank at a CJK boundary that is no space, between characters
// and next to punctuation (whose glyph carries blank space of its own).
constexpr double kSolidGap = 0.5;
constexpr double kSolidGapNextToPunctuation = 1.0;

// How the character at one edge of a word behaves at a word boundary.
enum class Edge { latin, cjk, neutral };

Edge edgeOf(const std::string& word, UChar32 c) {
  if (isCjk(c)) return Edge::cjk;
  // Punctuation Tesseract reports as a word of its own (often an ASCII
  // comma or colon read from a full-width one), or punctuation whose width
  // follows the script around it, belongs to its neighbour's script.
  if (isPunctuation(c) &&
      (allPunctuation(word) || u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH) == U_EA_AMBIGUOUS))
    return Edge::neutral;
  return Edge::latin;
}

// Full-width forms Tesseract reads as ASCII ones, put back where the page
// shows them. Marks the words that got one.
void widenPunctuation(std::vector<Word>& words, int lineThickness, std::vector<bool>& widened) {
  const double thickness = std::max(lineThickness, 1);
  const size_t n = words.size();
  widened.assign(n, false);
  auto lastOf = [&](size_t i) { return i < n && !words[i].text.empty() ? lastCodePoint(words[i].text) : 0; };
  auto firstOf = [&](size_t i) { return i < n && !words[i].text.empty() ? firstCodePoint(words[i].text) : 0; };
  auto gapAfter = [&](size_t i) { return i + 1 < n ? words[i + 1].gapBefore : 0; };

  // Parentheses: a full-width ( sits at the right of its cell and ) at the
  // left, so the blank outside the pair is wide. A pair is widened when
  // Han is next to it on either side and one of those blanks is wide; a )
  // whose ( is on an earlier line, when Han is before it.
  struct Open {
    size_t word;
    size_t bytes;  // of the ( (or 〈) that starts the word
    bool chinese;  // Chinese before or after it
    bool wide;     // the blank before it is
  };
  // Tesseract reads a full-width ( as 〈 now and then: one the line does not
  // close with 〉 counts as a (.
  static const std::string kAngle = utf8(0x3008);
  bool angleIsOpen = true;
  for (const Word& word : words) angleIsOpen = angleIsOpen && word.text.find(utf8(0x3009)) == std::string::npos;
  std::vector<Open> open;
  for (size_t i = 0; i < n; ++i) {
    std::string& text = words[i].text;
    if (text.empty()) continue;
    const size_t opener = text.front() == '(' ? 1 : angleIsOpen && text.rfind(kAngle, 0) == 0 ? kAngle.size() : 0;
    if (opener > 0) {
      const UChar32 inside = text.size() > opener ? firstCodePoint(text.substr(opener)) : firstOf(i + 1);
      open.push_back({i, opener, (i > 0 && isChinese(lastOf(i - 1))) || isHan(inside),
                      i > 0 && words[i].gapBefore >= kWideParenthesisGap * thickness});
    }
    // A ) ends the word, or is followed by ASCII punctuation only.
    size_t close = text.find_last_of(')');
    if (close == std::string::npos) continue;
    bool tail = true;
    for (size_t k = close + 1; k < text.size(); ++k) tail = tail && std::ispunct(static_cast<unsigned char>(text[k]));
    if (!tail) continue;
    const UChar32 before = close > 0 ? lastCodePoint(text.substr(0, close)) : lastOf(i - 1);
    const UChar32 after = close + 1 < text.size() ? static_cast<UChar32>(text[close + 1]) : firstOf(i + 1);
    // Before full-width punctuation, which sits at the left of its own cell
    // and never has a space before it, a narrower blank does.
    const double wideGap = isCjkPunctuation(firstOf(i + 1)) ? kWideMarkGap : kWideParenthesisGap;
    const bool wideAfter = close + 1 == text.size() && i + 1 < n && gapAfter(i) >= wideGap * thickness;
    const bool chineseAround = isHan(before) || isHan(after);
    bool widen = false;
    if (!open.empty()) {
      const Open o = open.back();
      open.pop_back();
      widen = (o.chinese || chineseAround) && (o.wide || wideAfter);
      if (widen) {
        words[o.word].text.replace(0, o.bytes, utf8(0xFF08));
        widened[o.word] = true;
        if (o.word == i) close = close + utf8(0xFF08).size() - o.bytes;
      }
    } else {
      widen = isHan(before) && wideAfter;
    }
    if (widen) {
      text.replace(close, 1, utf8(0xFF09));
      widened[i] = true;
    }
  }
  // A ( left open on the line.
  for (const Open& o : open)
    if (o.chinese && o.wide) {
      words[o.word].text.replace(0, o.bytes, utf8(0xFF08));
      widened[o.word] = true;
    }
  // , : ; ? ! standing alone after Chinese, with the blank a full-width
  // mark's cell leaves before or after its ink (which of the two Tesseract's
  // word box takes in varies).
  for (size_t i = 1; i < n; ++i) {
    static const std::map<std::string, UChar32> kWide = {
        {",", 0xFF0C}, {":", 0xFF1A}, {";", 0xFF1B}, {"?", 0xFF1F}, {"!", 0xFF01}};
    const auto wide = kWide.find(words[i].text);
    if (wide == kWide.end() || !isChinese(lastOf(i - 1))) continue;
    if (words[i].gapBefore >= kWideMarkGap * thickness || gapAfter(i) >= kWideMarkGapAfter * thickness) {
      words[i].text = utf8(wide->second);
      widened[i] = true;
    }
  }
}

}  // namespace

bool spacedHanBlank(int gap, int lineThickness) { return gap > kSolidGap * std::max(lineThickness, 1); }

std::string joinLineWords(const std::vector<Word>& lineWords, int lineThickness) {
  std::vector<Word> words = lineWords;
  std::vector<bool> widened;
  widenPunctuation(words, lineThickness, widened);
  std::string text;
  const Word* previous = nullptr;
  bool previousWidened = false;
  for (size_t i = 0; i < words.size(); ++i) {
    const Word& word = words[i];
    if (word.text.empty()) continue;
    if (previous != nullptr) {
      const UChar32 before = lastCodePoint(previous->text);
      const UChar32 after = firstCodePoint(word.text);
      const Edge left = edgeOf(previous->text, before), right = edgeOf(word.text, after);
      const bool cjkBoundary = (left == Edge::cjk && right != Edge::latin) ||
                               (right == Edge::cjk && left != Edge::latin);
      bool space = true;
      if (previousWidened || widened[i]) {
        // A full-width mark carries its own blank.
        space = false;
      } else if (cjkBoundary) {
        space = isPunctuation(before) || isPunctuation(after)
                    ? word.gapBefore > kSolidGapNextToPunctuation * std::max(lineThickness, 1)
                    : spacedHanBlank(word.gapBefore, lineThickness);
      }
      if (space) text += ' ';
    }
    text += word.text;
    previous = &word;
    previousWidened = widened[i];
  }
  return text;
}

}  // namespace kvo::recognition
