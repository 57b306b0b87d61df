#include "daemon/idle_clock.h"

#include <algorithm>

namespace paddock {

IdleClock::IdleClock(std::function<void(std::uint64_t)> tick, std::chrono::milliseconds interval)
    : tick_(std::move(tick)), interval_(interval), thread_([this] { run(); }) {}

IdleClock::~IdleClock() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

void IdleClock::run() {
  auto due = std::chrono::steady_clock::now() + interval_;
  for (std::uint64_t count = 1;; ++count) {
    {
      MutexLock lock(mutex_);
      while (!stopping_ && changed_.wait_until(mutex_, due)) continue;
      if (stopping_) return;
    }
    tick_(count);
    // Ticks that a slow one left no room for are left out, not made up for.
    due = std::max(due + interval_, std::chrono::steady_clock::now());
  }
}

}  // namespace paddock
