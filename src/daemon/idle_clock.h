// Ticks once a second on a thread of its own, numbered from 1.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace paddock {

class IdleClock {
 public:
  explicit IdleClock(std::function<void(std::uint64_t count)> tick,
                     std::chrono::milliseconds interval = std::chrono::seconds(1));
  IdleClock(const IdleClock&) = delete;
  IdleClock& operator=(const IdleClock&) = delete;
  // Waits for a tick that is under way.
  ~IdleClock();

 private:
  void run();

  std::function<void(std::uint64_t)> tick_;
  std::chrono::milliseconds interval_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace paddock
