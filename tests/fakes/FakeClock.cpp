#include "fakes/FakeClock.h"

#include <algorithm>

namespace kvo::fakes {

double FakeClock::uptimeSeconds() {
  const int read = reads_++;
  if (hook_) hook_(read);
  if (uptimes_.empty()) return 0;
  return uptimes_[std::min(static_cast<size_t>(read), uptimes_.size() - 1)];
}

}  // namespace kvo::fakes
