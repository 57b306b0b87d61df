#include "daemon/audit/password_delays.h"

#include <algorithm>

#include "base/text.h"

namespace paddock {

namespace {

// No account has a longer name; a name of a request may have any length.
constexpr std::size_t kNameBytes = 256;
// Doubled so often kFirst is above kLongest.
constexpr unsigned kMostDoublings = 8;

}  // namespace

PasswordDelays::Key PasswordDelays::keyOf(uid_t user, const std::string& name) {
  return {user, asciiLower(std::string_view(name).substr(0, kNameBytes))};
}

PasswordDelays::Clock::duration PasswordDelays::delayAfter(unsigned failures) {
  if (failures < kFree) return {};
  const unsigned doublings = std::min(failures - kFree, kMostDoublings);
  return std::min(kFirst * (1U << doublings), kLongest);
}

std::optional<PasswordDelays::Clock::duration> PasswordDelays::takeTurn(
    uid_t user, const std::vector<std::string>& names, Clock::time_point now) {
  const MutexLock lock(mutex_);
  std::vector<Failures*> counted;
  Clock::time_point turn = now;
  for (const std::string& name : names) {
    const auto found = failures_.find(keyOf(user, name));
    if (found == failures_.end() || found->second.last + kForgotten < now) continue;
    counted.push_back(&found->second);
    turn = std::max(turn, found->second.next);
  }
  if (turn - now > kLongestWait) return std::nullopt;
  // As if it were going to fail: several at once have their turns one after the other.
  for (Failures* failures : counted) failures->next = turn + delayAfter(failures->count);
  return turn - now;
}

void PasswordDelays::note(uid_t user, const std::string& name, bool passed, Clock::time_point now) {
  const MutexLock lock(mutex_);
  const Key key = keyOf(user, name);
  if (passed) {
    failures_.erase(key);
    return;
  }
  if (failures_.find(key) == failures_.end()) makeRoom(now);
  Failures& failures = failures_[key];
  if (failures.last + kForgotten < now) failures.count = 0;
  ++failures.count;
  failures.last = now;
  failures.next = std::max(failures.next, now + delayAfter(failures.count));
}

void PasswordDelays::makeRoom(Clock::time_point now) {
  if (failures_.size() < kMostKept) return;
  std::erase_if(failures_, [now](const auto& one) { return one.second.last + kForgotten < now; });
  if (failures_.size() < kMostKept) return;
  // Names that are tried once each push out each other, and not one that is guessed at.
  failures_.erase(
      std::min_element(failures_.begin(), failures_.end(), [](const auto& left, const auto& right) {
        return std::pair(left.second.count, left.second.last) <
               std::pair(right.second.count, right.second.last);
      }));
}

}  // namespace paddock
