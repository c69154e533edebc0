#pragma once

#include <functional>
#include <vector>

#include "interfaces/Clock.h"

namespace kvo::fakes {

// A clock that returns the scripted uptimes in turn and then keeps returning
// the last one. An optional hook runs at every read (told which read it is,
// from 0), so a test can look at the world at the moment time was taken.
class FakeClock : public Clock {
 public:
  explicit FakeClock(std::vector<double> uptimes = {100.0, 100.25}) : uptimes_(std::move(uptimes)) {}

  void script(std::vector<double> uptimes) { uptimes_ = std::move(uptimes); }
  void onRead(std::function<void(int)> hook) { hook_ = std::move(hook); }
  int reads() const { return reads_; }

  double uptimeSeconds() override;

 private:
  std::vector<double> uptimes_;
  std::function<void(int)> hook_;
  int reads_ = 0;
};

}  // namespace kvo::fakes
