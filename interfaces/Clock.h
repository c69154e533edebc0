#pragma once

namespace kvo {

// A monotonic clock: seconds since an arbitrary fixed point (boot).
class Clock {
 public:
  virtual ~Clock() = default;
  virtual double uptimeSeconds() = 0;
};

}  // namespace kvo
