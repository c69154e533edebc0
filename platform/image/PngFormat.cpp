#include "platform/image/PngFormat.h"

// libpng first: it brings <setjmp.h> in the form it expects.
#include <png.h>

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/image/EncodedSource.h"

// Error handling with libpng and libjpeg is setjmp/longjmp. Every function
// here that calls setjmp is written in plain C style: the state it must keep
// across a longjmp lives in a caller-owned struct reached through a pointer,
// and no object with a destructor is alive between the setjmp and any library
// call that may jump back to it. The C++ wrappers around those functions
// only ever see a boolean outcome.

namespace kvo::image {

namespace {

// libpng calls the error function and, should it return, prints the message
// itself; so it must never return. Warnings (and benign errors, which libpng
// downgrades to warnings when reading) are not for anyone to see.
[[noreturn]] void pngRaiseError(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void pngDropWarning(png_structp, png_const_charp) {}

// Ancillary chunks with no bearing on the pixels this codec returns. libpng
// skips them unread (apart from the CRC), which also keeps its colour-profile
// checks from failing or complaining about them. eXIf is among them: EXIF
// orientation is honoured for JPEG only. pHYs is read: it gives the
// resolution.
const png_byte kIgnoredPngChunks[] =
    "bKGD\0cHRM\0eXIf\0gAMA\0hIST\0iCCP\0iTXt\0oFFs\0pCAL\0sBIT\0sCAL\0sPLT\0sRGB\0tEXt\0tIME\0zTXt";

struct PngReadJob {
  const uint8_t* data;
  size_t size;
  size_t offset;
  png_structp png;
  png_infop info;
  png_uint_32 width;
  png_uint_32 height;
  unsigned channels;  // of the decoded pixels: 3 or 4
  double pixelsPerInch;  // from pHYs in pixels per metre; 0 when not declared
  uint8_t* pixels;    // malloc'd; handed to the caller on success
};

void pngReadBytes(png_structp png, png_bytep out, size_t length) {
  auto* job = static_cast<PngReadJob*>(png_get_io_ptr(png));
  if (length > job->size - job->offset) png_error(png, "unexpected end of file");
  std::memcpy(out, job->data + job->offset, length);
  job->offset += length;
}

// Reads the headers up to the first IDAT; with `decode`, also the whole first
// image as 8-bit RGB or RGBA into job->pixels. C-style: see the top of file.
bool pngRead(PngReadJob* job, bool decode) {
  job->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, job, pngRaiseError, pngDropWarning);
  if (job->png == nullptr) return false;
  job->info = png_create_info_struct(job->png);
  if (job->info == nullptr) {
    png_destroy_read_struct(&job->png, nullptr, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(job->png))) {
    png_destroy_read_struct(&job->png, &job->info, nullptr);
    std::free(job->pixels);
    job->pixels = nullptr;
    return false;
  }
  png_set_read_fn(job->png, job, pngReadBytes);
  // libpng's own default caps width and height at 1,000,000; report what a
  // valid header declares instead, and leave size policy to the caller.
  png_set_user_limits(job->png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
  png_set_keep_unknown_chunks(job->png, PNG_HANDLE_CHUNK_NEVER, kIgnoredPngChunks,
                              static_cast<int>(sizeof kIgnoredPngChunks / 5));
  png_read_info(job->png, job->info);
  job->width = png_get_image_width(job->png, job->info);
  job->height = png_get_image_height(job->png, job->info);
  {
    // The vertical resolution, as the rows are what text lines are measured
    // in; an aspect ratio alone (unit unknown) says nothing about it.
    png_uint_32 xPerUnit = 0, yPerUnit = 0;
    int unit = PNG_RESOLUTION_UNKNOWN;
    if (png_get_pHYs(job->png, job->info, &xPerUnit, &yPerUnit, &unit) != 0 && unit == PNG_RESOLUTION_METER)
      job->pixelsPerInch = yPerUnit * 0.0254;
  }
  if (decode) {
    // Palette → RGB, gray below 8 bits → 8 bits, tRNS → alpha channel,
    // 16 bits → 8 bits (rounded), gray → RGB. No gamma handling: the stored
    // values are returned as they are.
    png_set_expand(job->png);
    png_set_scale_16(job->png);
    png_set_gray_to_rgb(job->png);
    const int passes = png_set_interlace_handling(job->png);
    png_read_update_info(job->png, job->info);
    job->channels = png_get_channels(job->png, job->info);
    if (png_get_bit_depth(job->png, job->info) != 8 || (job->channels != 3 && job->channels != 4))
      png_error(job->png, "unexpected pixel layout");
    const size_t stride = size_t{job->width} * job->channels;
    const size_t bytes = pixelBytes(job->width, job->height, job->channels);
    if (bytes == 0 || png_get_rowbytes(job->png, job->info) != stride) png_error(job->png, "bad row size");
    job->pixels = static_cast<uint8_t*>(std::malloc(bytes));
    if (job->pixels == nullptr) png_error(job->png, "out of memory");
    // Interlaced passes each fill in part of every row; start from a known
    // state rather than from whatever malloc returned.
    if (passes > 1) std::memset(job->pixels, 0, bytes);
    for (int pass = 0; pass < passes; ++pass)
      for (png_uint_32 y = 0; y < job->height; ++y) png_read_row(job->png, job->pixels + y * stride, nullptr);
    // The last IDAT's CRC and the zlib checksum have been verified by now;
    // what follows the image data is not needed.
  }
  png_destroy_read_struct(&job->png, &job->info, nullptr);
  return true;
}

struct PngWriteJob {
  FILE* file;
  const uint8_t* pixels;
  size_t stride;
  png_uint_32 width;
  png_uint_32 height;
  int colorType;
  int level;
  int strategy;
  int filters;
  png_uint_32 pixelsPerMetre;  // 0: no pHYs chunk
  png_structp png;
  png_infop info;
};

void pngWriteBytes(png_structp png, png_bytep data, size_t length) {
  auto* job = static_cast<PngWriteJob*>(png_get_io_ptr(png));
  if (std::fwrite(data, 1, length, job->file) != length) png_error(png, "write failed");
}

// Flushing is done once, by the caller, where its result is checked.
void pngFlushNothing(png_structp) {}

// Encodes the job's pixels into job->file. C-style: see the top of file.
bool pngWrite(PngWriteJob* job) {
  job->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, job, pngRaiseError, pngDropWarning);
  if (job->png == nullptr) return false;
  job->info = png_create_info_struct(job->png);
  if (job->info == nullptr) {
    png_destroy_write_struct(&job->png, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(job->png))) {
    png_destroy_write_struct(&job->png, &job->info);
    return false;
  }
  png_set_write_fn(job->png, job, pngWriteBytes, pngFlushNothing);
  png_set_user_limits(job->png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
  png_set_IHDR(job->png, job->info, job->width, job->height, 8, job->colorType, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (job->pixelsPerMetre > 0)
    png_set_pHYs(job->png, job->info, job->pixelsPerMetre, job->pixelsPerMetre, PNG_RESOLUTION_METER);
  png_set_filter(job->png, PNG_FILTER_TYPE_BASE, job->filters);
  png_set_compression_level(job->png, job->level);
  png_set_compression_strategy(job->png, job->strategy);
  // Fewer, larger IDAT chunks: less per-chunk overhead on big pages.
  png_set_compression_buffer_size(job->png, size_t{1} << 17);
  png_write_info(job->png, job->info);
  for (png_uint_32 y = 0; y < job->height; ++y) png_write_row(job->png, job->pixels + y * job->stride);
  png_write_end(job->png, nullptr);
  png_destroy_write_struct(&job->png, &job->info);
  return true;
}

class PngSource final : public EncodedSource {
 public:
  using EncodedSource::EncodedSource;

  // libpng here knows no APNG chunks: an animated PNG is its default image.
  int64_t imageCount() override { return storedSize() ? 1 : 0; }
  std::optional<ImageType> type() override { return ImageType::png; }

  Bitmap decodeUpright() override {
    PngReadJob job{};
    job.data = data();
    job.size = size();
    if (!pngRead(&job, true)) return {};
    Bitmap image = adoptPixels(job.pixels, job.width, job.height, job.channels);
    image.setPixelsPerInch(job.pixelsPerInch);
    return image;
  }

 protected:
  std::optional<StoredSize> readHeader() override {
    PngReadJob job{};
    job.data = data();
    job.size = size();
    if (!pngRead(&job, false)) return std::nullopt;
    return StoredSize{job.width, job.height};
  }
};

int pngFilterMask(PngFilter filter) {
  switch (filter) {
    case PngFilter::none: return PNG_FILTER_NONE;
    case PngFilter::sub: return PNG_FILTER_SUB;
    case PngFilter::up: return PNG_FILTER_UP;
    case PngFilter::average: return PNG_FILTER_AVG;
    case PngFilter::paeth: return PNG_FILTER_PAETH;
    case PngFilter::adaptive: return PNG_ALL_FILTERS;
  }
  return PNG_FILTER_NONE;
}

}  // namespace

std::unique_ptr<ImageSource> openPng(posix::FileBytes file) { return std::make_unique<PngSource>(std::move(file)); }

PngWriteResult writePngFile(const Bitmap& bitmap, const std::string& path, const PngEncoding& encoding) {
  constexpr int64_t kPngMaxDimension = 0x7FFFFFFF;
  if (!bitmap.valid() || bitmap.width() <= 0 || bitmap.height() <= 0 || bitmap.width() > kPngMaxDimension ||
      bitmap.height() > kPngMaxDimension)
    return PngWriteResult::cannotFinish;

  FILE* file = std::fopen(path.c_str(), "wbe");
  if (file == nullptr) return PngWriteResult::cannotCreate;
  std::setvbuf(file, nullptr, _IOFBF, size_t{1} << 16);

  PngWriteJob job{};
  job.file = file;
  job.pixels = bitmap.data();
  job.stride = bitmap.stride();
  job.width = static_cast<png_uint_32>(bitmap.width());
  job.height = static_cast<png_uint_32>(bitmap.height());
  job.colorType = bitmap.format() == PixelFormat::rgba8 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
  job.level = std::clamp(encoding.zlibLevel, 0, 9);
  job.strategy = encoding.runLengthOnly ? Z_RLE : Z_DEFAULT_STRATEGY;
  job.filters = pngFilterMask(encoding.filter);
  if (bitmap.pixelsPerInch() > 0 && bitmap.pixelsPerInch() < 1e6)
    job.pixelsPerMetre = static_cast<png_uint_32>(bitmap.pixelsPerInch() / 0.0254 + 0.5);

  bool ok = pngWrite(&job);
  ok = std::fflush(file) == 0 && ok;
  ok = !std::ferror(file) && ok;
  ok = std::fclose(file) == 0 && ok;
  return ok ? PngWriteResult::written : PngWriteResult::cannotFinish;
}

}  // namespace kvo::image
