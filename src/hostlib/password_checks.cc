#include "paddock/password_checks.h"

#include <cerrno>
#include <semaphore>
#include <utility>

namespace paddock {

namespace {

thread_local PasswordCheckScope* tScope = nullptr;

using Turns = std::counting_semaphore<kPasswordChecksAtOnce>;

Turns& turns() {
  static Turns all(kPasswordChecksAtOnce);
  return all;
}

// Given back also when the check throws.
class Turn {
 public:
  explicit Turn(std::chrono::milliseconds patience) : taken_(turns().try_acquire_for(patience)) {}
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;
  ~Turn() {
    if (taken_) turns().release();
  }
  bool taken() const { return taken_; }

 private:
  bool taken_;
};

}  // namespace

Status checkPassword(const std::string& node, const std::string& name,
                     const std::function<Status()>& check, std::chrono::milliseconds patience) {
  Status status = kSuccess;
  {
    const Turn turn(patience);
    if (!turn.taken()) return EAGAIN;
    status = check();
  }
  if (tScope != nullptr) tScope->note_({node, name, status == kSuccess});
  return status;
}

PasswordCheckScope::PasswordCheckScope(std::function<void(const PasswordCheck&)> note)
    : note_(std::move(note)), previous_(std::exchange(tScope, this)) {}

PasswordCheckScope::~PasswordCheckScope() { tScope = previous_; }

}  // namespace paddock
