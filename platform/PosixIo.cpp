#include "platform/PosixIo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace kvo::posix {

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) ::close(fd_);
}

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

bool writeFully(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

std::optional<FileBytes> readWholeFile(const std::string& path, size_t maxBytes) {
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.get() < 0) return std::nullopt;
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0 || S_ISDIR(st.st_mode)) return std::nullopt;

  // A regular file is read into a buffer of its stated size; anything else
  // (or a file that grew since fstat) grows the buffer as data arrives.
  size_t capacity = S_ISREG(st.st_mode) && st.st_size > 0
                        ? std::min(static_cast<size_t>(st.st_size), maxBytes)
                        : size_t{1} << 16;
  FileBytes file;
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
      if (capacity + static_cast<size_t>(extra) > maxBytes) return std::nullopt;
      const size_t grown = std::min(std::max(capacity * 2, capacity + sizeof probe), maxBytes);
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

}  // namespace kvo::posix
