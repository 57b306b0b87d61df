#include "daemon/http/known_rights.h"

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

#include "paddock/sys_logger.h"

namespace paddock {

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
  const auto found = answers_.find(user);
  if (found != answers_.end() && Clock::now() < found->second.until) return found->second.rights;
  if (std::find(wanted_.begin(), wanted_.end(), user) == wanted_.end()) {
    wanted_.push_back(user);
    changed_.notify_all();
  }
  return std::nullopt;
}

void KnownRights::note(uid_t user, Rights rights) {
  const MutexLock lock(mutex_);
  keep(user, rights);
}

void KnownRights::forget() {
  const MutexLock lock(mutex_);
  answers_.clear();
}

void KnownRights::keep(uid_t user, Rights rights) {
  if (answers_.size() >= kMost) {
    const auto now = Clock::now();
    std::erase_if(answers_, [now](const auto& entry) { return entry.second.until <= now; });
    if (answers_.size() >= kMost) answers_.clear();
  }
  answers_[user] = {rights, Clock::now() + kHolds};
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
    keep(user, rights);
    wanted_.pop_front();
    lock.unlock();
    judged_();
    lock.lock();
  }
}

}  // namespace paddock
