// How much memory the requests that are under way may take together: their bodies, the trees that
// are read from them, and their replies.
#pragma once

#include <cstddef>
#include <mutex>

#include "daemon/audit/access_policy.h"

namespace paddock {

// Any thread.
class MemoryBudget {
 public:
  explicit MemoryBudget(std::size_t bytes = 256U << 20U) : bytes_(bytes) {}

  // For what is taken from now on.
  void change(std::size_t bytes);

  // False when there is not so much left. Who may only read gets at most half of it all.
  bool take(std::size_t bytes, Rights rights);
  // For what cannot be refused; the others have less meanwhile.
  void takeAnyway(std::size_t bytes, Rights rights);
  void giveBack(std::size_t bytes, Rights rights);

 private:
  std::mutex mutex_;
  std::size_t bytes_;
  std::size_t taken_ = 0;
  std::size_t takenByViewers_ = 0;
};

// What one request has taken, given back at its end. Belongs to one thread.
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
