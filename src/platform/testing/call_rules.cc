#include "platform/testing/call_rules.h"

namespace paddock {

void CallRules::when(Match match, Effect effect, int times, int skip) {
  const MutexLock lock(mutex_);
  rules_.push_back({std::move(match), std::move(effect), times, skip});
}

void CallRules::forgetRules() {
  const MutexLock lock(mutex_);
  rules_.clear();
}

int CallRules::before(const ServiceCall& call) {
  if (!counted_(call)) return 0;
  const Effect effect = record(call);
  return effect ? effect(call) : 0;
}

std::vector<ServiceCall> CallRules::recorded() const {
  const MutexLock lock(mutex_);
  return calls_;
}

void CallRules::forgetRecorded() {
  const MutexLock lock(mutex_);
  calls_.clear();
}

std::optional<ServiceCall> CallRules::firstDecided() const {
  const MutexLock lock(mutex_);
  return firstDecided_;
}

CallRules::Effect CallRules::record(const ServiceCall& call) {
  const MutexLock lock(mutex_);
  calls_.push_back(call);
  for (Rule& rule : rules_) {
    if (rule.times == 0 || !rule.match(call)) continue;
    if (rule.skip > 0) {
      --rule.skip;
      continue;
    }
    if (rule.times != kEveryTime) --rule.times;
    if (!firstDecided_) firstDecided_ = call;
    return rule.effect;
  }
  return {};
}

}  // namespace paddock
