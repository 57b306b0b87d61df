#include "daemon/http/known_rights.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "paddock/sys_logger.h"

namespace paddock {

using Clock = std::chrono::steady_clock;

KnownRights::KnownRights(Judge judge, std::function<void()> judged)
    : judge_(std::move(judge)), judged_(std::move(judged)), thread_([this] { run(); }) {}

KnownRights::~KnownRights() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  thread_.join();
}

std::optional<Rights> KnownRights::of(uid_t user) {
  if (AccessPolicy::isOwner(user)) return Rights::everything;
  const MutexLock lock(mutex_);
  if (const Rights* known = answers_.find(user, Clock::now())) return *known;
  if (std::find(wanted_.begin(), wanted_.end(), user) == wanted_.end()) {
    wanted_.push_back(user);
    changed_.notify_all();
  }
  return std::nullopt;
}

void KnownRights::note(uid_t user, Rights rights) {
  const MutexLock lock(mutex_);
  answers_.keep(user, rights, Clock::now());
}

void KnownRights::forget() {
  const MutexLock lock(mutex_);
  answers_.clear();
}

Rights KnownRights::judge(uid_t user) const {
  try {
    return judge_(user);
  } catch (const std::exception& error) {
    logMessage(3, "what user " + std::to_string(user) + " may do is not known: " + error.what());
    return Rights::nothing;
  }
}

void KnownRights::run() {
  MutexLock lock(mutex_);
  for (;;) {
    while (!stopping_ && wanted_.empty()) changed_.wait(mutex_);
    if (stopping_) return;
    const uid_t user = wanted_.front();
    lock.unlock();
    const Rights rights = judge(user);
    lock.lock();
    answers_.keep(user, rights, Clock::now());
    wanted_.pop_front();
    lock.unlock();
    judged_();
    lock.lock();
  }
}

}  // namespace paddock
