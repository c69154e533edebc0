#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "interfaces/ImageCodec.h"
#include "platform/PosixIo.h"

namespace kvo::image {

// Bytes for width × height pixels of `channels` bytes, or 0 when that does
// not fit in memory addressing at all.
size_t pixelBytes(uint64_t width, uint64_t height, unsigned channels);

// Turns a malloc'd buffer filled by one of the C-style decoders into a Bitmap.
Bitmap adoptPixels(uint8_t* pixels, uint32_t width, uint32_t height, unsigned channels);

// A source over the whole file held in memory, with the header read at most
// once.
class EncodedSource : public ImageSource {
 public:
  explicit EncodedSource(posix::FileBytes file) : file_(std::move(file)) {}

  std::optional<StoredSize> storedSize() override {
    if (!headerRead_) {
      header_ = readHeader();
      headerRead_ = true;
    }
    return header_;
  }

 protected:
  virtual std::optional<StoredSize> readHeader() = 0;
  const uint8_t* data() const { return file_.bytes.get(); }
  size_t size() const { return file_.size; }

 private:
  posix::FileBytes file_;
  bool headerRead_ = false;
  std::optional<StoredSize> header_;
};

}  // namespace kvo::image
