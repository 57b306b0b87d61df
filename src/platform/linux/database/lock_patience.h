// What the errors of a database mean for the calls that come after them.
#pragma once

#include <chrono>

namespace paddock {

// How long a lock of another program is waited for. After a wait in vain the next calls, for as
// long again, do not wait at all: a database that stays locked costs a request one wait, not one
// per look-up.
class LockPatience {
 public:
  explicit LockPatience(std::chrono::milliseconds patience) : patience_(patience) {}
  std::chrono::milliseconds timeout() const;
  void waitedInVain();

 private:
  using Clock = std::chrono::steady_clock;
  std::chrono::milliseconds patience_;
  Clock::time_point lockedUntil_;
};

// Whether an error with this status says nothing against the file or the connection.
bool isSoundSqliteError(int status);

}  // namespace paddock
