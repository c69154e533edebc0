// Image loading: kind sniffing, header reading, decoding and orientation on
// arbitrary bytes. Every step either answers or refuses; a decoded bitmap has
// the stored size, possibly swapped by the orientation.
#include <cstdlib>

#include "FuzzSupport.h"
#include "platform/StandardImageCodec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static kvo::StandardImageCodec codec;
  auto source = codec.open(kvo::fuzz::writeInput(data, size));
  if (!source) return 0;
  if (source->imageCount() <= 0) return 0;
  auto type = source->type();
  if (!type || *type == kvo::ImageType::other) return 0;
  auto stored = source->storedSize();
  if (!stored || stored->width <= 0 || stored->height <= 0) return 0;
  // Keep iterations quick: the helper's own limit is 25,000,000 pixels.
  if (stored->width * stored->height > 4'000'000) return 0;
  kvo::Bitmap bitmap = source->decodeUpright();
  if (!bitmap.valid()) return 0;
  const bool same = bitmap.width() == stored->width && bitmap.height() == stored->height;
  const bool swapped = bitmap.width() == stored->height && bitmap.height() == stored->width;
  if (!same && !swapped) std::abort();
  return 0;
}
