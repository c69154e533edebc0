#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kvo {

// Text helpers over UTF-8. "Characters" are extended grapheme clusters and
// whitespace is the Unicode notion of it, both as ICU defines them.

// Removes from both ends every code point of general category Z (space,
// line and paragraph separators) and U+0009–U+000D and U+0085.
std::string trimWhitespaceAndNewlines(std::string_view text);

// Cleans a PDF page's own text: CR LF and lone CR become LF; within each line
// runs of characters whose first code point has the White_Space property
// become one space and vanish at the line's ends; lines, empty ones
// included, are kept in order; the whole is trimmed as above.
//
// Not idempotent in one corner, by design of the character model: a word that
// begins with a mark which extends the previous character (a combining accent
// after a tab, say) is kept and joined by one space, and that space and the
// mark then form a single character led by white space, which a second pass
// removes. The second pass's result is a fixed point.
std::string normalizeText(std::string_view text);

struct GraphemePrefix {
  std::string text;   // at most `limit` characters
  bool truncated;     // the whole text had more than `limit` characters
};

// The first `limit` characters of `text`.
GraphemePrefix graphemePrefix(std::string_view text, size_t limit);

// `text` with every ill-formed UTF-8 sequence replaced by U+FFFD, so that
// whatever a library hands over is valid text before it enters a record.
std::string makeValidUtf8(std::string_view text);

}  // namespace kvo
