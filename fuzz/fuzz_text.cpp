// Text normalisation and the grapheme preview on arbitrary bytes: always
// valid UTF-8 out, normalisation stable after at most two passes (and after
// one unless a space met a mark that extends it), prefixes that are prefixes.
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <cstdlib>
#include <string>

#include "VisionOcrCore/Text.h"

namespace {

// True when a space in `text` is followed by a code point that joins the
// space's character (a combining mark, a spacing mark, a zero-width joiner):
// the one case in which normalising normalised text changes it again.
bool hasSpaceJoinedByAMark(const std::string& text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const int32_t length = static_cast<int32_t>(text.size());
  for (int32_t i = 0; i < length;) {
    const bool space = bytes[i] == ' ';
    UChar32 c;
    U8_NEXT(bytes, i, length, c);
    if (!space || i >= length) continue;
    int32_t j = i;
    U8_NEXT(bytes, j, length, c);
    switch (u_getIntPropertyValue(c, UCHAR_GRAPHEME_CLUSTER_BREAK)) {
      case U_GCB_EXTEND:
      case U_GCB_ZWJ:
      case U_GCB_SPACING_MARK:
        return true;
      default:
        break;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string raw(reinterpret_cast<const char*>(data), size);
  const std::string valid = kvo::makeValidUtf8(raw);
  if (kvo::makeValidUtf8(valid) != valid) std::abort();
  const std::string once = kvo::normalizeText(valid);
  if (kvo::makeValidUtf8(once) != once) std::abort();
  const std::string twice = kvo::normalizeText(once);
  if (twice != once && !hasSpaceJoinedByAMark(once)) std::abort();
  if (kvo::normalizeText(twice) != twice) std::abort();
  for (size_t limit : {0u, 1u, 7u, 2000u}) {
    auto prefix = kvo::graphemePrefix(valid, limit);
    if (valid.compare(0, prefix.text.size(), prefix.text) != 0) std::abort();
    if (prefix.truncated == (prefix.text.size() == valid.size())) std::abort();
  }
  return 0;
}
