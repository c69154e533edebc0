#include "platform/StandardImageCodec.h"

#include <cstddef>
#include <optional>
#include <utility>

#include "platform/PosixIo.h"
#include "platform/image/ImageSniffing.h"
#include "platform/image/JpegFormat.h"
#include "platform/image/PngFormat.h"
#include "platform/image/WebpFormat.h"

namespace kvo {

namespace {

// The caller refuses larger files before asking the codec; reading stops
// here regardless, so a file that grows while being read cannot exhaust
// memory.
constexpr size_t kMaxFileBytes = size_t{512} << 20;

// A recognised image format this helper does not take: it holds no image
// that the codec would read.
class OtherSource final : public ImageSource {
 public:
  int64_t imageCount() override { return 0; }
  std::optional<ImageType> type() override { return ImageType::other; }
  std::optional<StoredSize> storedSize() override { return std::nullopt; }
  Bitmap decodeUpright() override { return {}; }
};

}  // namespace

std::unique_ptr<ImageSource> StandardImageCodec::open(const std::string& path) {
  std::optional<posix::FileBytes> file = posix::readWholeFile(path, kMaxFileBytes);
  if (!file) return nullptr;
  const std::optional<ImageType> type = image::sniffImageType(file->bytes.get(), file->size);
  if (!type) return nullptr;
  switch (*type) {
    case ImageType::png: return image::openPng(std::move(*file));
    case ImageType::jpeg: return image::openJpeg(std::move(*file));
    case ImageType::webp: return image::openWebp(std::move(*file));
    case ImageType::other: return std::make_unique<OtherSource>();
  }
  return nullptr;
}

PngWriteResult StandardImageCodec::writePng(const Bitmap& bitmap, const std::string& path) {
  return image::writePngFile(bitmap, path, encoding_);
}

}  // namespace kvo
