#include "handler/settings_lock.h"

#include <optional>
#include <utility>

#include "base/text.h"
#include "paddock/request_conditions.h"

namespace paddock {

Mutex* gSettingsDictLock = nullptr;

namespace {

using Clock = std::chrono::steady_clock;

// What holds the lock without a guard tells nobody when it lets go; it is asked again this often.
constexpr std::chrono::milliseconds kPollInterval{20};

struct Holder {
  const char* operation = nullptr;
  std::string path;
  Clock::time_point since;
};

Mutex gHolderMutex;
ConditionVariable gReleased;
std::optional<Holder> gHolder PADDOCK_GUARDED_BY(gHolderMutex);
SettingsLockPatience gPatience;

std::string whoHoldsIt() PADDOCK_REQUIRES(gHolderMutex) {
  if (!gHolder) return "the settings are in use";
  const auto held = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - gHolder->since);
  return "the settings are in use by " + std::string(gHolder->operation) +
         (gHolder->path.empty() ? "" : " of " + printable(gHolder->path)) + " for " +
         std::to_string(held.count()) + " s";
}

std::optional<Clock::time_point> deadlineOf(SettingsLockGuard::Wait wait) {
  if (wait == SettingsLockGuard::Wait::unbounded || !gPatience) return {};
  return Clock::now() + gPatience();
}

}  // namespace

void setSettingsLockPatience(SettingsLockPatience patience) { gPatience = std::move(patience); }

// The analysis does not follow a lock that is tried in a loop.
SettingsLockGuard::SettingsLockGuard(const char* operation, const std::string* path,
                                     Wait wait) PADDOCK_NO_THREAD_SAFETY_ANALYSIS {
  const auto deadline = deadlineOf(wait);
  // Made before: nothing may be thrown once the lock is taken.
  Holder holder{operation, path != nullptr ? *path : std::string(), {}};
  const MutexLock lock(gHolderMutex);
  while (!gSettingsDictLock->try_lock()) {
    const Clock::time_point now = Clock::now();
    if (deadline && now >= *deadline)
      throw OperationBusy(whoHoldsIt() +
                          "; nothing was done. Ask again later ([limits] lock_seconds)");
    gReleased.wait_until(gHolderMutex, now + kPollInterval);
  }
  holder.since = Clock::now();
  gHolder = std::move(holder);
}

SettingsLockGuard::~SettingsLockGuard() PADDOCK_NO_THREAD_SAFETY_ANALYSIS {
  const MutexLock lock(gHolderMutex);
  gHolder.reset();
  gSettingsDictLock->unlock();
  gReleased.notify_one();
}

}  // namespace paddock
