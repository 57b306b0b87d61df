#include "platform/linux/database/lock_patience.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace paddock {

namespace {

constexpr std::array kSoundErrors = {ENOENT, EACCES, EINVAL, EEXIST, EBUSY, ENOSPC, ENOMEM};

}  // namespace

std::chrono::milliseconds LockPatience::timeout() const {
  return Clock::now() < lockedUntil_ ? std::chrono::milliseconds::zero() : patience_;
}

void LockPatience::waitedInVain() { lockedUntil_ = Clock::now() + patience_; }

bool isSoundSqliteError(int status) {
  return std::find(kSoundErrors.begin(), kSoundErrors.end(), status) != kSoundErrors.end();
}

}  // namespace paddock
