#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fakes/EventLog.h"
#include "fakes/InMemoryFileSystem.h"
#include "interfaces/ImageCodec.h"

namespace kvo::fakes {

// What the image source opened on one path answers.
struct ScriptedImage {
  int64_t imageCount = 1;
  std::optional<ImageType> type = ImageType::png;
  std::optional<StoredSize> storedSize = StoredSize{800, 600};
  // The decoded, upright size when it differs from the stored one (a photo
  // whose orientation tag turns it by 90°).
  std::optional<StoredSize> uprightSize;
  bool decodeFails = false;

  static ScriptedImage of(int64_t width, int64_t height, ImageType type = ImageType::png) {
    ScriptedImage image;
    image.type = type;
    image.storedSize = StoredSize{width, height};
    return image;
  }
};

// One call of writePng.
struct PngWrite {
  std::string path;
  int64_t width = 0;
  int64_t height = 0;
  std::optional<bool> allWhite;  // for bitmaps with real pixels
};

// An image codec with scripted sources per path. Paths without a script are
// not images (open gives nullptr). writePng records every call and, when an
// InMemoryFileSystem is attached, creates the file there with a chosen size:
// like a real writer it cannot create a file in a directory that does not
// exist.
class FakeImageCodec : public ImageCodec {
 public:
  explicit FakeImageCodec(InMemoryFileSystem* fileSystem = nullptr, EventLog* events = nullptr)
      : fileSystem_(fileSystem), events_(events) {}

  void script(const std::string& path, ScriptedImage image) { scripts_[path] = image; }

  // Size of every PNG file written from now on, and of one path in particular.
  void setPngFileSize(uint64_t size) { pngFileSize_ = size; }
  void setPngFileSize(const std::string& path, uint64_t size) { pngFileSizes_[path] = size; }
  // writePng of `path` fails this way. cannotFinish leaves a partial
  // (zero-byte) file behind, as an interrupted writer would.
  void failPng(const std::string& path, PngWriteResult result) { pngFaults_[path] = result; }

  const std::vector<std::string>& opens() const { return opens_; }
  int decodeCount(const std::string& path) const;
  int decodeCount() const;
  const std::vector<PngWrite>& pngWrites() const { return pngWrites_; }

  std::unique_ptr<ImageSource> open(const std::string& path) override;
  PngWriteResult writePng(const Bitmap& bitmap, const std::string& path) override;

 private:
  friend class ScriptedSource;

  InMemoryFileSystem* fileSystem_;
  EventLog* events_;
  std::map<std::string, ScriptedImage> scripts_;
  uint64_t pngFileSize_ = 1'000;
  std::map<std::string, uint64_t> pngFileSizes_;
  std::map<std::string, PngWriteResult> pngFaults_;
  std::vector<std::string> opens_;
  std::vector<std::string> decodes_;
  std::vector<PngWrite> pngWrites_;
};

}  // namespace kvo::fakes
