// Every call fails in turn while a volume's quotas are switched or read. A quota file that is there
// is never touched, a new one is whole; the checker is started whatever became of the switch.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "fault_sweep.h"
#include "support/open_descriptors.h"
#include "support/temporary_folder.h"
#include "support/volume_fixture.h"

namespace paddock {
namespace {

using Started = RecordingProgramRunner::Run;

// The volume's root folder: real, and prepared afresh for each run.
const std::string& volume() {
  static const TestFolder folder;
  return folder.path();
}
std::string userFile() { return volume() + "/.quota.user"; }
std::string userMarker() { return volume() + "/.quota.ops.user"; }
std::string filledFile() { return quotaFileBytes(kUserQuota, 16, {usage(1001, 5), usage(7, 9)}); }

void prepareEmpty(ModuleDoubles& doubles) {
  for (const auto& entry : std::filesystem::directory_iterator(volume())) {
    std::filesystem::remove_all(entry.path());
  }
  doubles.tree.setFolder(volume());
  doubles.accounts.addUser("alice", 1001);
  doubles.volumes.mount({volume(), "/dev/sdz1", "ext4"});
  doubles.volumes.setSize(volume(), 4096, 1000, 500);
}
void prepareFilled(ModuleDoubles& doubles) {
  prepareEmpty(doubles);
  writeWholeFile(userMarker(), "");
  writeWholeFile(userFile(), filledFile());
  doubles.quotaControl.setOn(volume());
}

Dictionary switching(bool on) {
  return writing(volume(), {{"volumeQuotas", Dictionary{{"isEnabled", on}}}});
}

Scenario switchOn() { return {"SwitchOn", prepareEmpty, "writeSettings", switching(true)}; }
Scenario switchOnAgain() {
  return {"SwitchOnAgain", prepareFilled, "writeSettings", switching(true)};
}
Scenario switchOff() { return {"SwitchOff", prepareFilled, "writeSettings", switching(false)}; }
Scenario readUsage() { return {"ReadUsage", prepareFilled, "readSettings", selecting(volume())}; }

class QuotasFaultSweep : public FaultSweep {
 protected:
  bool switchesOn() const { return std::string(scenario().name).rfind("SwitchOn", 0) == 0; }

  void noteBefore(FaultWorld&) override { filledBefore_ = readWholeFile(userFile()); }
  void noteAfter(FaultWorld& world) override {
    ASSERT_EQ(cleanReply_.integer(writes() ? "writeStatus" : "readStatus"), 0);
    ASSERT_EQ(world.doubles.quotaControl.isOn(volume()),
              std::string(scenario().name) != "SwitchOff");
  }

  void checkFiles() const {
    const std::string file = readWholeFile(userFile());
    if (!filledBefore_.empty()) {
      EXPECT_EQ(file, filledBefore_);
    } else if (!file.empty()) {
      EXPECT_EQ(file, quotaFileBytes(kUserQuota, 2048, {}));
    }
    if (!writes()) return;
    EXPECT_EQ(std::filesystem::exists(userMarker()), switchesOn());
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(volume())) {
      names.insert(entry.path().filename());
    }
    names.erase(".quota.user");
    names.erase(".quota.ops.user");
    EXPECT_TRUE(names.empty()) << *names.begin();
  }

  void checkWriteReply(const Dictionary& reply, const FaultPlan& plan, FaultWorld& world) const {
    const auto status = reply.integer("writeStatus").value_or(-1);
    const bool isOn = world.doubles.quotaControl.isOn(volume());
    EXPECT_EQ(reply.contains("writeError"), status != 0);
    if (status == 0) {
      EXPECT_EQ(isOn, switchesOn());
    } else if (!mode().keepFailing) {
      EXPECT_EQ(status, CANNOT_SET_QUOTA_STATE_ERR);
      EXPECT_EQ(isOn, !filledBefore_.empty()) << "refused, and switched nevertheless";
      const std::set<std::string> causes = {"quotaControl.quotactl", "volumeInfo.getmntinfo",
                                            "volumeInfo.statistics"};
      EXPECT_TRUE(causes.contains(plan.failedCall())) << plan.failedCall();
    }
  }

  void checkChecker(const FaultPlan& plan, FaultWorld& world) const {
    const auto& started = world.doubles.programs.started();
    if (!switchesOn()) {
      EXPECT_TRUE(started.empty());
      return;
    }
    const bool failed = mode().keepFailing || plan.failedCall() == "programRunner.start";
    if (!failed || !started.empty()) {
      EXPECT_THAT(started, ::testing::ElementsAre(Started{"/sbin/quotacheck", {"-u", volume()}}));
    }
  }

  void checkReadReply(const Dictionary& reply, const FaultPlan& plan) const {
    const Dictionary* configuration = reply.dictionary("configuration");
    ASSERT_NE(configuration, nullptr);
    const Dictionary* quotas = configuration->dictionary("volumeQuotas");
    ASSERT_NE(quotas, nullptr);
    if (!plan.fired()) {
      EXPECT_EQ(reply, cleanReply_);
    }
    // All the users, or none of them.
    if (const Array* users = quotas->array("usr")) {
      EXPECT_EQ(users->size(), 2U);
    }
    if (mode().keepFailing) return;
    const std::string& failed = plan.failedCall();
    if (failed == "quotaControl.quotactl") {
      EXPECT_EQ(reply.integer("readStatus"), plan.errorNumber());
      EXPECT_EQ(*quotas, (Dictionary{{"isEnabled", false}}));
    } else if (failed == "volumeInfo.statistics") {
      EXPECT_EQ(reply.integer("readStatus"), plan.errorNumber());
      EXPECT_EQ(*quotas, (Dictionary{{"isEnabled", true}}));
    } else if (failed == "accounts.getpwuid") {
      EXPECT_EQ(reply.integer("readStatus"), 0);
      EXPECT_EQ(quotas->array("usr")->size(), 2U);
    }
  }

  void check(FaultWorld& world, FaultPlan& plan) override {
    const LeftOpen leftOpen;
    const Outcome outcome = world.run(plan);
    for (const std::string& path : leftOpen.paths()) EXPECT_EQ(path, userFile());
    ASSERT_TRUE(outcome.reply);
    checkFiles();
    if (writes()) {
      checkWriteReply(*outcome.reply, plan, world);
      checkChecker(plan, world);
    } else {
      checkReadReply(*outcome.reply, plan);
    }
    checkNothingIsHeld(world);
    FaultPlan none;
    const Outcome again = world.run(none);
    ASSERT_TRUE(again.reply);
    EXPECT_EQ(*again.reply, cleanReply_);
  }

  std::string filledBefore_;
};

TEST_P(QuotasFaultSweep, EveryCallMayFail) {
  const auto failed = failEveryCall();
  // What a sweep of quotas is about.
  std::set<std::string> expected = {"quotaControl.quotactl"};
  if (switchesOn()) expected.insert("programRunner.start");
  if (scenario().name == std::string("SwitchOn")) {
    expected.insert({"browserInformation.read", "browserInformation.write", "volumeInfo.getmntinfo",
                     "volumeInfo.statistics"});
  }
  if (!writes()) expected.insert({"volumeInfo.statistics", "accounts.getpwuid"});
  for (const std::string& name : expected) EXPECT_THAT(failed, ::testing::Contains(name));
}

INSTANTIATE_TEST_SUITE_P(Requests, QuotasFaultSweep,
                         inEveryMode(switchOn(), switchOnAgain(), switchOff(), readUsage()),
                         sweepName);

}  // namespace
}  // namespace paddock
