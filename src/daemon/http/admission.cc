#include "daemon/http/admission.h"

#include <unistd.h>

#include <algorithm>

#include "paddock/run_program.h"

namespace paddock {

bool isAlwaysAdmitted(pid_t process) { return process == ::getpid() || isRunningProgram(process); }

void ConnectionLimits::change(std::size_t connections, std::size_t perUser) {
  const MutexLock lock(mutex_);
  connections_ = connections;
  perUser_ = perUser;
}

bool ConnectionLimits::hasPlaceFor(Rights rights) const {
  if (rights == Rights::nothing) return takenWith(Rights::nothing) < kStrangers;
  const std::size_t viewers = takenWith(Rights::viewing);
  const std::size_t kept = std::min(kKeptForAdministrators, connections_ / 2);
  if (rights == Rights::viewing && viewers >= connections_ - kept) return false;
  return viewers + takenWith(Rights::everything) < connections_;
}

bool ConnectionLimits::take(uid_t user, Rights rights) {
  const MutexLock lock(mutex_);
  if (!hasPlaceFor(rights)) return false;
  const bool stranger = rights == Rights::nothing;
  auto& count = (stranger ? strangers_ : users_)[user];
  if (count >= (stranger ? kStrangersPerUser : perUser_)) return false;
  ++count;
  ++takenWith(rights);
  return true;
}

void ConnectionLimits::giveBack(uid_t user, Rights rights) {
  const MutexLock lock(mutex_);
  --takenWith(rights);
  Users& users = rights == Rights::nothing ? strangers_ : users_;
  const auto found = users.find(user);
  if (--found->second == 0) users.erase(found);
}

bool ConnectionLimits::takeWaiting() {
  const MutexLock lock(mutex_);
  if (takenWaiting_ >= waiting_) return false;
  ++takenWaiting_;
  return true;
}

void ConnectionLimits::giveBackWaiting() {
  const MutexLock lock(mutex_);
  --takenWaiting_;
}

ConnectionPlace::~ConnectionPlace() {
  if (taken_) limits_.giveBack(user_, *taken_);
  if (waiting_) limits_.giveBackWaiting();
}

bool ConnectionPlace::take(Rights rights) {
  if (taken_ == rights) return true;
  if (!limits_.take(user_, rights)) return false;
  if (taken_) limits_.giveBack(user_, *taken_);
  taken_ = rights;
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

bool RequestGate::enter(bool nested) {
  const MutexLock lock(mutex_);
  if (closed_ && !nested) return false;
  ++receiving_;
  return true;
}

void RequestGate::bodyComplete() {
  const MutexLock lock(mutex_);
  --receiving_;
  ++running_;
}

void RequestGate::leave(bool complete) {
  const MutexLock lock(mutex_);
  --(complete ? running_ : receiving_);
  changed_.notify_all();
}

void RequestGate::close() {
  const MutexLock lock(mutex_);
  closed_ = true;
}

bool RequestGate::closed() const {
  const MutexLock lock(mutex_);
  return closed_;
}

void RequestGate::waitUntilEmpty(std::chrono::milliseconds patience) {
  MutexLock lock(mutex_);
  const auto end = std::chrono::steady_clock::now() + patience;
  while (receiving_ + running_ != 0 && changed_.wait_until(mutex_, end)) continue;
  while (running_ != 0) changed_.wait(mutex_);
}

}  // namespace paddock
