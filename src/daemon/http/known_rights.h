// What users may do, as far as it was found out not long ago, and a thread that finds it out.
//
// The system's users and groups may be kept by a directory server, and asking may take long. Who
// accepts connections must not wait for that, or one user's slow answer would keep everybody out.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "daemon/audit/access_policy.h"

namespace paddock {

// Any thread. It decides about places for connections alone: each request is judged anew.
class KnownRights {
 public:
  using Judge = std::function<Rights(uid_t)>;

  // How long an answer holds.
  static constexpr std::chrono::seconds kHolds{5};
  // How many users are remembered.
  static constexpr std::size_t kMost = 1024;

  // `judge` is called on the thread, and then `judged`.
  KnownRights(Judge judge, std::function<void()> judged);
  KnownRights(const KnownRights&) = delete;
  KnownRights& operator=(const KnownRights&) = delete;
  ~KnownRights();

  // Nothing when it is not known; then the thread finds it out.
  std::optional<Rights> of(uid_t user);
  // What was found out otherwise.
  void note(uid_t user, Rights rights);
  // Who belongs to which group may mean something else from now on.
  void forget();

 private:
  using Clock = std::chrono::steady_clock;
  struct Answer {
    Rights rights = Rights::nothing;
    Clock::time_point until;
  };

  void run();
  Rights judge(uid_t user) const;
  void keep(uid_t user, Rights rights);

  const Judge judge_;
  const std::function<void()> judged_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<uid_t, Answer> answers_;
  std::deque<uid_t> wanted_;  // each once; the first one is being judged
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace paddock
