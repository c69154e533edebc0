// Decoding of the result records: arbitrary bytes either decode or throw
// JsonDecodingError, and whatever decodes encodes back to bytes that decode
// to an equal record.
#include <cstdlib>
#include <string_view>

#include "VisionOcrCore/Json.h"
#include "VisionOcrCore/Text.h"

namespace {

template <typename Record>
void roundTrip(std::string_view bytes) {
  Record record;
  try {
    record = kvo::decodeJson<Record>(bytes);
  } catch (const kvo::JsonDecodingError&) {
    return;
  }
  std::string encoded;
  try {
    encoded = kvo::encodeJson(record);
  } catch (const kvo::JsonEncodingError&) {
    return;  // numbers beyond double range read back as infinity
  }
  // Strings that were not valid UTF-8 are repaired on encoding, so only
  // valid input has to come back identical.
  if (kvo::makeValidUtf8(bytes) != bytes) return;
  if (!(kvo::decodeJson<Record>(encoded) == record)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  roundTrip<kvo::OcrDocument>(bytes);
  roundTrip<kvo::OcrPage>(bytes);
  roundTrip<kvo::SuccessPayload>(bytes);
  roundTrip<kvo::FailurePayload>(bytes);
  return 0;
}
