// The module-wide lock, taken for an operation: how long it is waited for, and who holds it.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "base/mutex.h"

namespace paddock {

// Serialises the operations; created by SharingRequestHandler::initialize, never destroyed.
extern Mutex* gSettingsDictLock;

// How long an operation waits for the lock; called for each wait, on the waiting thread. Without
// one the wait has no bound. Set before the first request.
using SettingsLockPatience = std::function<std::chrono::milliseconds()>;
void setSettingsLockPatience(SettingsLockPatience patience);

// Holds `gSettingsDictLock` from its construction to its end.
class PADDOCK_SCOPED_CAPABILITY SettingsLockGuard {
 public:
  enum class Wait {
    bounded,   // throws OperationBusy, which names the holder, when the patience is over
    unbounded  // for what has to be told of a change that is done
  };

  // `operation`: a literal. `path`: the folder that it is about, or null.
  SettingsLockGuard(const char* operation, const std::string* path, Wait wait = Wait::bounded)
      PADDOCK_ACQUIRE(*gSettingsDictLock);
  SettingsLockGuard(const SettingsLockGuard&) = delete;
  SettingsLockGuard& operator=(const SettingsLockGuard&) = delete;
  ~SettingsLockGuard() PADDOCK_RELEASE();
};

}  // namespace paddock
