#pragma once

#include "interfaces/Clock.h"

namespace kvo {

// Seconds of the monotonic clock (CLOCK_MONOTONIC: time since boot).
class SteadyClock final : public Clock {
 public:
  double uptimeSeconds() override;
};

}  // namespace kvo
