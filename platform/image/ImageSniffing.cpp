#include "platform/image/ImageSniffing.h"

#include <algorithm>
#include <cstring>

namespace kvo::image {

namespace {

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

}  // namespace

std::optional<ImageType> sniffImageType(const uint8_t* data, size_t size) {
  if (startsWith(data, size, "\x89PNG\r\n\x1A\n", 8)) return ImageType::png;
  if (startsWith(data, size, "\xFF\xD8\xFF", 3)) return ImageType::jpeg;
  if (size >= 12 && std::memcmp(data, "RIFF", 4) == 0 && std::memcmp(data + 8, "WEBP", 4) == 0)
    return ImageType::webp;
  if (isOtherImage(data, size)) return ImageType::other;
  return std::nullopt;
}

}  // namespace kvo::image
