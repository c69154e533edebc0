// Text normalisation and the grapheme preview on arbitrary bytes: always
// valid UTF-8 out, idempotent normalisation, prefixes that are prefixes.
#include <cstdlib>
#include <string>

#include "VisionOcrCore/Text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string raw(reinterpret_cast<const char*>(data), size);
  const std::string valid = kvo::makeValidUtf8(raw);
  if (kvo::makeValidUtf8(valid) != valid) std::abort();
  const std::string normalized = kvo::normalizeText(valid);
  if (kvo::normalizeText(normalized) != normalized) std::abort();
  for (size_t limit : {0u, 1u, 7u, 2000u}) {
    auto prefix = kvo::graphemePrefix(valid, limit);
    if (valid.compare(0, prefix.text.size(), prefix.text) != 0) std::abort();
    if (prefix.truncated == (prefix.text.size() == valid.size())) std::abort();
  }
  return 0;
}
