#include "VisionOcrCore/Text.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <memory>
#include <vector>

namespace kvo {

namespace {

bool isWhitespaceOrNewline(UChar32 c) {
  if ((c >= 0x09 && c <= 0x0D) || c == 0x85) return true;
  switch (u_charType(c)) {
    case U_SPACE_SEPARATOR:
    case U_LINE_SEPARATOR:
    case U_PARAGRAPH_SEPARATOR:
      return true;
    default:
      return false;
  }
}

// Decodes the code point starting at byte `i`; advances `i` past it.
UChar32 nextCodePoint(std::string_view text, int32_t& i) {
  UChar32 c;
  U8_NEXT(reinterpret_cast<const uint8_t*>(text.data()), i, static_cast<int32_t>(text.size()), c);
  return c;
}

// Byte offsets of every grapheme cluster boundary of `text`, 0 and size()
// included. ICU works on the UTF-8 directly, so offsets are byte offsets.
class GraphemeBoundaries {
 public:
  explicit GraphemeBoundaries(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    text_ = utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status);
    iterator_.reset(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !iterator_) throw std::runtime_error("ICU character break iterator unavailable");
    iterator_->setText(text_, status);
    if (U_FAILURE(status)) throw std::runtime_error("ICU character break iterator unavailable");
  }
  ~GraphemeBoundaries() { utext_close(text_); }
  GraphemeBoundaries(const GraphemeBoundaries&) = delete;
  GraphemeBoundaries& operator=(const GraphemeBoundaries&) = delete;

  int32_t first() { return iterator_->first(); }
  // The next boundary, or icu::BreakIterator::DONE.
  int32_t next() { return iterator_->next(); }

 private:
  UText* text_ = nullptr;
  std::unique_ptr<icu::BreakIterator> iterator_;
};

// One line of step 3: words split at whitespace characters, joined by one space.
std::string collapseLine(std::string_view line) {
  std::string result;
  std::string word;
  GraphemeBoundaries boundaries(line);
  int32_t start = boundaries.first();
  for (int32_t end = boundaries.next(); end != icu::BreakIterator::DONE; start = end, end = boundaries.next()) {
    int32_t i = start;
    UChar32 first = nextCodePoint(line, i);
    if (first >= 0 && u_isUWhiteSpace(first)) {
      if (!word.empty()) {
        if (!result.empty()) result += ' ';
        result += word;
        word.clear();
      }
    } else {
      word.append(line.substr(static_cast<size_t>(start), static_cast<size_t>(end - start)));
    }
  }
  if (!word.empty()) {
    if (!result.empty()) result += ' ';
    result += word;
  }
  return result;
}

std::string replaceAll(std::string_view text, std::string_view from, std::string_view to) {
  std::string out;
  size_t pos = 0;
  while (true) {
    size_t hit = text.find(from, pos);
    if (hit == std::string_view::npos) break;
    out.append(text.substr(pos, hit - pos));
    out.append(to);
    pos = hit + from.size();
  }
  out.append(text.substr(pos));
  return out;
}

}  // namespace

std::string trimWhitespaceAndNewlines(std::string_view text) {
  const int32_t length = static_cast<int32_t>(text.size());
  int32_t begin = 0;
  while (begin < length) {
    int32_t i = begin;
    UChar32 c = nextCodePoint(text, i);
    if (c < 0 || !isWhitespaceOrNewline(c)) break;
    begin = i;
  }
  int32_t end = length;
  while (end > begin) {
    int32_t i = end;
    UChar32 c;
    U8_PREV(reinterpret_cast<const uint8_t*>(text.data()), begin, i, c);
    if (c < 0 || !isWhitespaceOrNewline(c)) break;
    end = i;
  }
  return std::string(text.substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin)));
}

std::string normalizeText(std::string_view text) {
  std::string unified = replaceAll(replaceAll(text, "\r\n", "\n"), "\r", "\n");
  std::string joined;
  size_t start = 0;
  while (true) {
    size_t lf = unified.find('\n', start);
    std::string_view line = std::string_view(unified).substr(start, lf == std::string::npos ? std::string::npos : lf - start);
    joined += collapseLine(line);
    if (lf == std::string::npos) break;
    joined += '\n';
    start = lf + 1;
  }
  return trimWhitespaceAndNewlines(joined);
}

GraphemePrefix graphemePrefix(std::string_view text, size_t limit) {
  GraphemeBoundaries boundaries(text);
  boundaries.first();
  size_t count = 0;
  int32_t cut = 0;
  for (int32_t end = boundaries.next(); end != icu::BreakIterator::DONE; end = boundaries.next()) {
    if (count == limit) return GraphemePrefix{std::string(text.substr(0, static_cast<size_t>(cut))), true};
    ++count;
    cut = end;
  }
  return GraphemePrefix{std::string(text), false};
}

std::string makeValidUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  const int32_t length = static_cast<int32_t>(text.size());
  int32_t i = 0;
  while (i < length) {
    int32_t start = i;
    UChar32 c = nextCodePoint(text, i);
    if (c < 0) {
      out += "\xEF\xBF\xBD";
    } else {
      out.append(text.substr(static_cast<size_t>(start), static_cast<size_t>(i - start)));
    }
  }
  return out;
}

}  // namespace kvo
