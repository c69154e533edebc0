#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kvo::fakes {

// One ordered record of what every fake was asked, shared by the fakes of a
// test so that the order of calls across services can be asserted (for
// example: the page image was written before the size guard walked the
// artifacts, and the guard before the recogniser ran).
class EventLog {
 public:
  void add(std::string event) { events_.push_back(std::move(event)); }
  const std::vector<std::string>& all() const { return events_; }
  void clear() { events_.clear(); }

  // The events that begin with `prefix`, in order.
  std::vector<std::string> matching(std::string_view prefix) const {
    std::vector<std::string> out;
    for (const auto& e : events_) {
      if (std::string_view(e).substr(0, prefix.size()) == prefix) out.push_back(e);
    }
    return out;
  }

  // Position of the first event equal to `event`; npos when it never happened.
  size_t indexOf(std::string_view event) const {
    for (size_t i = 0; i < events_.size(); ++i) {
      if (events_[i] == event) return i;
    }
    return npos;
  }

  static constexpr size_t npos = static_cast<size_t>(-1);

 private:
  std::vector<std::string> events_;
};

}  // namespace kvo::fakes
