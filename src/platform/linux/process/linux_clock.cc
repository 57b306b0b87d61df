#include "platform/linux/process/linux_clock.h"

namespace paddock {

std::chrono::system_clock::time_point LinuxClock::now() { return std::chrono::system_clock::now(); }

std::chrono::steady_clock::time_point LinuxClock::monotonicNow() {
  return std::chrono::steady_clock::now();
}

}  // namespace paddock
