#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <algorithm>
#include <stdexcept>

extern char** environ;

namespace kvo::test {

namespace fs = std::filesystem;

namespace {

std::string readAll(int fd) {
  std::string data;
  lseek(fd, 0, SEEK_SET);
  char buffer[65536];
  ssize_t n;
  while ((n = ::read(fd, buffer, sizeof buffer)) > 0) data.append(buffer, static_cast<size_t>(n));
  return data;
}

int tempFile() {
  char name[] = "/tmp/kvo-capture-XXXXXX";
  int fd = mkstemp(name);
  if (fd < 0) throw std::runtime_error("mkstemp failed");
  unlink(name);
  return fd;
}

}  // namespace

CapturedStreams captureStdStreams(const std::function<void()>& body) {
  std::fflush(stdout);
  std::fflush(stderr);
  std::cout.flush();
  std::cerr.flush();
  int savedOut = dup(1), savedErr = dup(2);
  int outFile = tempFile(), errFile = tempFile();
  dup2(outFile, 1);
  dup2(errFile, 2);
  auto restore = [&] {
    std::fflush(stdout);
    std::fflush(stderr);
    std::cout.flush();
    std::cerr.flush();
    dup2(savedOut, 1);
    dup2(savedErr, 2);
    close(savedOut);
    close(savedErr);
  };
  try {
    body();
  } catch (...) {
    restore();
    close(outFile);
    close(errFile);
    throw;
  }
  restore();
  CapturedStreams captured{readAll(outFile), readAll(errFile)};
  close(outFile);
  close(errFile);
  return captured;
}

TempDir::TempDir() {
  char name[] = "/tmp/kvo-test-XXXXXX";
  if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = name;
}

TempDir::~TempDir() {
  std::error_code ec;
  // Tests may drop permissions inside; give them back so removal works.
  for (auto it = fs::recursive_directory_iterator(path_, ec); !ec && it != fs::recursive_directory_iterator();
       it.increment(ec)) {
    fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  }
  fs::remove_all(path_, ec);
}

std::string fixturePath(const std::string& name) { return std::string(KVO_FIXTURES_DIR) + "/" + name; }

std::string corpusPath(const std::string& name) { return std::string(KVO_CORPUS_DIR) + "/" + name; }

bool corpusAvailable() { return fs::exists(std::string(KVO_CORPUS_DIR) + "/MANIFEST.tsv"); }

Bitmap fixtureBitmap(const std::string& name, double ppi) {
  const std::string bytes = readFile(fixturePath(name));
  std::istringstream in(bytes);
  std::string magic, token;
  int64_t width = 0, height = 0, depth = 3;
  in >> magic;
  if (magic == "P6") {
    int maxval = 0;
    in >> width >> height >> maxval;
    in.get();
  } else {
    while (in >> token && token != "ENDHDR") {
      if (token == "WIDTH") in >> width;
      if (token == "HEIGHT") in >> height;
      if (token == "DEPTH") in >> depth;
    }
    in.get();
  }
  const auto format = depth == 4 ? PixelFormat::rgba8 : PixelFormat::rgb8;
  Bitmap image = Bitmap::allocate(width, height, format);
  const size_t size = image.stride() * static_cast<size_t>(height);
  const auto offset = static_cast<size_t>(in.tellg());
  if (!image.valid() || bytes.size() != offset + size) {
    ADD_FAILURE() << "malformed fixture " << name;
    return Bitmap();
  }
  std::memcpy(image.data(), bytes.data() + offset, size);
  image.setPixelsPerInch(ppi);
  return image;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + path);
  out << bytes;
}

std::vector<std::string> listTree(const std::string& dir) {
  std::vector<std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    auto rel = fs::relative(entry.path(), dir).string();
    if (entry.is_directory()) rel += "/";
    entries.push_back(rel);
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

ProcessResult runProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv) {
  std::vector<std::string> envStrings;
  for (char** e = environ; *e != nullptr; ++e) envStrings.emplace_back(*e);
  for (const auto& e : extraEnv) envStrings.push_back(e);
  std::vector<char*> envp, args;
  for (auto& e : envStrings) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> argCopy = argv;
  for (auto& a : argCopy) args.push_back(a.data());
  args.push_back(nullptr);

  int outFile = tempFile(), errFile = tempFile();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, outFile, 1);
  posix_spawn_file_actions_adddup2(&actions, errFile, 2);
  pid_t pid;
  int rc = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    close(outFile);
    close(errFile);
    throw std::runtime_error(std::string("posix_spawn failed: ") + std::strerror(rc));
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ProcessResult result;
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = readAll(outFile);
  result.err = readAll(errFile);
  close(outFile);
  close(errFile);
  return result;
}

}  // namespace kvo::test
