#pragma once

#include <functional>
#include <string>
#include <vector>

#include "interfaces/Bitmap.h"

namespace kvo::test {

// What reached the process's file descriptors 1 and 2 while a function ran.
struct CapturedStreams {
  std::string out;
  std::string err;
};

// Runs `body` with descriptors 1 and 2 pointed at temporary files (so that
// anything a library writes, through stdio, iostreams or write(2), is caught)
// and returns what was written. Both descriptors are restored afterwards.
CapturedStreams captureStdStreams(const std::function<void()>& body);

// A fresh directory under the system temp dir, removed with its contents
// when the object goes away.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Full path of a generated fixture (below build/fixtures).
std::string fixturePath(const std::string& name);
// A fixture image written by make_ocr_fixtures.py: binary PPM (rgb8) or PAM
// with RGB_ALPHA (rgba8), at `ppi` (0: unknown). An invalid bitmap, and a
// test failure, when the file is malformed.
Bitmap fixtureBitmap(const std::string& name, double ppi = 0);
// Full path below the shared conformance corpus; corpusAvailable() tells
// whether it is present at all.
std::string corpusPath(const std::string& name);
bool corpusAvailable();

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
// Sorted relative paths of everything below `dir` (directories end in "/").
std::vector<std::string> listTree(const std::string& dir);

// The result of running a program to completion.
struct ProcessResult {
  int exitStatus = -1;  // exit code, or 128 + signal number when killed
  std::string out;
  std::string err;
};

// Runs `argv` (argv[0] is the program path) with stdin from /dev/null and
// the given extra environment entries ("NAME=value") added.
ProcessResult runProcess(const std::vector<std::string>& argv,
                         const std::vector<std::string>& extraEnv = {});

}  // namespace kvo::test
