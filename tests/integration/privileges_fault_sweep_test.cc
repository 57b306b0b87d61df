// Every call fails in turn while a folder's privileges are written or read. What is written is
// never a half: owner, group and mode are all as before or all as asked for, and so is the ACL.
#include <gtest/gtest.h>

#include <tuple>

#include "fault_sweep.h"
#include "privileges_faults.h"

namespace paddock {
namespace {

constexpr const char* kFolder = "/srv/folder";

Dictionary request(const Dictionary& privileges) {
  return writing(kFolder, {{"fileAccessPrivs", privileges}});
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
Scenario readAll() { return {"ReadAll", prepare, "readSettings", selecting(kFolder)}; }

bool sameAttributes(const FolderPrivileges& left, const FolderPrivileges& right) {
  return std::tie(left.owner, left.group, left.mode) ==
         std::tie(right.owner, right.group, right.mode);
}

bool isPosixStatus(Status status) {
  return status >= USER_NOT_FOUND_ERR && status <= CANNOT_CHANGE_PRIVS_ERR;
}

class PrivilegesFaultSweep : public FaultSweep {
 protected:
  void noteAfter(FaultWorld&) override {
    ASSERT_EQ(old() == recent(), scenario().operation == "readSettings");
  }
  const FolderPrivileges& old() const { return before_.privileges; }
  const FolderPrivileges& recent() const { return after_.privileges; }

  void checkException(const Outcome& outcome, const FaultPlan& plan) const {
    if (outcome.reply) return;
    EXPECT_TRUE(outcome.raisedDirectoryError);
    EXPECT_TRUE(mayRaiseWhileReadingAnAcl(plan.failedCall()));
  }

  void checkState(const FolderPrivileges& left) const {
    EXPECT_TRUE(sameAttributes(left, old()) || sameAttributes(left, recent()));
    EXPECT_TRUE(left.acl == old().acl || left.acl == recent().acl);
  }

  // The status says whether all is written, and what is not.
  void checkWriteReply(const Outcome& outcome, const FaultPlan& plan) const {
    const FolderPrivileges& left = outcome.left.privileges;
    const auto status = static_cast<Status>(outcome.reply->integer("writeStatus").value());
    EXPECT_EQ(outcome.reply->contains("writeError"), status != kSuccess);
    if (isPosixStatus(status)) {
      EXPECT_TRUE(sameAttributes(left, old()));
    } else if (status != kSuccess) {
      EXPECT_EQ(left.acl, old().acl);
    }
    if (mode().keepFailing) return;
    const auto known = privilegeStatuses().find(plan.failedCall());
    const bool mayFail = known != privilegeStatuses().end();
    if (status != kSuccess) {
      EXPECT_TRUE(mayFail && known->second.contains(status)) << status;
    } else if (!quietEnds().contains(plan.failedCall()) && !mayLookLikeNoAcl(plan)) {
      EXPECT_EQ(left, recent()) << "a success that is none";
    }
    if (isPosixStatus(status)) {
      EXPECT_EQ(left.acl, recent().acl);
    }
    if (status != kSuccess && !isPosixStatus(status)) {
      EXPECT_TRUE(sameAttributes(left, recent()));
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

  void checkLines(const FaultWorld& world, const FaultPlan& plan) const {
    EXPECT_EQ(world.errorLines("").size(), world.privilegeLines().size());
    // A failed call is at most one line, and setting the ACL a second one with the path and the
    // reason; reading back an ACL that stayed invalid is another.
    const std::size_t ofTheCall = plan.failedCall() == "acl.acl_set_file" ? 2 : 1;
    if (!mode().keepFailing) {
      EXPECT_LE(world.privilegeLines().size(), ofTheCall + (old().invalidAcl ? 1 : 0));
    }
    if (!plan.fired()) {
      EXPECT_TRUE(world.privilegeLines().empty());
    }
  }

  void checkSendingItAgain(FaultWorld& world) const {
    FaultPlan none;
    const Outcome again = world.run(none);
    ASSERT_TRUE(again.reply);
    EXPECT_EQ(again.left.privileges, recent());
    EXPECT_EQ(*again.reply, cleanReply_);
  }

  void check(FaultWorld& world, FaultPlan& plan) override {
    const Outcome outcome = world.run(plan);
    checkException(outcome, plan);
    checkNothingIsHeld(world);
    checkState(outcome.left.privileges);
    checkLines(world, plan);
    if (outcome.reply) {
      checkReadReply(outcome, plan);
      if (writes()) checkWriteReply(outcome, plan);
    }
    checkSendingItAgain(world);
  }
};

TEST_P(PrivilegesFaultSweep, EveryCallMayFail) {
  EXPECT_GE(failEveryCall().size(), 15U) << "a sweep of nothing";
}

INSTANTIATE_TEST_SUITE_P(Requests, PrivilegesFaultSweep,
                         inEveryMode(replaceAll(), clearAcl(), replaceInvalidAcl(), readAll()),
                         sweepName);

}  // namespace
}  // namespace paddock
