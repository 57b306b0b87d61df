#include "daemon/http/request_gate.h"

namespace paddock {

bool RequestGate::enter(bool nested) {
  const std::scoped_lock lock(mutex_);
  if (closed_ && !nested) return false;
  ++receiving_;
  return true;
}

void RequestGate::bodyComplete() {
  const std::scoped_lock lock(mutex_);
  --receiving_;
  ++running_;
}

void RequestGate::leave(bool complete) {
  const std::scoped_lock lock(mutex_);
  --(complete ? running_ : receiving_);
  changed_.notify_all();
}

void RequestGate::close() {
  const std::scoped_lock lock(mutex_);
  closed_ = true;
}

bool RequestGate::closed() const {
  const std::scoped_lock lock(mutex_);
  return closed_;
}

void RequestGate::waitUntilEmpty(std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, patience, [this] { return receiving_ + running_ == 0; });
  changed_.wait(lock, [this] { return running_ == 0; });
}

}  // namespace paddock
