#include "FuzzSupport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace kvo::fuzz {

const std::string& writeInput(const uint8_t* data, size_t size) {
  static const std::string path = [] {
    const char* base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    return std::string(base) + "/kvo-fuzz-input-" + std::to_string(getpid());
  }();
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0) std::abort();
  size_t done = 0;
  while (done < size) {
    ssize_t n = ::write(fd, data + done, size - done);
    if (n <= 0) std::abort();
    done += static_cast<size_t>(n);
  }
  ::close(fd);
  return path;
}

}  // namespace kvo::fuzz
