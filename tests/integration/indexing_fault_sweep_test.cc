// Every call fails in turn while the search indexing of a folder is switched or read. A store is as
// before or as asked for, nothing of the folder's ACL is lost, and what was not done is reported in
// the log or done when the request is sent again.
#include <gtest/gtest.h>

#include <algorithm>

#include "fault_sweep.h"

namespace paddock {
namespace {

using metadata_store::kLevelOff;
using metadata_store::kLevelReadWrite;

constexpr const char* kFolder = "/srv/a";

using Stores = std::map<std::string, Dictionary>;
using Entries = std::vector<FolderPrivileges::Entry>;

Dictionary request(const Dictionary& sharePoint) {
  return writing(kFolder, {{"sharePointRecord", sharePoint}});
}

// A shared folder with an ACL with an entry of another principal, and a store of another folder.
void prepareShared(ModuleDoubles& doubles) {
  doubles.directory.addRecord("/Local", schema::kSharePoints, "a",
                              {{schema::kDirectoryPath, kFolder}});
  doubles.tree.setFolder(kFolder);
  acl::Entry other;
  other.tag = acl::kExtendedDeny;
  other.qualifier = computedGuid({PrincipalType::user, 1000});
  other.permset.permissions = acl::kDelete;
  doubles.tree.setAcl(kFolder, {.entries = {other}});
  doubles.stores.setLevel("/srv/other", kLevelReadWrite);
}
void prepareIndexed(ModuleDoubles& doubles) {
  prepareShared(doubles);
  doubles.stores.setLevel(kFolder, kLevelReadWrite);
}

Scenario switchOn() {
  return {"SwitchOn", prepareShared, "writeSettings",
          request({{"path", kFolder}, {"isIndexingEnabled", true}})};
}
Scenario raise() {
  return {"Raise",
          [](ModuleDoubles& doubles) {
            prepareShared(doubles);
            doubles.stores.setLevel(kFolder, kLevelOff);
          },
          "writeSettings", request({{"path", kFolder}, {"isIndexingEnabled", true}})};
}
Scenario switchOff() {
  return {"SwitchOff", prepareIndexed, "writeSettings",
          request({{"path", kFolder}, {"isIndexingEnabled", false}})};
}
Scenario shareAndIndex() {
  return {"ShareAndIndex", [](ModuleDoubles& doubles) { doubles.tree.setFolder(kFolder); },
          "writeSettings",
          request({{"path", kFolder}, {"name", "a"}, {"isIndexingEnabled", true}})};
}
Scenario deleteIndexed() {
  return {"DeleteIndexed", prepareIndexed, "writeSettings", request({{"isShared", false}})};
}
Scenario readIndexed() {
  return {"ReadIndexed", prepareIndexed, "readSettings", selecting(kFolder)};
}
Scenario listIndexed() { return {"ListIndexed", prepareIndexed, "getSharePointList", {}}; }

class IndexingFaultSweep : public FaultSweep {
 protected:
  void noteBefore(FaultWorld& world) override {
    storesBefore_ = world.doubles.stores.stores();
    aclBefore_ = entriesOf(world.doubles);
  }
  void noteAfter(FaultWorld& world) override {
    storesAfter_ = world.doubles.stores.stores();
    ASSERT_EQ(storesBefore_ == storesAfter_, !writes());
    ASSERT_TRUE(world.errorLines("").empty());
  }

  static Entries entriesOf(ModuleDoubles& doubles) {
    return privilegesOf(doubles, kFolder).acl.value_or(Entries());
  }
  static bool isLookwiseEntry(const FolderPrivileges::Entry& entry) {
    return entry == FolderPrivileges::Entry{acl::kExtendedAllow,
                                            computedGuid({PrincipalType::user, 89}), 10, 112};
  }

  void checkStores(const Stores& left) const {
    for (const auto& [path, attributes] : left) {
      const bool asBefore = storesBefore_.contains(path) && storesBefore_.at(path) == attributes;
      const bool asAfter = storesAfter_.contains(path) && storesAfter_.at(path) == attributes;
      EXPECT_TRUE(asBefore || asAfter) << path;
    }
    for (const auto& store : storesBefore_) EXPECT_TRUE(left.contains(store.first)) << store.first;
  }

  // What was there is there, in front; what is new is the indexing service's entry. When it cannot
  // be seen whether the entry is there, another one comes behind it.
  void checkAcl(const Entries& left) const {
    ASSERT_GE(left.size(), aclBefore_.size());
    const auto added = left.begin() + static_cast<std::ptrdiff_t>(aclBefore_.size());
    EXPECT_TRUE(std::equal(left.begin(), added, aclBefore_.begin()));
    EXPECT_TRUE(std::all_of(added, left.end(), isLookwiseEntry));
  }

  void checkLines(const FaultWorld& world, const FaultPlan& plan) const {
    const auto lines = world.errorLines("");
    if (!plan.fired()) {
      EXPECT_TRUE(lines.empty());
    }
    if (!mode().keepFailing) {
      EXPECT_LE(lines.size(), 1U);
    }
  }

  // Deliberate: unreadable stores are treated like a folder without one, and nothing is reported.
  static bool isQuiet(const std::string& call) {
    return call == "metadataStores.copyStorePaths" || call == "metadataStores.copyStoreAttributes";
  }

  void checkSuccessIsSuccess(const Outcome& outcome, const FaultPlan& plan, FaultWorld& world) {
    if (!outcome.reply || outcome.reply->integer("writeStatus") != 0) return;
    if (!world.errorLines("").empty() || isQuiet(plan.failedCall()) || mode().keepFailing) return;
    EXPECT_EQ(world.doubles.stores.stores(), storesAfter_);
  }

  void checkSendingItAgain(FaultWorld& world) const {
    FaultPlan none;
    ASSERT_TRUE(world.run(none).reply);
    EXPECT_EQ(world.doubles.stores.stores(), storesAfter_);
    checkAcl(entriesOf(world.doubles));
  }

  void check(FaultWorld& world, FaultPlan& plan) override {
    const Outcome outcome = world.run(plan);
    checkNothingIsHeld(world);
    checkStores(world.doubles.stores.stores());
    checkAcl(entriesOf(world.doubles));
    checkLines(world, plan);
    if (writes()) checkSuccessIsSuccess(outcome, plan, world);
    checkSendingItAgain(world);
  }

  Stores storesBefore_;
  Stores storesAfter_;
  Entries aclBefore_;
};

TEST_P(IndexingFaultSweep, EveryCallMayFail) {
  const auto failed = failEveryCall();
  const bool askedAStore = std::any_of(failed.begin(), failed.end(), [](const std::string& call) {
    return call.rfind("metadataStores.", 0) == 0;
  });
  EXPECT_TRUE(askedAStore) << "a sweep that asked no store";
}

INSTANTIATE_TEST_SUITE_P(Requests, IndexingFaultSweep,
                         inEveryMode(switchOn(), raise(), switchOff(), shareAndIndex(),
                                     deleteIndexed(), readIndexed(), listIndexed()),
                         sweepName);

}  // namespace
}  // namespace paddock
