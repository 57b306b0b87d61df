// The rule that the Nth call fails, as its service reports failure. See call_rules.h.
//
// A sweep raises N from 1 until an operation passes untouched:
//
//   for (std::size_t n = 1;; ++n) {
//     FaultPlan plan(n);
//     ForwardingServices faulty(real, plan);
//     const ServicesGuard guard(faulty.services());
//     operation();
//     ... what must hold whatever failed; plan.failedCall() says what it was
//     if (!plan.fired()) break;
//   }
#pragma once

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/status.h"
#include "platform/directory.h"
#include "platform/testing/call_rules.h"

namespace paddock {

// Set up before the first call.
class FaultPlan final : public CallRules {
 public:
  // `failingCall` counts from 1; 0: no call fails.
  explicit FaultPlan(std::size_t failingCall = 0)
      : CallRules([this](const ServiceCall& call) { return counts(call); }),
        failingCall_(failingCall) {
    failCall(1);
  }

  // Every call from the failing one on fails, not that one alone.
  void keepFailing() {
    forgetRules();
    failCall(kEveryTime);
  }
  // Only calls whose name begins with `prefix` are counted ("textFiles.", "record.").
  void countOnly(std::string prefix) { prefix_ = std::move(prefix); }
  // The error that services report by number; a DirectoryError without a "status" when absent.
  void setError(std::optional<Status> error) { error_ = error; }
  // For services that cannot say "no number".
  int errorNumber() const { return error_.value_or(EIO); }

  bool fired() const { return firstDecided().has_value(); }
  // The first call that failed; empty when none did.
  std::string failedCall() const { return firstDecided().value_or(ServiceCall()).name; }
  std::size_t callCount() const { return recorded().size(); }
  // The names of all calls so far, in order.
  std::vector<std::string> calls() const {
    std::vector<std::string> names;
    for (ServiceCall& call : recorded()) names.push_back(std::move(call.name));
    return names;
  }

 private:
  bool counts(const ServiceCall& call) const {
    return !call.name.empty() && call.name.starts_with(prefix_);
  }
  void failCall(int times) {
    if (failingCall_ == 0) return;
    when([](const ServiceCall&) { return true; },
         [this](const ServiceCall& call) { return failure(call); }, times,
         static_cast<int>(failingCall_ - 1));
  }
  int failure(const ServiceCall& call) const {
    if (!call.raises) return errorNumber();
    const std::string description = "injected failure of " + call.name;
    if (error_) throw DirectoryError(*error_, description);
    throw DirectoryError(description);
  }

  std::size_t failingCall_;
  std::string prefix_;
  std::optional<Status> error_ = EIO;
};

}  // namespace paddock
