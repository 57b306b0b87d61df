// Rules that see the calls of platform services as text, and let chosen ones fail or be answered
// otherwise. See call_rules.h; what a call is named by is said at each wrapper.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/testing/call_rules.h"

namespace paddock {

class ServiceTrace final : public CallRules {
 public:
  ServiceTrace() : CallRules([](const ServiceCall& call) { return !call.operation.empty(); }) {}

  using CallRules::when;
  void when(const std::string& operation, Effect effect, int times = kEveryTime, int skip = 0) {
    when([operation](const ServiceCall& call) { return call.operation == operation; },
         std::move(effect), times, skip);
  }
  // Throws a copy of `error` from the operation.
  template <typename Error>
  void raise(const std::string& operation, const Error& error, int times = kEveryTime,
             int skip = 0) {
    when(
        operation, [error](const ServiceCall&) -> int { throw error; }, times, skip);
  }
  template <typename Error>
  void raiseFor(const std::string& operation, const std::string& subject, const Error& error,
                int times = kEveryTime, int skip = 0) {
    when([=](const ServiceCall& c) { return c.operation == operation && c.subject == subject; },
         [error](const ServiceCall&) -> int { throw error; }, times, skip);
  }
  // Lets the operation fail with a number.
  void fail(const std::string& operation, int number, int times = kEveryTime, int skip = 0) {
    when(
        operation, [number](const ServiceCall&) { return number; }, times, skip);
  }

  void forgetCalls() { forgetRecorded(); }
  std::vector<ServiceCall> calls() const { return recorded(); }
  std::vector<ServiceCall> callsOf(const std::string& operation) const {
    std::vector<ServiceCall> found = calls();
    std::erase_if(found, [&](const ServiceCall& call) { return call.operation != operation; });
    return found;
  }
  std::size_t count(const std::string& operation) const { return callsOf(operation).size(); }
  // The calls of the operations named, in their order, as "operation subject".
  std::vector<std::string> sequence(const std::vector<std::string>& operations) const {
    std::vector<std::string> found;
    for (const ServiceCall& call : calls()) {
      if (std::find(operations.begin(), operations.end(), call.operation) != operations.end()) {
        found.push_back(call.operation + " " + call.subject);
      }
    }
    return found;
  }
};

}  // namespace paddock
