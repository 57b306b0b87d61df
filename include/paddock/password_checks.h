// Tests of passwords on directory nodes. Any thread may call.
//
// A test takes time on purpose (password hashes, delays of PAM), so that only a few run at once in
// the process, and who serves the request that asks for one is told what became of it.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "base/status.h"

namespace paddock {

// How many run at once. The others wait for their turn, this long when nothing else is said.
inline constexpr int kPasswordChecksAtOnce = 4;
inline constexpr std::chrono::seconds kPasswordCheckPatience{10};

struct PasswordCheck {
  std::string node;
  std::string name;
  bool passed = false;
};

// Calls `check`, which returns 0 for a password that is right and an errno otherwise, and returns
// what it returns, or EAGAIN when its turn did not come in time. What it throws passes; it says
// nothing of the password then, and nobody is told.
Status checkPassword(const std::string& node, const std::string& name,
                     const std::function<Status()>& check,
                     std::chrono::milliseconds patience = kPasswordCheckPatience);

// Is told of the checks that this thread makes during its own lifetime, each after it was made; of
// several the newest.
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
