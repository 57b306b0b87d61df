// Hands parts of a walk from threads that have work to threads that have none.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/file_descriptor.h"

namespace paddock::quotascan {

struct Work {
  FileDescriptor folder;
  bool isRead = false;        // only what follows is to be looked at; else the folder, to its end
  std::vector<char> entries;  // in the form of getdents64(2)
  std::string pending;        // names of folders in it, each behind a NUL
};

// At most as many parts wait in it as there are threads, when they give only while `isWanted`.
class WorkQueue {
 public:
  explicit WorkQueue(unsigned threads) : threads_(threads) {}

  // Whether a thread waits that nothing was given for yet.
  bool isWanted() const { return wanted_.load(std::memory_order_relaxed) > 0; }
  void give(Work work);
  // Waits for work. Nothing when all threads wait, and from then on, or after `stop`.
  std::optional<Work> take();
  // No thread gets work any more.
  void stop();
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

}  // namespace paddock::quotascan
