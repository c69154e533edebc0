#pragma once

#include <string_view>

namespace kvo {

// Owns the process's real standard output and standard error. On
// construction it keeps private duplicates of descriptors 1 and 2 and points
// 1 and 2 at /dev/null, so that whatever a library prints on its own (stdio,
// iostreams or raw writes) cannot reach the host; the helper's own lines go
// to the saved descriptors. The diversion lasts until the process exits.
class StandardStreams {
 public:
  StandardStreams();
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;

  // Write all of `text` to the real stream, unbuffered. Failures (a closed
  // pipe) are ignored: there is nowhere left to report them.
  void writeOutput(std::string_view text);
  void writeError(std::string_view text);

 private:
  int output_ = 1;
  int error_ = 2;
};

}  // namespace kvo
