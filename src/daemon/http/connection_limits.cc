#include "daemon/http/connection_limits.h"

namespace paddock {

void ConnectionLimits::change(std::size_t connections, std::size_t perUser) {
  const std::scoped_lock lock(mutex_);
  connections_ = connections;
  perUser_ = perUser;
}

bool ConnectionLimits::take(uid_t user) {
  const std::scoped_lock lock(mutex_);
  if (taken_ >= connections_) return false;
  auto& count = users_[user];
  if (count >= perUser_) return false;
  ++count;
  ++taken_;
  return true;
}

void ConnectionLimits::giveBack(uid_t user) {
  const std::scoped_lock lock(mutex_);
  --taken_;
  const auto found = users_.find(user);
  if (--found->second == 0) users_.erase(found);
}

bool ConnectionLimits::takeWaiting() {
  const std::scoped_lock lock(mutex_);
  if (takenWaiting_ >= waiting_) return false;
  ++takenWaiting_;
  return true;
}

void ConnectionLimits::giveBackWaiting() {
  const std::scoped_lock lock(mutex_);
  --takenWaiting_;
}

ConnectionPlace::~ConnectionPlace() {
  if (taken_) limits_.giveBack(user_);
  if (waiting_) limits_.giveBackWaiting();
}

bool ConnectionPlace::take() {
  if (taken_ || !limits_.take(user_)) return taken_;
  taken_ = true;
  if (waiting_) {
    limits_.giveBackWaiting();
    waiting_ = false;
  }
  return true;
}

bool ConnectionPlace::wait() {
  if (!waiting_) waiting_ = limits_.takeWaiting();
  return waiting_;
}

}  // namespace paddock
