#include "platform/image/JpegFormat.h"

#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <algorithm>

// jpeglib.h needs FILE and size_t declared before it, and jerror.h needs the
// configuration jpeglib.h brings in: its message numbering depends on it.
#include <jpeglib.h>
// clang-format off
#include <jerror.h>
// clang-format on
#include <libexif/exif-data.h>
#include <libexif/exif-log.h>

#include "platform/image/EncodedSource.h"
#include "platform/image/ImageOrientation.h"

// Error handling with libpng and libjpeg is setjmp/longjmp. Every function
// here that calls setjmp is written in plain C style: the state it must keep
// across a longjmp lives in a caller-owned struct reached through a pointer,
// and no object with a destructor is alive between the setjmp and any library
// call that may jump back to it. The C++ wrappers around those functions
// only ever see a boolean outcome.

namespace kvo::image {

namespace {

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

}  // namespace

std::unique_ptr<ImageSource> openJpeg(posix::FileBytes file) { return std::make_unique<JpegSource>(std::move(file)); }

}  // namespace kvo::image
