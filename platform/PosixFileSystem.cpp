#include "platform/PosixFileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "platform/PosixIo.h"

namespace kvo {

namespace {

class PosixReadableFile final : public ReadableFile {
 public:
  explicit PosixReadableFile(int fd) : fd_(fd) {}
  ~PosixReadableFile() override { ::close(fd_); }
  PosixReadableFile(const PosixReadableFile&) = delete;
  PosixReadableFile& operator=(const PosixReadableFile&) = delete;

  std::vector<uint8_t> read(size_t count) override {
    std::vector<uint8_t> data(count);
    const ssize_t filled = posix::readFully(fd_, data.data(), count);
    if (filled < 0) throw std::system_error(errno, std::generic_category(), "Failed to read input file");
    data.resize(static_cast<size_t>(filled));
    return data;
  }

 private:
  int fd_;
};

std::string join(const std::string& directory, const char* name) {
  return directory.back() == '/' ? directory + name : directory + "/" + name;
}

mode_t creationMode() {
  // New files get 0666 less the process's umask, like any other file the
  // host's tools would create.
  mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

// Walks `directory` depth first; symbolic links to directories are listed
// but not followed.
void walk(const std::string& directory, const std::function<void(const std::string&)>& visit) {
  DIR* dir = ::opendir(directory.c_str());
  if (dir == nullptr) return;
  std::vector<std::pair<std::string, bool>> entries;
  while (dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] == '.') continue;  // hidden, and "." and ".."
    std::string path = join(directory, entry->d_name);
    struct stat st {};
    const bool isDirectory = ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
    entries.emplace_back(std::move(path), isDirectory);
  }
  ::closedir(dir);
  for (const auto& [path, isDirectory] : entries) {
    visit(path);
    if (isDirectory) walk(path, visit);
  }
}

}  // namespace

std::optional<FileMetadata> PosixFileSystem::metadata(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return std::nullopt;
  FileMetadata metadata;
  metadata.isRegularFile = S_ISREG(st.st_mode);
  metadata.size = static_cast<uint64_t>(st.st_size);
  return metadata;
}

std::unique_ptr<ReadableFile> PosixFileSystem::openForReading(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  return std::make_unique<PosixReadableFile>(fd);
}

PathState PosixFileSystem::pathState(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return PathState::missing;
  return S_ISDIR(st.st_mode) ? PathState::directory : PathState::notDirectory;
}

bool PosixFileSystem::createDirectories(const std::string& path) {
  std::string partial;
  size_t start = 0;
  while (start < path.size()) {
    size_t slash = path.find('/', start + 1);
    if (slash == std::string::npos) slash = path.size();
    partial = path.substr(0, slash);
    start = slash;
    if (partial.empty() || partial == "/") continue;
    if (::mkdir(partial.c_str(), 0777) != 0 && errno != EEXIST) return false;
  }
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool PosixFileSystem::createDirectory(const std::string& path) { return ::mkdir(path.c_str(), 0777) == 0; }

std::optional<std::vector<std::string>> PosixFileSystem::listDirectory(const std::string& path) {
  DIR* dir = ::opendir(path.c_str());
  if (dir == nullptr) return std::nullopt;
  std::vector<std::string> names;
  errno = 0;
  while (dirent* entry = ::readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
  }
  const bool failed = errno != 0;
  ::closedir(dir);
  if (failed) return std::nullopt;
  return names;
}

bool PosixFileSystem::enumerate(const std::string& path, const std::function<void(const std::string&)>& visit) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
  DIR* probe = ::opendir(path.c_str());
  if (probe == nullptr) return false;
  ::closedir(probe);
  walk(path, visit);
  return true;
}

bool PosixFileSystem::writeFileAtomically(const std::string& path, std::string_view bytes) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  // Hidden, so the size guard never counts a half-written file.
  std::string temporary = directory + "." + name + ".XXXXXX";
  int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) return false;
  const bool written = posix::writeFully(fd, bytes) && ::fchmod(fd, creationMode()) == 0;
  const bool closed = ::close(fd) == 0;
  if (!written || !closed || ::rename(temporary.c_str(), path.c_str()) != 0) {
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace kvo
