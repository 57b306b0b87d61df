// Time.
#pragma once

#include <chrono>

namespace paddock {

class Clock {
 public:
  virtual ~Clock() = default;
  virtual std::chrono::system_clock::time_point now() = 0;
  // Never goes back.
  virtual std::chrono::steady_clock::time_point monotonicNow() = 0;
};

}  // namespace paddock
