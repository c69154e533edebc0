#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// The one place the platform reads and writes file descriptors: the file
// system, the image codec and the standard streams share these loops.
namespace kvo::posix {

// Owns a descriptor; closes it when it is valid.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor();
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Reads up to `capacity` bytes, through interrupted and short reads; returns
// the count (less only at end of file), or -1 on a read error (errno tells).
ssize_t readFully(int fd, uint8_t* out, size_t capacity);

// Writes all of `bytes`, through interrupted and partial writes; false on a
// write error (errno tells).
bool writeFully(int fd, std::string_view bytes);

struct FileBytes {
  std::unique_ptr<uint8_t[]> bytes;
  size_t size = 0;
};

// The whole content of the file at `path`; nullopt when it cannot be opened
// or read, is a directory, holds more than `maxBytes` (reading stops there,
// so a file that grows while being read cannot exhaust memory) or the
// memory cannot be had.
std::optional<FileBytes> readWholeFile(const std::string& path, size_t maxBytes);

}  // namespace kvo::posix
