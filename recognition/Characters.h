#pragma once

#include <unicode/umachine.h>

#include <cstddef>
#include <string>

namespace kvo::recognition {

// The character classes the recognition rules are stated in (ICU's data).

// A Han ideograph.
bool isHan(UChar32 c);
// Written without spaces between characters in CJK text: Han, kana, Hangul,
// Bopomofo, other ideographs, and wide or fullwidth forms.
bool isCjk(UChar32 c);
bool isPunctuation(UChar32 c);
// Fullwidth CJK punctuation, which only stands in CJK text.
bool isCjkPunctuation(UChar32 c);
// Han, or fullwidth CJK punctuation.
bool isChinese(UChar32 c);
// Every character of `s` is punctuation (false for malformed UTF-8).
bool allPunctuation(const std::string& s);

// The code points of UTF-8 text (a malformed sequence counts as one).
size_t codePointCount(const std::string& s);

// The first and last code points of UTF-8 text (0 for empty text, negative
// for a malformed sequence).
UChar32 firstCodePoint(const std::string& s);
UChar32 lastCodePoint(const std::string& s);
std::string utf8(UChar32 c);

}  // namespace kvo::recognition
