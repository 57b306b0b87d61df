// Ticks once a second on a thread of its own, numbered from 1.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

#include "base/mutex.h"

namespace paddock {

class IdleClock {
 public:
  explicit IdleClock(std::function<void(std::uint64_t count)> tick,
                     std::chrono::milliseconds interval = std::chrono::seconds(1));
  IdleClock(const IdleClock&) = delete;
  IdleClock& operator=(const IdleClock&) = delete;
  // Waits for a running tick.
  ~IdleClock();

 private:
  void run();

  std::function<void(std::uint64_t)> tick_;
  std::chrono::milliseconds interval_;
  Mutex mutex_;
  ConditionVariable changed_;
  bool stopping_ PADDOCK_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace paddock
