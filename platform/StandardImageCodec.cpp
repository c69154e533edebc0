#include "platform/StandardImageCodec.h"

// libpng first: it brings <setjmp.h> in the form it expects.
#include <png.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>

// jpeglib.h needs FILE and size_t declared before it, and jerror.h needs the
// configuration jpeglib.h brings in: its message numbering depends on it.
#include <jpeglib.h>
// clang-format off
#include <jerror.h>
// clang-format on
#include <libexif/exif-data.h>
#include <libexif/exif-log.h>
#include <webp/decode.h>
#include <webp/demux.h>
#include <zlib.h>

// Error handling with libpng and libjpeg is setjmp/longjmp. Every function
// that calls setjmp below is written in plain C style: the state it must keep
// across a longjmp lives in a caller-owned struct reached through a pointer,
// and no object with a destructor is alive between the setjmp and any library
// call that may jump back to it. The C++ wrappers around those functions
// only ever see a boolean outcome.

namespace kvo {

namespace {

// The caller refuses larger files before asking the codec; reading stops
// here regardless, so a file that grows while being read cannot exhaust
// memory.
constexpr size_t kMaxFileBytes = size_t{512} << 20;

// ---------------------------------------------------------------------------
// Reading the file

struct EncodedFile {
  std::unique_ptr<uint8_t[]> bytes;
  size_t size = 0;
};

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Reads up to `capacity` bytes; returns the count, or -1 on a read error.
ssize_t readFully(int fd, uint8_t* out, size_t capacity) {
  size_t filled = 0;
  while (filled < capacity) {
    const ssize_t n = ::read(fd, out + filled, capacity - filled);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) break;
    filled += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(filled);
}

std::optional<EncodedFile> readWholeFile(const std::string& path) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return std::nullopt;
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0 || S_ISDIR(st.st_mode)) return std::nullopt;

  // A regular file is read into a buffer of its stated size; anything else
  // (or a file that grew since fstat) grows the buffer as data arrives.
  size_t capacity = S_ISREG(st.st_mode) && st.st_size > 0
                        ? std::min(static_cast<size_t>(st.st_size), kMaxFileBytes)
                        : size_t{1} << 16;
  EncodedFile file;
  try {
    file.bytes = std::make_unique_for_overwrite<uint8_t[]>(capacity);
    for (;;) {
      const ssize_t n = readFully(fd.get(), file.bytes.get() + file.size, capacity - file.size);
      if (n < 0) return std::nullopt;
      file.size += static_cast<size_t>(n);
      if (file.size < capacity) break;  // end of file reached
      uint8_t probe[1 << 12];
      const ssize_t extra = readFully(fd.get(), probe, sizeof probe);
      if (extra < 0) return std::nullopt;
      if (extra == 0) break;
      if (capacity + static_cast<size_t>(extra) > kMaxFileBytes) return std::nullopt;
      const size_t grown = std::min(std::max(capacity * 2, capacity + sizeof probe), kMaxFileBytes);
      auto bigger = std::make_unique_for_overwrite<uint8_t[]>(grown);
      std::memcpy(bigger.get(), file.bytes.get(), file.size);
      std::memcpy(bigger.get() + file.size, probe, static_cast<size_t>(extra));
      file.size += static_cast<size_t>(extra);
      file.bytes = std::move(bigger);
      capacity = grown;
    }
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  return file;
}

// ---------------------------------------------------------------------------
// Deciding the type from the content

bool startsWith(const uint8_t* data, size_t size, const char* signature, size_t length) {
  return size >= length && std::memcmp(data, signature, length) == 0;
}

uint32_t bigEndian32(const uint8_t* p) {
  return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | uint32_t{p[3]};
}

uint32_t littleEndian32(const uint8_t* p) {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

// "BM" alone is too weak a signature; the DIB header size that follows the
// 14-byte file header takes one of a few fixed values.
bool isBmp(const uint8_t* data, size_t size) {
  if (!startsWith(data, size, "BM", 2) || size < 18) return false;
  switch (littleEndian32(data + 14)) {
    case 12: case 16: case 40: case 52: case 56: case 64: case 108: case 124:
      return true;
    default:
      return false;
  }
}

// An ISO base media file whose ftyp box names a still-image brand (HEIF,
// HEIC, AVIF and their sequence variants) as major or compatible brand.
bool isIsoBmffImage(const uint8_t* data, size_t size) {
  if (size < 16 || std::memcmp(data + 4, "ftyp", 4) != 0) return false;
  static const char* const kBrands[] = {"heic", "heix", "heim", "heis", "hevc", "hevx", "hevm", "hevs",
                                        "mif1", "mif2", "msf1", "avif", "avis", "avio", "avci", "avcs"};
  auto isImageBrand = [](const uint8_t* brand) {
    for (const char* known : kBrands)
      if (std::memcmp(brand, known, 4) == 0) return true;
    return false;
  };
  if (isImageBrand(data + 8)) return true;
  const size_t boxEnd = std::min<size_t>(bigEndian32(data), size);
  for (size_t at = 16; at + 4 <= boxEnd; at += 4)
    if (isImageBrand(data + at)) return true;
  return false;
}

bool isNetpbmSpace(uint8_t c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// P1..P6 must be followed by a width (a number) and P7 by a header keyword
// (upper case), allowing whitespace and '#' comments between; that keeps
// ordinary text starting with "P1 " from being taken for an image.
bool isNetpbm(const uint8_t* data, size_t size) {
  if (size < 4 || data[0] != 'P' || data[1] < '1' || data[1] > '7' || !isNetpbmSpace(data[2])) return false;
  size_t at = 3;
  for (;;) {
    while (at < size && isNetpbmSpace(data[at])) ++at;
    if (at < size && data[at] == '#') {
      while (at < size && data[at] != '\n' && data[at] != '\r') ++at;
      continue;
    }
    break;
  }
  if (at >= size) return false;
  return data[1] == '7' ? (data[at] >= 'A' && data[at] <= 'Z') : (data[at] >= '0' && data[at] <= '9');
}

bool isIco(const uint8_t* data, size_t size) {
  return size >= 6 && data[0] == 0 && data[1] == 0 && data[2] == 1 && data[3] == 0 && (data[4] | data[5]) != 0;
}

bool isOtherImage(const uint8_t* data, size_t size) {
  return startsWith(data, size, "GIF87a", 6) || startsWith(data, size, "GIF89a", 6) ||
         startsWith(data, size, "II*\0", 4) || startsWith(data, size, "MM\0*", 4) ||  // TIFF
         startsWith(data, size, "II+\0", 4) || startsWith(data, size, "MM\0+", 4) ||  // BigTIFF
         isBmp(data, size) || isIsoBmffImage(data, size) || isNetpbm(data, size) || isIco(data, size) ||
         startsWith(data, size, "\0\0\0\x0CjP  \r\n\x87\n", 12) ||   // JPEG 2000 (JP2)
         startsWith(data, size, "\xFF\x4F\xFF\x51", 4) ||            // JPEG 2000 codestream
         startsWith(data, size, "\0\0\0\x0CJXL \r\n\x87\n", 12) ||   // JPEG XL container
         startsWith(data, size, "\xFF\x0A", 2);                      // JPEG XL codestream
}

std::optional<ImageType> sniff(const uint8_t* data, size_t size) {
  if (startsWith(data, size, "\x89PNG\r\n\x1A\n", 8)) return ImageType::png;
  if (startsWith(data, size, "\xFF\xD8\xFF", 3)) return ImageType::jpeg;
  if (size >= 12 && std::memcmp(data, "RIFF", 4) == 0 && std::memcmp(data + 8, "WEBP", 4) == 0)
    return ImageType::webp;
  if (isOtherImage(data, size)) return ImageType::other;
  return std::nullopt;
}

// ---------------------------------------------------------------------------
// Pixel buffers

// Bytes for width × height pixels of `channels` bytes, or 0 when that does
// not fit in memory addressing at all.
size_t pixelBytes(uint64_t width, uint64_t height, unsigned channels) {
  if (width == 0 || height == 0) return 0;
  const uint64_t max = std::numeric_limits<size_t>::max() / 2;
  if (width > max / channels || height > max / (width * channels)) return 0;
  return static_cast<size_t>(width * channels * height);
}

// Turns a malloc'd buffer filled by one of the C-style decoders into a Bitmap.
Bitmap adoptPixels(uint8_t* pixels, uint32_t width, uint32_t height, unsigned channels) {
  return Bitmap::adopt(width, height, size_t{width} * channels,
                       channels == 4 ? PixelFormat::rgba8 : PixelFormat::rgb8, pixels, &std::free);
}

// Rewrites a stored JPEG image upright for its EXIF orientation (1..8):
// every output pixel (x, y) is taken from stored pixel
// (x0 + x·xx + y·xy, y0 + x·yx + y·yy). Works in tiles so that the column
// walks of the transposing orientations stay in cache.
Bitmap orientUpright(Bitmap stored, int orientation) {
  if (orientation < 2 || orientation > 8 || !stored.valid()) return stored;
  const int64_t w = stored.width(), h = stored.height();
  const bool swaps = orientation >= 5;
  Bitmap upright = Bitmap::allocate(swaps ? h : w, swaps ? w : h, stored.format());
  if (!upright.valid()) return {};

  int64_t x0 = 0, y0 = 0, xx = 0, xy = 0, yx = 0, yy = 0;
  switch (orientation) {
    case 2: x0 = w - 1; xx = -1; yy = 1; break;                  // mirror horizontal
    case 3: x0 = w - 1; y0 = h - 1; xx = -1; yy = -1; break;     // rotate 180
    case 4: y0 = h - 1; xx = 1; yy = -1; break;                  // mirror vertical
    case 5: xy = 1; yx = 1; break;                               // transpose
    case 6: y0 = h - 1; xy = 1; yx = -1; break;                  // rotate 90 clockwise
    case 7: x0 = w - 1; y0 = h - 1; xy = -1; yx = -1; break;     // transverse
    case 8: x0 = w - 1; xy = -1; yx = 1; break;                  // rotate 270 clockwise
  }
  const int bpp = bytesPerPixel(stored.format());
  constexpr int64_t kTile = 64;
  for (int64_t ty = 0; ty < upright.height(); ty += kTile) {
    const int64_t yEnd = std::min(ty + kTile, upright.height());
    for (int64_t tx = 0; tx < upright.width(); tx += kTile) {
      const int64_t xEnd = std::min(tx + kTile, upright.width());
      for (int64_t y = ty; y < yEnd; ++y) {
        uint8_t* out = upright.row(y) + tx * bpp;
        for (int64_t x = tx; x < xEnd; ++x, out += bpp) {
          const int64_t sx = x0 + x * xx + y * xy, sy = y0 + x * yx + y * yy;
          std::memcpy(out, stored.row(sy) + sx * bpp, static_cast<size_t>(bpp));
        }
      }
    }
  }
  return upright;
}

// ---------------------------------------------------------------------------
// libpng

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

// ---------------------------------------------------------------------------
// libexif

void exifDropLog(ExifLog*, ExifLogCode, const char*, const char*, va_list, void*) {}

// The EXIF orientation (1..8) in an APP1 payload starting "Exif\0\0";
// 1 when absent or not one of the eight defined values.
int exifOrientation(const uint8_t* payload, size_t size) {
  ExifData* exif = exif_data_new();
  if (exif == nullptr) return 1;
  ExifLog* log = exif_log_new();
  if (log != nullptr) {
    exif_log_set_func(log, exifDropLog, nullptr);
    exif_data_log(exif, log);
  }
  exif_data_load_data(exif, payload, static_cast<unsigned int>(std::min<size_t>(size, 0xFFFF)));
  int orientation = 1;
  if (ExifEntry* entry = exif_content_get_entry(exif->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
      entry != nullptr && entry->format == EXIF_FORMAT_SHORT && entry->components >= 1 && entry->data != nullptr &&
      entry->size >= 2) {
    const int value = exif_get_short(entry->data, exif_data_get_byte_order(exif));
    if (value >= 1 && value <= 8) orientation = value;
  }
  exif_data_unref(exif);
  if (log != nullptr) exif_log_unref(log);
  return orientation;
}

// ---------------------------------------------------------------------------
// libjpeg

struct JpegErrorManager {
  jpeg_error_mgr pub;
  jmp_buf jump;
};

[[noreturn]] void jpegRaiseError(j_common_ptr cinfo) {
  std::longjmp(reinterpret_cast<JpegErrorManager*>(cinfo->err)->jump, 1);
}

void jpegDropMessage(j_common_ptr) {}

// Warnings that mean pixel data is missing or garbled (truncation, damaged
// entropy-coded data) fail the decode like errors; the rest (extraneous
// bytes between markers, unknown JFIF revisions, bad ICC markers, ...) leave
// the pixels intact and are ignored. Trace messages are dropped.
void jpegEmitMessage(j_common_ptr cinfo, int level) {
  if (level >= 0) return;
  cinfo->err->num_warnings++;
  switch (cinfo->err->msg_code) {
    case JWRN_JPEG_EOF:
    case JWRN_HIT_MARKER:
    case JWRN_HUFF_BAD_CODE:
    case JWRN_ARITH_BAD_CODE:
    case JWRN_MUST_RESYNC:
      jpegRaiseError(cinfo);
    default:
      break;
  }
}

struct JpegJob {
  const uint8_t* data;
  size_t size;
  jpeg_decompress_struct cinfo;
  JpegErrorManager errors;
  JDIMENSION width;
  JDIMENSION height;
  int orientation;
  double pixelsPerInch;  // from the JFIF density; 0 when not declared
  uint8_t* pixels;   // malloc'd RGB; handed to the caller on success
  uint8_t* cmykRow;  // malloc'd scratch row for CMYK/YCCK images
};

// Abandons the job from inside jpegRead, through its setjmp.
[[noreturn]] void jpegFail(JpegJob* job) { jpegRaiseError(reinterpret_cast<j_common_ptr>(&job->cinfo)); }

// The EXIF orientation from the first APP1 marker holding EXIF data.
int jpegOrientation(jpeg_saved_marker_ptr marker) {
  for (; marker != nullptr; marker = marker->next)
    if (marker->marker == JPEG_APP0 + 1 && marker->data_length >= 6 && std::memcmp(marker->data, "Exif\0\0", 6) == 0)
      return exifOrientation(marker->data, marker->data_length);
  return 1;
}

// CMYK as decoded to RGB. Adobe's applications (which write the APP14
// marker) store CMYK inverted, 255 meaning no ink; others store it plainly.
void cmykRowToRgb(const uint8_t* cmyk, uint8_t* rgb, JDIMENSION width, bool inverted) {
  for (JDIMENSION x = 0; x < width; ++x, cmyk += 4, rgb += 3) {
    const unsigned k = inverted ? cmyk[3] : 255u - cmyk[3];
    for (int c = 0; c < 3; ++c) {
      const unsigned v = inverted ? cmyk[c] : 255u - cmyk[c];
      rgb[c] = static_cast<uint8_t>((v * k + 127) / 255);
    }
  }
}

// Reads the header; with `decode`, also the EXIF orientation and the image as
// 8-bit RGB into job->pixels. C-style: see the top of file.
bool jpegRead(JpegJob* job, bool decode) {
  job->cinfo.err = jpeg_std_error(&job->errors.pub);
  job->errors.pub.error_exit = jpegRaiseError;
  job->errors.pub.output_message = jpegDropMessage;
  job->errors.pub.emit_message = jpegEmitMessage;
  if (setjmp(job->errors.jump)) {
    jpeg_destroy_decompress(&job->cinfo);
    std::free(job->pixels);
    job->pixels = nullptr;
    std::free(job->cmykRow);
    job->cmykRow = nullptr;
    return false;
  }
  jpeg_create_decompress(&job->cinfo);
  jpeg_mem_src(&job->cinfo, job->data, static_cast<unsigned long>(job->size));
  if (decode) jpeg_save_markers(&job->cinfo, JPEG_APP0 + 1, 0xFFFF);
  jpeg_read_header(&job->cinfo, TRUE);
  job->width = job->cinfo.image_width;
  job->height = job->cinfo.image_height;
  // JFIF density: unit 1 is dots per inch, 2 dots per centimetre, 0 an
  // aspect ratio only. The vertical one, as for PNG.
  if (job->cinfo.saw_JFIF_marker) {
    if (job->cinfo.density_unit == 1)
      job->pixelsPerInch = job->cinfo.Y_density;
    else if (job->cinfo.density_unit == 2)
      job->pixelsPerInch = job->cinfo.Y_density * 2.54;
  }
  if (decode) {
    job->orientation = jpegOrientation(job->cinfo.marker_list);
    const bool cmyk = job->cinfo.jpeg_color_space == JCS_CMYK || job->cinfo.jpeg_color_space == JCS_YCCK;
    job->cinfo.out_color_space = cmyk ? JCS_CMYK : JCS_RGB;
    jpeg_start_decompress(&job->cinfo);
    job->width = job->cinfo.output_width;
    job->height = job->cinfo.output_height;
    const size_t stride = size_t{job->width} * 3;
    const size_t bytes = pixelBytes(job->width, job->height, 3);
    if (job->cinfo.output_components != (cmyk ? 4 : 3) || bytes == 0) jpegFail(job);
    job->pixels = static_cast<uint8_t*>(std::malloc(bytes));
    if (job->pixels == nullptr) jpegFail(job);
    if (cmyk) {
      job->cmykRow = static_cast<uint8_t*>(std::malloc(size_t{job->width} * 4));
      if (job->cmykRow == nullptr) jpegFail(job);
    }
    while (job->cinfo.output_scanline < job->height) {
      uint8_t* out = job->pixels + job->cinfo.output_scanline * stride;
      JSAMPROW rows[16];
      JDIMENSION want = 1;
      if (cmyk) {
        rows[0] = job->cmykRow;
      } else {
        want = std::min<JDIMENSION>(16, job->height - job->cinfo.output_scanline);
        for (JDIMENSION i = 0; i < want; ++i) rows[i] = out + i * stride;
      }
      // A memory source never suspends, so no progress means a broken stream.
      if (jpeg_read_scanlines(&job->cinfo, rows, want) == 0) jpegFail(job);
      if (cmyk) cmykRowToRgb(job->cmykRow, out, job->width, job->cinfo.saw_Adobe_marker);
    }
    // jpeg_finish_decompress would only read on to EOI; a file whose image
    // data is complete is not refused for what follows it.
    std::free(job->cmykRow);
    job->cmykRow = nullptr;
  }
  jpeg_destroy_decompress(&job->cinfo);
  return true;
}

// ---------------------------------------------------------------------------
// Sources

// A source over the whole file held in memory, with the header read at most
// once.
class EncodedSource : public ImageSource {
 public:
  explicit EncodedSource(EncodedFile file) : file_(std::move(file)) {}

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
  EncodedFile file_;
  bool headerRead_ = false;
  std::optional<StoredSize> header_;
};

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

class JpegSource final : public EncodedSource {
 public:
  using EncodedSource::EncodedSource;

  int64_t imageCount() override { return storedSize() ? 1 : 0; }
  std::optional<ImageType> type() override { return ImageType::jpeg; }

  Bitmap decodeUpright() override {
    JpegJob job{};
    job.data = data();
    job.size = size();
    if (!jpegRead(&job, true)) return {};
    Bitmap image = orientUpright(adoptPixels(job.pixels, job.width, job.height, 3), job.orientation);
    image.setPixelsPerInch(job.pixelsPerInch);
    return image;
  }

 protected:
  std::optional<StoredSize> readHeader() override {
    JpegJob job{};
    job.data = data();
    job.size = size();
    if (!jpegRead(&job, false)) return std::nullopt;
    return StoredSize{job.width, job.height};
  }
};

class WebpSource final : public EncodedSource {
 public:
  using EncodedSource::EncodedSource;

  // Counted by the demuxer, which validates the container: 0 when it is
  // broken, 1 for a still image, the frame count for an animation.
  int64_t imageCount() override {
    const WebPData webp{data(), size()};
    WebPDemuxer* demux = WebPDemux(&webp);
    if (demux == nullptr) return 0;
    const int64_t frames = WebPDemuxGetI(demux, WEBP_FF_FRAME_COUNT);
    WebPDemuxDelete(demux);
    return frames;
  }

  std::optional<ImageType> type() override { return ImageType::webp; }

  Bitmap decodeUpright() override {
    WebPBitstreamFeatures features{};
    if (WebPGetFeatures(data(), size(), &features) != VP8_STATUS_OK || features.width <= 0 || features.height <= 0)
      return {};
    return features.has_animation ? decodeFirstFrame(features.has_alpha != 0) : decodeStill(features);
  }

 protected:
  std::optional<StoredSize> readHeader() override {
    WebPBitstreamFeatures features{};
    if (WebPGetFeatures(data(), size(), &features) != VP8_STATUS_OK || features.width <= 0 || features.height <= 0)
      return std::nullopt;
    return StoredSize{features.width, features.height};
  }

 private:
  Bitmap decodeStill(const WebPBitstreamFeatures& features) {
    const bool alpha = features.has_alpha != 0;
    Bitmap image = Bitmap::allocate(features.width, features.height, alpha ? PixelFormat::rgba8 : PixelFormat::rgb8);
    if (!image.valid()) return {};
    const size_t bytes = image.stride() * static_cast<size_t>(image.height());
    const int stride = static_cast<int>(image.stride());
    const uint8_t* decoded = alpha ? WebPDecodeRGBAInto(data(), size(), image.data(), bytes, stride)
                                   : WebPDecodeRGBInto(data(), size(), image.data(), bytes, stride);
    return decoded != nullptr ? std::move(image) : Bitmap{};
  }

  // The first frame of an animation, composed on its canvas (transparent
  // where the frame does not cover it). rgba8 when the file declares alpha
  // or the composed canvas is not fully opaque.
  Bitmap decodeFirstFrame(bool declaresAlpha) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return {};
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    const WebPData webp{data(), size()};
    std::unique_ptr<WebPAnimDecoder, void (*)(WebPAnimDecoder*)> decoder(WebPAnimDecoderNew(&webp, &options),
                                                                         &WebPAnimDecoderDelete);
    WebPAnimInfo info{};
    if (decoder == nullptr || !WebPAnimDecoderGetInfo(decoder.get(), &info)) return {};
    uint8_t* canvas = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(decoder.get(), &canvas, &timestamp) || canvas == nullptr) return {};
    const size_t pixels = size_t{info.canvas_width} * info.canvas_height;
    bool opaque = true;
    for (size_t i = 0; i < pixels && opaque; ++i) opaque = canvas[i * 4 + 3] == 255;
    const bool alpha = declaresAlpha || !opaque;
    Bitmap image = Bitmap::allocate(info.canvas_width, info.canvas_height, alpha ? PixelFormat::rgba8 : PixelFormat::rgb8);
    if (!image.valid()) return {};
    if (alpha) {
      std::memcpy(image.data(), canvas, pixels * 4);
    } else {
      uint8_t* out = image.data();
      for (size_t i = 0; i < pixels; ++i, out += 3) std::memcpy(out, canvas + i * 4, 3);
    }
    return image;
  }
};

// A recognised image format this helper does not take: it holds no image
// that the codec would read.
class OtherSource final : public ImageSource {
 public:
  int64_t imageCount() override { return 0; }
  std::optional<ImageType> type() override { return ImageType::other; }
  std::optional<StoredSize> storedSize() override { return std::nullopt; }
  Bitmap decodeUpright() override { return {}; }
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

std::unique_ptr<ImageSource> StandardImageCodec::open(const std::string& path) {
  std::optional<EncodedFile> file = readWholeFile(path);
  if (!file) return nullptr;
  const std::optional<ImageType> type = sniff(file->bytes.get(), file->size);
  if (!type) return nullptr;
  switch (*type) {
    case ImageType::png: return std::make_unique<PngSource>(std::move(*file));
    case ImageType::jpeg: return std::make_unique<JpegSource>(std::move(*file));
    case ImageType::webp: return std::make_unique<WebpSource>(std::move(*file));
    case ImageType::other: return std::make_unique<OtherSource>();
  }
  return nullptr;
}

PngWriteResult StandardImageCodec::writePng(const Bitmap& bitmap, const std::string& path) {
  // Nothing can be written for an empty bitmap or one beyond PNG's limits;
  // no file is created for it.
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
  job.level = std::clamp(encoding_.zlibLevel, 0, 9);
  job.strategy = encoding_.runLengthOnly ? Z_RLE : Z_DEFAULT_STRATEGY;
  job.filters = pngFilterMask(encoding_.filter);
  if (bitmap.pixelsPerInch() > 0 && bitmap.pixelsPerInch() < 1e6)
    job.pixelsPerMetre = static_cast<png_uint_32>(bitmap.pixelsPerInch() / 0.0254 + 0.5);

  bool ok = pngWrite(&job);
  ok = std::fflush(file) == 0 && ok;
  ok = !std::ferror(file) && ok;
  ok = std::fclose(file) == 0 && ok;
  return ok ? PngWriteResult::written : PngWriteResult::cannotFinish;
}

}  // namespace kvo
