#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace kvo {

// Pixel layouts a Bitmap can hold. Every layout is 8 bits per channel.
//   rgb8:  R, G, B (opaque).
//   rgba8: R, G, B, A with straight (not premultiplied) alpha.
enum class PixelFormat { rgb8, rgba8 };

inline int bytesPerPixel(PixelFormat format) { return format == PixelFormat::rgb8 ? 3 : 4; }

// The one pixel container passed between components: a row-major image with
// the origin at the top-left. Move-only; the pixel buffer is owned and freed
// with the release function it was adopted with (so a buffer allocated by a
// library can be taken over without a copy).
class Bitmap {
 public:
  Bitmap() = default;

  // Allocates an uninitialised width × height bitmap with no row padding.
  // Returns an empty Bitmap (valid() false) when the memory cannot be had.
  static Bitmap allocate(int64_t width, int64_t height, PixelFormat format) {
    Bitmap b;
    if (width <= 0 || height <= 0) return b;
    const auto stride = static_cast<size_t>(width) * static_cast<size_t>(bytesPerPixel(format));
    auto* data = static_cast<uint8_t*>(std::malloc(stride * static_cast<size_t>(height)));
    if (data == nullptr) return b;
    b.width_ = width;
    b.height_ = height;
    b.stride_ = stride;
    b.format_ = format;
    b.data_ = Buffer(data, &std::free);
    return b;
  }

  // Takes ownership of `data`, which must hold height rows of `stride` bytes
  // and is released by calling `release(data)`.
  static Bitmap adopt(int64_t width, int64_t height, size_t stride, PixelFormat format,
                      uint8_t* data, void (*release)(void*)) {
    Bitmap b;
    b.width_ = width;
    b.height_ = height;
    b.stride_ = stride;
    b.format_ = format;
    b.data_ = Buffer(data, release);
    return b;
  }

  bool valid() const { return data_ != nullptr; }
  int64_t width() const { return width_; }
  int64_t height() const { return height_; }
  size_t stride() const { return stride_; }
  PixelFormat format() const { return format_; }
  uint8_t* data() { return data_.get(); }
  const uint8_t* data() const { return data_.get(); }
  // Resolution of the pixels when it is known (a rendered PDF page), 0 when
  // it is not (a photograph or scan without trustworthy metadata).
  double pixelsPerInch() const { return pixelsPerInch_; }
  void setPixelsPerInch(double ppi) { pixelsPerInch_ = ppi; }
  uint8_t* row(int64_t y) { return data_.get() + static_cast<size_t>(y) * stride_; }
  const uint8_t* row(int64_t y) const { return data_.get() + static_cast<size_t>(y) * stride_; }

 private:
  using Buffer = std::unique_ptr<uint8_t, void (*)(void*)>;
  int64_t width_ = 0;
  int64_t height_ = 0;
  size_t stride_ = 0;
  PixelFormat format_ = PixelFormat::rgba8;
  double pixelsPerInch_ = 0;
  Buffer data_{nullptr, &std::free};
};

}  // namespace kvo
