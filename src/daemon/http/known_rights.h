// Cache of users' rights, and the thread that looks them up.
//
// The system's users and groups may be kept by a directory server, and lookups may take long. The
// acceptor must not wait for them, or one slow lookup would block all users.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <thread>

#include "base/mutex.h"
#include "base/timed_cache.h"
#include "daemon/audit/access_policy.h"

namespace paddock {

// Thread-safe. Used only to place connections: each request is checked anew.
class KnownRights {
 public:
  using Judge = std::function<Rights(uid_t)>;

  // Lifetime of an entry.
  static constexpr std::chrono::seconds kHolds{5};
  // Maximum number of cached users.
  static constexpr std::size_t kMost = 1024;

  // `judge` and then `judged` are called on the thread.
  KnownRights(Judge judge, std::function<void()> judged);
  KnownRights(const KnownRights&) = delete;
  KnownRights& operator=(const KnownRights&) = delete;
  ~KnownRights();

  // nullopt when not cached; the thread then looks it up.
  std::optional<Rights> of(uid_t user) PADDOCK_EXCLUDES(mutex_);
  // Records a result obtained elsewhere.
  void note(uid_t user, Rights rights) PADDOCK_EXCLUDES(mutex_);
  // Invalidates the cache: group membership may have another meaning from now on.
  void forget() PADDOCK_EXCLUDES(mutex_);

 private:
  void run() PADDOCK_EXCLUDES(mutex_);
  Rights judge(uid_t user) const;

  const Judge judge_;
  const std::function<void()> judged_;
  Mutex mutex_;
  ConditionVariable changed_;
  TimedCache<uid_t, Rights> answers_ PADDOCK_GUARDED_BY(mutex_){kHolds, kMost};
  // Each once; the first one is being looked up.
  std::deque<uid_t> wanted_ PADDOCK_GUARDED_BY(mutex_);
  bool stopping_ PADDOCK_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace paddock
