// Memory limit for all requests in progress together: their bodies, the trees parsed from them, and
// their replies.
#pragma once

#include <cstddef>

#include "base/mutex.h"
#include "daemon/audit/access_policy.h"

namespace paddock {

// Thread-safe.
class MemoryBudget {
 public:
  explicit MemoryBudget(std::size_t bytes = 256U << 20U) : bytes_(bytes) {}

  // Applies to later reservations.
  void change(std::size_t bytes);

  // False when not enough is left. Users who may only read get at most half of the total.
  bool take(std::size_t bytes, Rights rights);
  // For reservations that cannot be refused; they reduce what is left for the others.
  void takeAnyway(std::size_t bytes, Rights rights);
  void giveBack(std::size_t bytes, Rights rights);

 private:
  Mutex mutex_;
  std::size_t bytes_ PADDOCK_GUARDED_BY(mutex_);
  std::size_t taken_ PADDOCK_GUARDED_BY(mutex_) = 0;
  std::size_t takenByViewers_ PADDOCK_GUARDED_BY(mutex_) = 0;
};

// The reservation of one request, released in the destructor. Belongs to one thread.
class MemoryShare {
 public:
  // `always`: nothing is refused, because a request waits for this one.
  MemoryShare(MemoryBudget& budget, Rights rights, bool always)
      : budget_(budget), rights_(rights), always_(always) {}
  MemoryShare(const MemoryShare&) = delete;
  MemoryShare& operator=(const MemoryShare&) = delete;
  ~MemoryShare() { giveBack(taken_); }

  bool take(std::size_t bytes);
  void takeAnyway(std::size_t bytes);
  void giveBack(std::size_t bytes);

 private:
  MemoryBudget& budget_;
  const Rights rights_;
  const bool always_;
  std::size_t taken_ = 0;
};

}  // namespace paddock
