// Every call fails in turn while a folder's privileges are written or read. What is written is
// never a half: owner, group and mode are all as before or all as asked for, and so is the ACL.
#include <gtest/gtest.h>

#include <cerrno>
#include <future>
#include <tuple>

#include "privileges_faults.h"

namespace paddock {
namespace {

constexpr const char* kFolder = "/srv/folder";

Dictionary request(const Dictionary& privileges) {
  return {{"optionalArguments", Dictionary{{"path", kFolder}}},
          {"configuration", Dictionary{{"fileAccessPrivs", privileges}}}};
}
void prepare(ModuleDoubles& doubles) { prepareFolder(doubles, kFolder); }

Scenario replaceAll() { return {"ReplaceAll", prepare, "writeSettings", request(newPrivileges())}; }
Scenario clearAcl() { return {"ClearAcl", prepare, "writeSettings", request({{"acl", Array{}}})}; }
Scenario replaceInvalidAcl() {
  return {"ReplaceInvalidAcl",
          [](ModuleDoubles& doubles) {
            prepare(doubles);
            doubles.tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
          },
          "writeSettings", request({{"acl", *newPrivileges().array("acl")}})};
}
Scenario readAll() {
  return {
      "ReadAll", prepare, "readSettings", {{"optionalArguments", Dictionary{{"path", kFolder}}}}};
}

bool sameAttributes(const FolderPrivileges& left, const FolderPrivileges& right) {
  return std::tie(left.owner, left.group, left.mode) ==
         std::tie(right.owner, right.group, right.mode);
}

bool isPosixStatus(Status status) {
  return status >= USER_NOT_FOUND_ERR && status <= CANNOT_CHANGE_PRIVS_ERR;
}

class PrivilegesFaultSweepTest : public ::testing::TestWithParam<std::tuple<Scenario, FaultMode>> {
 protected:
  const Scenario& scenario() const { return std::get<0>(GetParam()); }
  const FaultMode& mode() const { return std::get<1>(GetParam()); }

  void SetUp() override {
    FaultWorld world(scenario());
    before_ = snapshotOf(world.doubles, scenario()).privileges;
    FaultPlan none;
    const Outcome clean = world.run(none);
    ASSERT_TRUE(clean.reply);
    after_ = clean.left.privileges;
    cleanReply_ = *clean.reply;
    ASSERT_EQ(before_ == after_, scenario().operation == "readSettings");
  }

  void checkException(const Outcome& outcome, const FaultPlan& plan) const {
    if (outcome.reply) return;
    EXPECT_TRUE(outcome.raisedDirectoryError);
    EXPECT_TRUE(mayRaiseWhileReadingAnAcl(plan.failedCall()));
  }

  void checkState(const FolderPrivileges& left) const {
    EXPECT_TRUE(sameAttributes(left, before_) || sameAttributes(left, after_));
    EXPECT_TRUE(left.acl == before_.acl || left.acl == after_.acl);
  }

  // The status says whether all is written, and what is not.
  void checkWriteReply(const Outcome& outcome, const FaultPlan& plan) const {
    const FolderPrivileges& left = outcome.left.privileges;
    const auto status = static_cast<Status>(outcome.reply->integer("writeStatus").value());
    EXPECT_EQ(outcome.reply->contains("writeError"), status != kSuccess);
    if (isPosixStatus(status)) {
      EXPECT_TRUE(sameAttributes(left, before_));
    } else if (status != kSuccess) {
      EXPECT_EQ(left.acl, before_.acl);
    }
    if (mode().keepFailing) return;
    const auto known = privilegeStatuses().find(plan.failedCall());
    const bool mayFail = known != privilegeStatuses().end();
    if (status != kSuccess) {
      EXPECT_TRUE(mayFail && known->second.contains(status)) << status;
    } else if (!quietEnds().contains(plan.failedCall()) && !mayLookLikeNoAcl(plan)) {
      EXPECT_EQ(left, after_) << "a success that is none";
    }
    if (isPosixStatus(status)) {
      EXPECT_EQ(left.acl, after_.acl);
    }
    if (status != kSuccess && !isPosixStatus(status)) {
      EXPECT_TRUE(sameAttributes(left, after_));
    }
  }

  // An empty array leaves an ACL alone that cannot be read or is invalid.
  bool mayLookLikeNoAcl(const FaultPlan& plan) const {
    return scenario().name == std::string("ClearAcl") &&
           (plan.failedCall() == "acl.acl_get_file" || plan.failedCall() == "acl.acl_valid");
  }

  void checkReadReply(const Outcome& outcome, const FaultPlan& plan) const {
    if (!plan.fired()) {
      EXPECT_EQ(*outcome.reply, cleanReply_);
    }
    const Dictionary* configuration = outcome.reply->dictionary("configuration");
    ASSERT_NE(configuration, nullptr);
    const Dictionary* privileges = configuration->dictionary("fileAccessPrivs");
    ASSERT_NE(privileges, nullptr);
    EXPECT_NE(privileges->contains("posixErr"), privileges->contains("owner"));
    EXPECT_NE(privileges->contains("aclErr"), privileges->contains("acl"));
    EXPECT_EQ(*privileges->string("path"), kFolder);
  }

  static void checkNothingIsHeld(FaultWorld& world) {
    EXPECT_EQ(world.doubles.acl.unreleased(), 0U);
    EXPECT_EQ(world.doubles.directory.openSessions(), 0);
    const bool free = std::async(std::launch::async, [] {
                        if (!gSettingsDictLock->try_lock()) return false;
                        gSettingsDictLock->unlock();
                        return true;
                      }).get();
    ASSERT_TRUE(free) << "the lock is held";
  }

  void checkLines(const FaultWorld& world, const FaultPlan& plan) const {
    EXPECT_EQ(world.errorLines("").size(), world.privilegeLines().size());
    // A failed call is at most one line; reading back an ACL that stayed invalid is another.
    if (!mode().keepFailing) {
      EXPECT_LE(world.privilegeLines().size(), before_.invalidAcl ? 2U : 1U);
    }
    if (!plan.fired()) {
      EXPECT_TRUE(world.privilegeLines().empty());
    }
  }

  void checkSendingItAgain(FaultWorld& world) const {
    FaultPlan none;
    const Outcome again = world.run(none);
    ASSERT_TRUE(again.reply);
    EXPECT_EQ(again.left.privileges, after_);
    EXPECT_EQ(*again.reply, cleanReply_);
  }

  void check(FaultWorld& world, FaultPlan& plan) const {
    const Outcome outcome = world.run(plan);
    checkException(outcome, plan);
    checkNothingIsHeld(world);
    checkState(outcome.left.privileges);
    checkLines(world, plan);
    if (outcome.reply) {
      checkReadReply(outcome, plan);
      if (scenario().operation == "writeSettings") checkWriteReply(outcome, plan);
    }
    checkSendingItAgain(world);
  }

  FolderPrivileges before_;
  FolderPrivileges after_;
  Dictionary cleanReply_;
};

TEST_P(PrivilegesFaultSweepTest, EveryCallMayFail) {
  constexpr std::size_t kMoreThanAnyRequestMakes = 1000;
  for (std::size_t call = 1;; ++call) {
    ASSERT_LT(call, kMoreThanAnyRequestMakes);
    FaultPlan plan(call);
    plan.setError(mode().error);
    if (mode().keepFailing) plan.keepFailing();
    FaultWorld world(scenario());
    check(world, plan);
    if (HasFailure()) FAIL() << "call " << call << ": " << plan.failedCall();
    if (!plan.fired()) {
      EXPECT_GT(call, 15U) << "a sweep of nothing";
      return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Requests, PrivilegesFaultSweepTest,
    ::testing::Combine(::testing::Values(replaceAll(), clearAcl(), replaceInvalidAcl(), readAll()),
                       ::testing::Values(FaultMode{"Once", EIO, false},
                                         FaultMode{"OnceWithoutANumber", std::nullopt, false},
                                         FaultMode{"FromThenOn", ENOSPC, true},
                                         FaultMode{"FromThenOnWithoutANumber", std::nullopt,
                                                   true})),
    [](const auto& test) {
      return std::string(std::get<0>(test.param).name) + std::get<1>(test.param).name;
    });

}  // namespace
}  // namespace paddock
