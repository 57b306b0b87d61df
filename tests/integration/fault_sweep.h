// The frame of every fault sweep: a request runs again and again, each time with a later call that
// fails, until it passes untouched. A sweep checks the postconditions of each of these runs.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <iostream>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "fault_world.h"

namespace paddock {

// Prints, at the end of a program that runs several sweeps, what failed in all of them.
class SweepFigures : public ::testing::Environment {
 public:
  // `call`: the service and its function, "textFiles.readFile".
  static void add(const std::string& call) {
    ++failures_;
    calls_.insert(call);
    services_.insert(call.substr(0, call.find('.')));
  }
  void TearDown() override {
    std::cout << failures_ << " failures of " << calls_.size() << " calls of " << services_.size()
              << " services\n";
  }

 private:
  static inline std::size_t failures_ = 0;
  static inline std::set<std::string> calls_;
  static inline std::set<std::string> services_;
};
inline ::testing::Environment* const gSweepFigures =
    ::testing::AddGlobalTestEnvironment(new SweepFigures);

class FaultSweep : public ::testing::TestWithParam<std::tuple<Scenario, FaultMode>> {
 protected:
  const Scenario& scenario() const { return std::get<0>(GetParam()); }
  const FaultMode& mode() const { return std::get<1>(GetParam()); }
  bool writes() const { return scenario().operation == "writeSettings"; }

  // What a sweep remembers of the scenario's world before its request, and after it when nothing
  // failed.
  virtual void noteBefore(FaultWorld&) {}
  virtual void noteAfter(FaultWorld&) {}
  // Runs the request with the plan, and checks the postconditions.
  virtual void check(FaultWorld& world, FaultPlan& plan) = 0;

  void SetUp() override {
    FaultWorld world(scenario());
    before_ = snapshotOf(world.doubles, scenario());
    noteBefore(world);
    FaultPlan none;
    const Outcome clean = world.run(none);
    ASSERT_TRUE(clean.reply);
    cleanReply_ = *clean.reply;
    cleanEffects_ = clean.effects;
    after_ = clean.left;
    noteAfter(world);
  }

  // The calls that failed in turn, first to last. Ends at the first that violates an invariant.
  std::vector<std::string> failEveryCall() {
    constexpr std::size_t kMoreThanAnyRequestMakes = 1000;
    std::vector<std::string> failed;
    while (failed.size() < kMoreThanAnyRequestMakes) {
      FaultPlan plan(failed.size() + 1);
      plan.setError(mode().error);
      if (mode().keepFailing) plan.keepFailing();
      FaultWorld world(scenario());
      check(world, plan);
      if (HasFailure()) {
        ADD_FAILURE() << "call " << failed.size() + 1 << ": " << plan.failedCall();
        return failed;
      }
      if (!plan.fired()) return failed;
      failed.push_back(plan.failedCall());
      SweepFigures::add(failed.back());
    }
    ADD_FAILURE() << "a request that does not end";
    return failed;
  }

  static void checkNothingIsHeld(const FaultWorld& world) {
    EXPECT_EQ(world.doubles.directory.openSessions(), 0);
    EXPECT_EQ(world.doubles.acl.unreleased(), 0U);
    const bool free = std::async(std::launch::async, [] {
                        if (!gSettingsDictLock->try_lock()) return false;
                        gSettingsDictLock->unlock();
                        return true;
                      }).get();
    ASSERT_TRUE(free) << "the lock is held";
  }

  Snapshot before_;
  Snapshot after_;
  Dictionary cleanReply_;
  std::vector<std::string> cleanEffects_;
};

// The scenarios, each with every way of failing, as the values of INSTANTIATE_TEST_SUITE_P.
template <typename... Scenarios>
auto inEveryMode(Scenarios... scenarios) {
  return ::testing::Combine(
      ::testing::Values(scenarios...),
      ::testing::Values(FaultMode{"Once", EIO, false},
                        FaultMode{"OnceWithoutANumber", std::nullopt, false},
                        FaultMode{"FromThenOn", ENOSPC, true},
                        FaultMode{"FromThenOnWithoutANumber", std::nullopt, true}));
}

inline std::string sweepName(
    const ::testing::TestParamInfo<std::tuple<Scenario, FaultMode>>& test) {
  return std::string(std::get<0>(test.param).name) + std::get<1>(test.param).name;
}

// Requests that read, and write, the settings of one folder.
inline Dictionary selecting(const std::string& path) {
  return {{"optionalArguments", Dictionary{{"path", path}}}};
}
inline Dictionary writing(const std::string& path, const Dictionary& configuration) {
  Dictionary request = selecting(path);
  request.set("configuration", configuration);
  return request;
}

}  // namespace paddock
