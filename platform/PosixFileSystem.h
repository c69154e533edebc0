#pragma once

#include "interfaces/FileSystem.h"

namespace kvo {

// The machine's own file system through POSIX calls.
class PosixFileSystem final : public FileSystem {
 public:
  std::optional<FileMetadata> metadata(const std::string& path) override;
  std::unique_ptr<ReadableFile> openForReading(const std::string& path) override;
  PathState pathState(const std::string& path) override;
  bool createDirectories(const std::string& path) override;
  bool createDirectory(const std::string& path) override;
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) override;
  bool enumerate(const std::string& path, const std::function<void(const std::string&)>& visit) override;
  bool writeFileAtomically(const std::string& path, std::string_view bytes) override;
};

}  // namespace kvo
