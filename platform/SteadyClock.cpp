#include "platform/SteadyClock.h"

#include <ctime>

namespace kvo {

double SteadyClock::uptimeSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

}  // namespace kvo
