// What is asked before every call of a platform service that a test forwards: it records the call,
// and says whether it is carried out, fails or is answered otherwise.
//
// For each interface there is one Forwarding* class, beside its double (those of the ACL service
// and of the directory in files of their own); service_doubles.h wraps them all. Two kinds of rules
// set what happens: a FaultPlan lets the Nth call fail (fault_plan.h), a ServiceTrace sees the
// calls and answers those that match (service_trace.h). How each service fails is said at its
// wrapper; a call that fails never reaches the wrapped service, where nothing else is said.
#pragma once

#include <functional>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"

namespace paddock {

struct ServiceCall {
  std::string operation;  // "findRecord", "statfs", "replace"; empty: traces leave it out
  // The thing that it concerns (a record's name, a node's or a file's path, a URL), and what it
  // carries (an attribute, a type).
  std::string subject;
  std::string detail;
  // With its interface, "node.findRecord"; empty for a call that cannot fail.
  std::string name = {};
  // Its service fails by DirectoryError.
  bool raises = false;
  friend bool operator==(const ServiceCall& left, const ServiceCall& right) {
    return left.operation == right.operation && left.subject == right.subject &&
           left.detail == right.detail;
  }
};

inline std::ostream& operator<<(std::ostream& out, const ServiceCall& call) {
  return out << call.operation << " " << call.subject << " " << call.detail;
}

// Rules are asked in the order in which they were added; the first that applies decides. Calls may
// come from several threads.
class CallRules {
 public:
  // Returns 0 to let the call pass, a number for it to fail with, or throws in its place.
  using Effect = std::function<int(const ServiceCall&)>;
  using Match = std::function<bool(const ServiceCall&)>;
  static constexpr int kEveryTime = std::numeric_limits<int>::max();

  CallRules(const CallRules&) = delete;
  CallRules& operator=(const CallRules&) = delete;

  // Applies `effect` to the calls that match: after `skip` of them, `times` times.
  void when(Match match, Effect effect, int times = kEveryTime, int skip = 0);
  void forgetRules();

  // For the wrappers, before they carry out a call: 0, or the number that it fails with.
  int before(const ServiceCall& call);
  int before(const char* name, ServiceCall call) {
    call.name = name;
    return before(call);
  }

 protected:
  // Calls that are not `counted` pass, unseen.
  explicit CallRules(Match counted) : counted_(std::move(counted)) {}
  ~CallRules() = default;

  std::vector<ServiceCall> recorded() const;
  void forgetRecorded();
  // The first call that a rule decided.
  std::optional<ServiceCall> firstDecided() const;

 private:
  struct Rule {
    Match match;
    Effect effect;
    int times;
    int skip;
  };

  // Records the call; the effect on it, empty when no rule applies.
  Effect record(const ServiceCall& call);

  const Match counted_;
  mutable Mutex mutex_;
  std::vector<ServiceCall> calls_ PADDOCK_GUARDED_BY(mutex_);
  std::vector<Rule> rules_ PADDOCK_GUARDED_BY(mutex_);
  std::optional<ServiceCall> firstDecided_ PADDOCK_GUARDED_BY(mutex_);
};

// What every wrapper of a service holds.
template <typename Service>
class Forwarder : public Service {
 public:
  // Both outlive this object and what it hands out.
  Forwarder(Service& wrapped, CallRules& rules) : wrapped_(wrapped), rules_(rules) {}

 protected:
  Service& wrapped() const { return wrapped_; }
  CallRules& rules() const { return rules_; }
  // 0 when the call is to be carried out, or the number that it fails with. Without an operation
  // traces leave it out.
  int ask(const char* name, const ServiceCall& call = {}) const {
    return rules_.before(name, call);
  }

 private:
  Service& wrapped_;
  CallRules& rules_;
};

}  // namespace paddock
