// The system's clocks.
#pragma once

#include "platform/clock.h"

namespace paddock {

class LinuxClock : public Clock {
 public:
  std::chrono::system_clock::time_point now() override;
  std::chrono::steady_clock::time_point monotonicNow() override;
};

}  // namespace paddock
