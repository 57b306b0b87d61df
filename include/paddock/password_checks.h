// Password checks on directory nodes. Thread-safe.
//
// A check is slow on purpose (password hashes, PAM delays), so only a few run concurrently in the
// process, and the server of the request that asks for one is notified of its result.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "base/status.h"

namespace paddock {

// The number of concurrent checks. The others wait for their turn, by default this long.
inline constexpr int kPasswordChecksAtOnce = 4;
inline constexpr std::chrono::seconds kPasswordCheckPatience{10};

struct PasswordCheck {
  std::string node;
  std::string name;
  bool passed = false;
};

// Calls `check`, which returns 0 for a correct password and an errno otherwise, and returns its
// result, or EAGAIN when its turn did not come in time. Its exceptions propagate; they say nothing
// about the password, and no scope is notified.
Status checkPassword(const std::string& node, const std::string& name,
                     const std::function<Status()>& check,
                     std::chrono::milliseconds patience = kPasswordCheckPatience);

// Observer of this thread's checks during its own lifetime, notified after each; of several the
// newest.
class PasswordCheckScope {
 public:
  explicit PasswordCheckScope(std::function<void(const PasswordCheck&)> note);
  PasswordCheckScope(const PasswordCheckScope&) = delete;
  PasswordCheckScope& operator=(const PasswordCheckScope&) = delete;
  ~PasswordCheckScope();

 private:
  friend Status checkPassword(const std::string& node, const std::string& name,
                              const std::function<Status()>& check,
                              std::chrono::milliseconds patience);

  std::function<void(const PasswordCheck&)> note_;
  PasswordCheckScope* previous_;
};

}  // namespace paddock
