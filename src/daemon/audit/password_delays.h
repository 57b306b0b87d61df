// Who tries passwords that do not match has to wait longer each time, so that nobody finds one by
// trying.
//
// Counted for each user who asks and each name that is tried, whatever the node and the letter
// case: kFree failures cost nothing, each further one doubles the time that must pass before the
// next attempt, from kFirst up to kLongest. A password that matches ends the count, and so does
// kForgotten without an attempt. At most kMostKept names are counted; the one that failed least
// often makes room for a new one. Measured by a clock that nobody can set. Any thread may call.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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

  // How long the user has to wait with an attempt for these names, which has its turn then; absent
  // when that would be longer than kLongestWait, and then it has none.
  std::optional<Clock::duration> takeTurn(uid_t user, const std::vector<std::string>& names,
                                          Clock::time_point now);
  // What became of an attempt.
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
  void makeRoom(Clock::time_point now);

  std::mutex mutex_;
  std::map<Key, Failures> failures_;
};

}  // namespace paddock
