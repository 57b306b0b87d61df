// Hands parts of a work from threads that have some to threads that have none.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace paddock {

// At most as many parts wait in it as there are threads, when they give only while `isWanted`.
template <typename Work>
class WorkQueue {
 public:
  explicit WorkQueue(unsigned threads) : threads_(threads) {}

  // Whether a thread waits that nothing was given for yet.
  bool isWanted() const { return wanted_.load(std::memory_order_relaxed) > 0; }
  void give(Work work) {
    {
      const std::lock_guard lock(mutex_);
      works_.push_back(std::move(work));
      updateWanted();
    }
    changed_.notify_one();
  }
  // Waits for work. Nothing when all threads wait, and from then on, or after `stop`.
  std::optional<Work> take() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    updateWanted();
    if (works_.empty() && waiting_ == static_cast<int>(threads_)) {
      stopped_ = true;
      changed_.notify_all();
    }
    changed_.wait(lock, [this] { return stopped_ || !works_.empty(); });
    if (stopped_) return std::nullopt;
    Work work = std::move(works_.front());
    works_.pop_front();
    --waiting_;
    updateWanted();
    return work;
  }
  // No thread gets work any more.
  void stop() {
    {
      const std::lock_guard lock(mutex_);
      stopped_ = true;
    }
    changed_.notify_all();
  }
  bool isStopped() const { return stopped_.load(std::memory_order_relaxed); }

 private:
  void updateWanted() { wanted_ = waiting_ - static_cast<int>(works_.size()); }

  const unsigned threads_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Work> works_;
  int waiting_ = 0;
  std::atomic<int> wanted_ = 0;
  std::atomic<bool> stopped_ = false;
};

}  // namespace paddock
