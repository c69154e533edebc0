#include "recognition/Characters.h"

#include <unicode/uchar.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

namespace kvo::recognition {

// Nothing below the CJK radicals is Han, CJK or wide.
constexpr UChar32 kFirstCjk = 0x2E80;
// CJK symbols and punctuation start here.
constexpr UChar32 kFirstCjkPunctuation = 0x3000;

bool isHan(UChar32 c) {
  UErrorCode status = U_ZERO_ERROR;
  return c >= kFirstCjk && uscript_getScript(c, &status) == USCRIPT_HAN;
}

bool isCjk(UChar32 c) {
  if (c < kFirstCjk) return false;
  UErrorCode status = U_ZERO_ERROR;
  switch (uscript_getScript(c, &status)) {
    case USCRIPT_HAN:
    case USCRIPT_HIRAGANA:
    case USCRIPT_KATAKANA:
    case USCRIPT_HANGUL:
    case USCRIPT_BOPOMOFO:
      return true;
    default:
      break;
  }
  if (u_hasBinaryProperty(c, UCHAR_IDEOGRAPHIC)) return true;
  const auto width = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH;
}

bool isPunctuation(UChar32 c) { return u_ispunct(c) != 0; }

bool isCjkPunctuation(UChar32 c) { return c >= kFirstCjkPunctuation && isCjk(c) && isPunctuation(c); }

bool isChinese(UChar32 c) { return isHan(c) || isCjkPunctuation(c); }

bool allPunctuation(const std::string& s) {
  int32_t i = 0;
  const auto length = static_cast<int32_t>(s.size());
  while (i < length) {
    UChar32 c = 0;
    U8_NEXT(s.data(), i, length, c);
    if (c < 0 || !isPunctuation(c)) return false;
  }
  return true;
}

size_t codePointCount(const std::string& s) {
  size_t count = 0;
  const auto length = static_cast<int32_t>(s.size());
  for (int32_t i = 0; i < length; ++count) U8_FWD_1(s.data(), i, length);
  return count;
}

UChar32 firstCodePoint(const std::string& s) {
  int32_t i = 0;
  UChar32 c = 0;
  U8_NEXT(s.data(), i, static_cast<int32_t>(s.size()), c);
  return c;
}

UChar32 lastCodePoint(const std::string& s) {
  int32_t i = static_cast<int32_t>(s.size());
  UChar32 c = 0;
  U8_PREV(s.data(), 0, i, c);
  return c;
}

std::string utf8(UChar32 c) {
  char buffer[U8_MAX_LENGTH];
  int32_t n = 0;
  U8_APPEND_UNSAFE(buffer, n, c);
  return std::string(buffer, static_cast<size_t>(n));
}

}  // namespace kvo::recognition
