#include "quotascan/work_queue.h"

#include <utility>

namespace paddock::quotascan {

void WorkQueue::give(Work work) {
  {
    const std::lock_guard lock(mutex_);
    works_.push_back(std::move(work));
    updateWanted();
  }
  changed_.notify_one();
}

std::optional<Work> WorkQueue::take() {
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

void WorkQueue::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  changed_.notify_all();
}

}  // namespace paddock::quotascan
