#include "platform/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "platform/PosixIo.h"

namespace kvo {

StandardStreams::StandardStreams() {
  // A host that closes its end early must not kill the helper mid-run.
  std::signal(SIGPIPE, SIG_IGN);
  const int savedOutput = ::fcntl(1, F_DUPFD_CLOEXEC, 3);
  const int savedError = ::fcntl(2, F_DUPFD_CLOEXEC, 3);
  const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (savedOutput >= 0) output_ = savedOutput;
  if (savedError >= 0) error_ = savedError;
  if (null >= 0 && savedOutput >= 0 && savedError >= 0) {
    ::dup2(null, 1);
    ::dup2(null, 2);
  }
  if (null >= 0) ::close(null);
}

void StandardStreams::writeOutput(std::string_view text) { (void)posix::writeFully(output_, text); }

void StandardStreams::writeError(std::string_view text) { (void)posix::writeFully(error_, text); }

}  // namespace kvo
