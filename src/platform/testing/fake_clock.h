// A clock that stands still until it is told to go on.
#pragma once

#include "platform/clock.h"

namespace paddock {

class FakeClock : public Clock {
 public:
  std::chrono::system_clock::time_point now() override { return now_; }
  std::chrono::steady_clock::time_point monotonicNow() override { return monotonicNow_; }

  void advance(std::chrono::nanoseconds duration) {
    now_ += std::chrono::duration_cast<std::chrono::system_clock::duration>(duration);
    monotonicNow_ += duration;
  }
  // Sets the time of day alone, as an administrator does.
  void setNow(std::chrono::system_clock::time_point now) { now_ = now; }

 private:
  std::chrono::system_clock::time_point now_{std::chrono::seconds(1'700'000'000)};
  std::chrono::steady_clock::time_point monotonicNow_{std::chrono::seconds(1'000)};
};

}  // namespace paddock
