#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvo {

// What a metadata query tells about a path. Either field may be unknown.
struct FileMetadata {
  std::optional<bool> isRegularFile;
  std::optional<uint64_t> size;
};

enum class PathState { missing, directory, notDirectory };

// A file opened for reading. Destroying it closes the file; a failure to close
// is ignored.
class ReadableFile {
 public:
  virtual ~ReadableFile() = default;
  // Reads up to `count` bytes from the current position: fewer at end of file,
  // none at all past it. Throws std::system_error when the read itself fails.
  virtual std::vector<uint8_t> read(size_t count) = 0;
};

// The file services the pipeline needs. Paths are absolute, as given on the
// command line. Implementations never throw except where stated.
class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // Regular-file flag and size of `path` (links followed). nullopt when the
  // path cannot be examined at all (typically: nothing exists there).
  virtual std::optional<FileMetadata> metadata(const std::string& path) = 0;

  // Opens `path` for reading; nullptr when it cannot be opened.
  virtual std::unique_ptr<ReadableFile> openForReading(const std::string& path) = 0;

  // Whether something exists at `path` and whether it is a directory.
  virtual PathState pathState(const std::string& path) = 0;

  // Creates `path` and every missing parent. false on failure.
  virtual bool createDirectories(const std::string& path) = 0;

  // Creates the single directory `path`; false on failure, including when
  // anything already exists there.
  virtual bool createDirectory(const std::string& path) = 0;

  // Names of the entries directly inside `path`, hidden ones included, in the
  // order the directory yields them. nullopt when it cannot be listed.
  virtual std::optional<std::vector<std::string>> listDirectory(const std::string& path) = 0;

  // Walks everything below `path` depth first, skipping hidden entries (names
  // beginning with ".") and never descending into hidden directories. Calls
  // `visit` with the full path of each entry it yields; entries it cannot
  // descend into are passed over. Returns false when the walk cannot start.
  // A visitor that throws ends the walk; the exception propagates.
  virtual bool enumerate(const std::string& path,
                         const std::function<void(const std::string&)>& visit) = 0;

  // Replaces `path` with exactly `bytes`, atomically: a temporary file in the
  // same directory, then a rename. false on failure, leaving no temporary.
  virtual bool writeFileAtomically(const std::string& path, std::string_view bytes) = 0;
};

}  // namespace kvo
