// Threads that share one task.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "base/mutex.h"

namespace paddock {

// Runs each of `workers` on a thread of its own, and returns when all have ended. When one throws,
// or a thread cannot be created, `stop` is called, on any of the threads, possibly several times,
// and must make the others end; the first exception is then rethrown.
void runWorkers(const std::vector<std::function<void()>>& workers,
                const std::function<void()>& stop);

// Work-sharing queue: passes work items from busy threads to idle ones.

// Holds at most as many items as there are threads, provided that they give only while `isWanted`.
template <typename Work>
class WorkQueue {
 public:
  explicit WorkQueue(unsigned threads) : threads_(threads) {}

  // Whether a waiting thread has no item assigned yet.
  bool isWanted() const { return wanted_.load(std::memory_order_relaxed) > 0; }
  void give(Work work) {
    {
      const MutexLock lock(mutex_);
      works_.push_back(std::move(work));
      updateWanted();
    }
    changed_.notify_one();
  }
  // Blocks until an item is available. nullopt once all threads wait, or after `stop`.
  std::optional<Work> take() {
    MutexLock lock(mutex_);
    ++waiting_;
    updateWanted();
    if (works_.empty() && waiting_ == static_cast<int>(threads_)) {
      stopped_ = true;
      changed_.notify_all();
    }
    while (!stopped_ && works_.empty()) changed_.wait(mutex_);
    if (stopped_) return std::nullopt;
    Work work = std::move(works_.front());
    works_.pop_front();
    --waiting_;
    updateWanted();
    return work;
  }
  // No thread gets an item any more.
  void stop() {
    {
      const MutexLock lock(mutex_);
      stopped_ = true;
    }
    changed_.notify_all();
  }
  bool isStopped() const { return stopped_.load(std::memory_order_relaxed); }

 private:
  void updateWanted() PADDOCK_REQUIRES(mutex_) {
    wanted_ = waiting_ - static_cast<int>(works_.size());
  }

  const unsigned threads_;
  Mutex mutex_;
  ConditionVariable changed_;
  std::deque<Work> works_ PADDOCK_GUARDED_BY(mutex_);
  int waiting_ PADDOCK_GUARDED_BY(mutex_) = 0;
  std::atomic<int> wanted_ = 0;
  std::atomic<bool> stopped_ = false;
};

}  // namespace paddock
