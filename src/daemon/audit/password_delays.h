// Exponential back-off for failed password attempts, against guessing.
//
// Counted per calling user and name tried, whatever the node and the letter case: kFree failures
// cost nothing, each further one doubles the time that must pass before the next attempt, from
// kFirst up to kLongest. A password that matches resets the count, and so does kForgotten without
// an attempt. At most kMostKept names are counted; the one with the fewest failures is evicted for
// a new one. Measured by a monotonic clock. Thread-safe.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"

namespace paddock {

class PasswordDelays {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr unsigned kFree = 3;
  static constexpr std::chrono::milliseconds kFirst{250};
  static constexpr std::chrono::milliseconds kLongest{4000};
  static constexpr std::chrono::milliseconds kLongestWait{10000};
  static constexpr std::chrono::minutes kForgotten{15};
  static constexpr std::size_t kMostKept = 1024;

  // Reserves the next attempt for these names and returns how long the user has to wait for it;
  // nullopt, without a reservation, when that would exceed kLongestWait.
  std::optional<Clock::duration> takeTurn(uid_t user, const std::vector<std::string>& names,
                                          Clock::time_point now);
  // Records the outcome of an attempt.
  void note(uid_t user, const std::string& name, bool passed, Clock::time_point now);

 private:
  using Key = std::pair<uid_t, std::string>;
  struct Failures {
    unsigned count = 0;
    Clock::time_point next;  // the earliest time of the next attempt
    Clock::time_point last;  // failure
  };

  static Key keyOf(uid_t user, const std::string& name);
  static Clock::duration delayAfter(unsigned failures);
  void makeRoom(Clock::time_point now) PADDOCK_REQUIRES(mutex_);

  Mutex mutex_;
  std::map<Key, Failures> failures_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
