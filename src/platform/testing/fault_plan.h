// Which call fails.
//
// The wrappers Faulty* forward to the services that they wrap and count their calls in one plan.
// The plan's Nth call fails in the way in which the service reports failure, and never reaches
// the wrapped service; a sweep raises N from 1 until an operation passes untouched:
//
//   for (std::size_t n = 1;; ++n) {
//     FaultPlan plan(n);
//     FaultyServices faulty(real, plan);
//     const ServicesGuard guard(faulty.services());
//     operation();
//     ... what must hold whatever failed; plan.failedCall() says what it was
//     if (!plan.fired()) break;
//   }
#pragma once

#include <cerrno>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/status.h"

namespace paddock {

class FaultPlan {
 public:
  // `failingCall` counts from 1; 0: no call fails.
  explicit FaultPlan(std::size_t failingCall = 0) : failingCall_(failingCall) {}

  // Every call from the failing one on fails, not that one alone.
  void keepFailing() { keepFailing_ = true; }
  // Only calls whose name begins with `prefix` are counted ("textFiles.", "record.").
  void countOnly(std::string prefix) { prefix_ = std::move(prefix); }
  // The error that services report by number; a DirectoryError without a "status" when absent.
  void setError(std::optional<Status> error) { error_ = error; }
  std::optional<Status> error() const { return error_; }
  // For services that cannot say "no number".
  int errorNumber() const { return error_.value_or(EIO); }

  // Counts a call; true when it has to fail.
  bool fails(std::string_view call) {
    const std::lock_guard lock(mutex_);
    if (call.substr(0, prefix_.size()) != prefix_) return false;
    calls_.emplace_back(call);
    const bool now = failingCall_ != 0 &&
                     (keepFailing_ ? calls_.size() >= failingCall_ : calls_.size() == failingCall_);
    if (now && failedCall_.empty()) failedCall_ = call;
    return now;
  }

  bool fired() const { return !failedCall_.empty(); }
  // The first call that failed; empty when none did.
  const std::string& failedCall() const { return failedCall_; }
  std::size_t callCount() const { return calls_.size(); }
  // The names of all calls so far, in order.
  const std::vector<std::string>& calls() const { return calls_; }

 private:
  std::mutex mutex_;
  std::size_t failingCall_;
  bool keepFailing_ = false;
  std::string prefix_;
  std::optional<Status> error_ = EIO;
  std::vector<std::string> calls_;
  std::string failedCall_;
};

}  // namespace paddock
