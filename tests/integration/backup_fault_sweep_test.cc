// Every call fails in turn while a backup destination is created, changed and removed. Nothing of
// the folder's ACL is lost, the group has a number of its own or none, what is advertised is what
// was, what is, or nothing, and the request brings everything in order when it is sent again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "fault_sweep.h"

namespace paddock {
namespace {

constexpr const char* kFolder = "/srv/a";
constexpr const char* kMarker = "/srv/a/.com.veltro.backstow.supported";
constexpr const char* kGroup = "com.veltro.access_backup";
constexpr std::uint32_t kGid = 251;

using Entries = std::vector<FolderPrivileges::Entry>;
using Strings = std::vector<std::string>;

const FolderPrivileges::Entry kBackupEntry{acl::kExtendedAllow,
                                           computedGuid({PrincipalType::group, kGid}), 110, 0};

Dictionary request(const Dictionary& sharePoint) {
  return writing(kFolder, {{"sharePointRecord", sharePoint}});
}

void setVspState(ModuleDoubles& doubles, const char* state) {
  doubles.plugins.setPlugin("paddock_vsp", [state](const Dictionary&) {
    return Dictionary{{"state", state}};
  });
}

void addDestination(ModuleDoubles& doubles, const std::string& name, const std::string& path) {
  doubles.directory.addRecord("/Local", schema::kSharePoints, name,
                              {{schema::kDirectoryPath, path},
                               {schema::kVspName, name},
                               {schema::kVspShared, "1"},
                               {schema::kBackstowBackup, "1"},
                               {schema::kBackstowBackupUuid, "U"}});
}

// A folder with an entry of another principal and a marker, and a group that has the first number.
void prepareFolder(ModuleDoubles& doubles) {
  doubles.accounts.addGroup(kGroup, kGid);
  doubles.directory.addRecord("/Local", schema::kGroups, "other",
                              {{schema::kPrimaryGroupID, "250"}});
  doubles.tree.setFolder(kFolder);
  doubles.files.setFile(kMarker, "");
  acl::Entry other;
  other.tag = acl::kExtendedDeny;
  other.qualifier = computedGuid({PrincipalType::user, 1000});
  other.permset.permissions = acl::kDelete;
  doubles.tree.setAcl(kFolder, {.entries = {other}});
  setVspState(doubles, "RUNNING");
}
void prepareTwoDestinations(ModuleDoubles& doubles) {
  prepareFolder(doubles);
  addDestination(doubles, "other", "/srv/other");
  addDestination(doubles, "a", kFolder);
}
void prepareLastDestination(ModuleDoubles& doubles) {
  prepareFolder(doubles);
  addDestination(doubles, "a", kFolder);
}

Scenario shared() {
  return {"Shared",
          [](ModuleDoubles& doubles) {
            prepareFolder(doubles);
            addDestination(doubles, "other", "/srv/other");
          },
          "writeSettings",
          request({{"path", kFolder},
                   {"name", "a"},
                   {"nameOverVSP", "a"},
                   {"isSharedOverVSP", true},
                   {"isBackstowBackup", true}})};
}
// Deliberate: a stored share point that cannot be looked up counts as none, so what the request
// does not name is then not set.
Scenario changed() {
  return {"Changed", prepareTwoDestinations, "writeSettings",
          request({{"path", kFolder}, {"nameOverVSP", "changed"}, {"isBackstowBackup", true}})};
}
Scenario takenBack() {
  return {"TakenBack", prepareTwoDestinations, "writeSettings",
          request({{"path", kFolder}, {"isBackstowBackup", false}})};
}
Scenario lastTakenBack() {
  return {"LastTakenBack", prepareLastDestination, "writeSettings",
          request({{"path", kFolder}, {"isBackstowBackup", false}})};
}
Scenario deleted() {
  return {"Deleted", prepareLastDestination, "writeSettings", request({{"isShared", false}})};
}
Scenario takenBackWithTheVspServiceStopped() {
  return {"TakenBackWithTheVspServiceStopped",
          [](ModuleDoubles& doubles) {
            prepareLastDestination(doubles);
            // It runs when the first idle tick asks, and no longer.
            doubles.plugins.setPlugin("paddock_vsp", [asked = 0](const Dictionary&) mutable {
              return Dictionary{{"state", ++asked == 1 ? "RUNNING" : "STOPPED"}};
            });
          },
          "writeSettings", request({{"path", kFolder}, {"isBackstowBackup", false}})};
}

// The first idle tick has come before the request.
Scenario afterTheFirstTick(Scenario scenario, bool repeatable = true) {
  scenario.advertisesFirst = true;
  scenario.repeatable = repeatable;
  return scenario;
}

class BackupFaultSweep : public FaultSweep {
 protected:
  void noteBefore(FaultWorld& world) override { aclBefore_ = entriesOf(world); }
  void noteAfter(FaultWorld& world) override {
    advertisedBefore_ = world.last().advertisedBefore;
    advertisedAfter_ = world.last().advertised;
    ASSERT_FALSE(advertisedBefore_.empty());
    aclAfter_ = entriesOf(world);
    markerAfter_ = hasMarker(world);
    EXPECT_TRUE(world.errorLines("").empty());
  }

  static Entries entriesOf(FaultWorld& world) {
    return privilegesOf(world.doubles, kFolder).acl.value_or(Entries());
  }
  static bool hasMarker(FaultWorld& world) { return world.doubles.files.find(kMarker) != nullptr; }

  // What was there is there, at the end; what is new is the group's entry. When it cannot be seen
  // whether the entry is there, another one comes in front of it. (Deliberate: what an entry does
  // not say when it is asked counts as not set.)
  void checkAcl(const Entries& left, const FaultPlan& plan) const {
    ASSERT_GE(left.size(), aclBefore_.size());
    const auto old = left.end() - static_cast<std::ptrdiff_t>(aclBefore_.size());
    if (plan.failedCall() == "acl.acl_get_perm_np" || plan.failedCall() == "acl.acl_get_flag_np") {
      EXPECT_TRUE(std::equal(old, left.end(), aclBefore_.begin(), [](const auto& a, const auto& b) {
        return a.qualifier == b.qualifier && a.tag == b.tag;
      }));
      return;
    }
    EXPECT_TRUE(std::equal(old, left.end(), aclBefore_.begin()));
    EXPECT_TRUE(std::all_of(left.begin(), old, [](const auto& e) { return e == kBackupEntry; }));
  }

  static void checkGroup(FaultWorld& world) {
    std::size_t groups = 0;
    for (const auto& record : world.doubles.records(schema::kGroups)) {
      if (record.name != kGroup) continue;
      ++groups;
      const Array* numbers = record.attributes.array(schema::kPrimaryGroupID);
      if (numbers != nullptr) {
        EXPECT_EQ(*numbers, (Array{std::to_string(kGid)}));
      }
    }
    EXPECT_LE(groups, 1U);
  }

  // One advertisement at most: the one before when the renewal was not come to or found the VSP
  // service silent, the one after, or none when the directory could not be searched or the service
  // was not published. A TXT record that was not taken is missing.
  void checkAdvertisement(FaultWorld& world, const FaultPlan& plan) const {
    const auto left = world.last().advertised;
    EXPECT_LE(left.size(), 1U);
    if (!plan.fired()) {
      EXPECT_EQ(left, advertisedAfter_);
    }
    if (left.empty() || left == advertisedAfter_ || left == advertisedBefore_) return;
    EXPECT_TRUE(left.front().empty() || isOfWhatIsStored(left.front(), world))
        << left.front().front();
  }
  // Each destination that it names is in the directory.
  static bool isOfWhatIsStored(const Strings& strings, FaultWorld& world) {
    Strings names;
    for (const auto& record : world.doubles.records(schema::kSharePoints)) {
      const Array* vspNames = record.attributes.array(schema::kVspName);
      if (vspNames != nullptr) names.push_back("adVN=" + *vspNames->front().string() + ",");
    }
    return std::all_of(strings.begin(), strings.end(), [&](const std::string& one) {
      return one.starts_with("sys=") ||
             std::any_of(names.begin(), names.end(),
                         [&](const auto& name) { return one.find(name) != std::string::npos; });
    });
  }

  // A marker that stays has its line, or the exception that ended the call before.
  void checkMarker(FaultWorld& world) const {
    if (hasMarker(world) == markerAfter_) return;
    EXPECT_TRUE(hasMarker(world)) << "it was removed in vain";
    const bool told = !world.errorLines("paddock_sharing: Couldn't delete backup").empty() ||
                      !world.exceptionLines().empty() ||
                      world.last().reply->integer("writeStatus") != 0;
    EXPECT_TRUE(told) << "the marker stays and nobody knows";
  }

  void checkSendingItAgain(FaultWorld& world, const FaultPlan& plan) const {
    FaultPlan none;
    const Outcome again = world.run(none);
    ASSERT_TRUE(again.reply);
    EXPECT_EQ(again.reply->integer("writeStatus"), 0);
    EXPECT_EQ(hasMarker(world), markerAfter_);
    const Entries left = entriesOf(world);
    checkAcl(left, plan);
    EXPECT_EQ(left.front() == kBackupEntry, aclAfter_.front() == kBackupEntry);
    checkGroup(world);
    EXPECT_EQ(namesIn(again.advertised), namesIn(advertisedAfter_));
  }
  // Without the identifiers, which are new at every write.
  static Strings namesIn(const std::vector<Strings>& advertised) {
    Strings names;
    for (const Strings& strings : advertised) {
      for (const std::string& one : strings) names.push_back(one.substr(0, one.find(",adVU=")));
    }
    return names;
  }

  void check(FaultWorld& world, FaultPlan& plan) override {
    world.run(plan);
    checkNothingIsHeld(world);
    checkAcl(entriesOf(world), plan);
    checkGroup(world);
    checkAdvertisement(world, plan);
    checkMarker(world);
    if (scenario().repeatable) checkSendingItAgain(world, plan);
  }

  Entries aclBefore_;
  Entries aclAfter_;
  bool markerAfter_ = false;
  std::vector<Strings> advertisedBefore_;
  std::vector<Strings> advertisedAfter_;
};

TEST_P(BackupFaultSweep, EveryCallMayFail) {
  const Strings failed = failEveryCall();
  EXPECT_THAT(failed, ::testing::Contains("pluginCommands.doCommand"));
  EXPECT_THAT(failed, ::testing::Contains("node.findRecordNames"));
}

INSTANTIATE_TEST_SUITE_P(Requests, BackupFaultSweep,
                         inEveryMode(afterTheFirstTick(shared()), afterTheFirstTick(changed()),
                                     afterTheFirstTick(takenBack()),
                                     afterTheFirstTick(lastTakenBack()),
                                     afterTheFirstTick(deleted()),
                                     afterTheFirstTick(takenBackWithTheVspServiceStopped(), false)),
                         sweepName);

}  // namespace
}  // namespace paddock
