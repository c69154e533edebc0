#include "fakes/FakeImageCodec.h"

#include <algorithm>

#include "fakes/FakeBitmap.h"

namespace kvo::fakes {

class ScriptedSource : public ImageSource {
 public:
  ScriptedSource(FakeImageCodec& codec, std::string path, ScriptedImage image)
      : codec_(codec), path_(std::move(path)), image_(image) {}

  int64_t imageCount() override { return image_.imageCount; }
  std::optional<ImageType> type() override { return image_.type; }
  std::optional<StoredSize> storedSize() override { return image_.storedSize; }
  Bitmap decodeUpright() override {
    codec_.decodes_.push_back(path_);
    if (codec_.events_) codec_.events_->add("codec.decode " + path_);
    if (image_.decodeFails) return Bitmap();
    const StoredSize size = image_.uprightSize.value_or(image_.storedSize.value_or(StoredSize{1, 1}));
    return makeFakeBitmap(size.width, size.height);
  }

 private:
  FakeImageCodec& codec_;
  std::string path_;
  ScriptedImage image_;
};

int FakeImageCodec::decodeCount(const std::string& path) const {
  return static_cast<int>(std::count(decodes_.begin(), decodes_.end(), path));
}

int FakeImageCodec::decodeCount() const { return static_cast<int>(decodes_.size()); }

std::unique_ptr<ImageSource> FakeImageCodec::open(const std::string& path) {
  opens_.push_back(path);
  if (events_) events_->add("codec.open " + path);
  auto it = scripts_.find(path);
  if (it == scripts_.end()) return nullptr;
  return std::make_unique<ScriptedSource>(*this, path, it->second);
}

PngWriteResult FakeImageCodec::writePng(const Bitmap& bitmap, const std::string& path) {
  pngWrites_.push_back(PngWrite{path, bitmap.width(), bitmap.height(), isAllWhite(bitmap)});
  if (events_) {
    events_->add("codec.writePng " + path + " " + std::to_string(bitmap.width()) + "x" +
                 std::to_string(bitmap.height()));
  }
  if (auto fault = pngFaults_.find(path); fault != pngFaults_.end()) {
    if (fault->second == PngWriteResult::cannotFinish && fileSystem_) fileSystem_->placeFile(path, 0);
    return fault->second;
  }
  if (fileSystem_) {
    auto sized = pngFileSizes_.find(path);
    const uint64_t size = sized != pngFileSizes_.end() ? sized->second : pngFileSize_;
    if (!fileSystem_->placeFile(path, size)) return PngWriteResult::cannotCreate;
  }
  return PngWriteResult::written;
}

}  // namespace kvo::fakes
