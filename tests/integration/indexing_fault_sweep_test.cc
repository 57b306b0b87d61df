// Every call fails in turn while the search indexing of a folder is switched or read. A store is as
// before or as asked for, nothing of the folder's ACL is lost, and what was not done is said in the
// log or done when the request is sent again.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <tuple>

#include "fault_world.h"

namespace paddock {
namespace {

using metadata_store::kLevelOff;
using metadata_store::kLevelReadWrite;

constexpr const char* kFolder = "/srv/a";

using Stores = std::map<std::string, Dictionary>;
using Entries = std::vector<FolderPrivileges::Entry>;

Dictionary request(const Dictionary& sharePoint) {
  return {{"optionalArguments", Dictionary{{"path", kFolder}}},
          {"configuration", Dictionary{{"sharePointRecord", sharePoint}}}};
}

// A shared folder with an ACL of somebody else's entry, and a store of another folder.
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
  return {"ReadIndexed",
          prepareIndexed,
          "readSettings",
          {{"optionalArguments", Dictionary{{"path", kFolder}}}}};
}
Scenario listIndexed() { return {"ListIndexed", prepareIndexed, "getSharePointList", {}}; }

class IndexingFaultSweepTest : public ::testing::TestWithParam<std::tuple<Scenario, FaultMode>> {
 protected:
  const Scenario& scenario() const { return std::get<0>(GetParam()); }
  const FaultMode& mode() const { return std::get<1>(GetParam()); }
  bool writes() const { return scenario().operation == "writeSettings"; }

  void SetUp() override {
    FaultWorld world(scenario());
    before_ = world.doubles.stores.stores();
    aclBefore_ = entriesOf(world.doubles);
    FaultPlan none;
    const Outcome clean = world.run(none);
    ASSERT_TRUE(clean.reply);
    after_ = world.doubles.stores.stores();
    ASSERT_EQ(before_ == after_, !writes());
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
      const bool asBefore = before_.contains(path) && before_.at(path) == attributes;
      const bool asAfter = after_.contains(path) && after_.at(path) == attributes;
      EXPECT_TRUE(asBefore || asAfter) << path;
    }
    for (const auto& store : before_) EXPECT_TRUE(left.contains(store.first)) << store.first;
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

  // Deliberate: stores that cannot be read look like a folder without one, and nothing is said.
  static bool isQuiet(const std::string& call) {
    return call == "metadataStores.copyStorePaths" || call == "metadataStores.copyStoreAttributes";
  }

  void checkSuccessIsSuccess(const Outcome& outcome, const FaultPlan& plan, FaultWorld& world) {
    if (!outcome.reply || outcome.reply->integer("writeStatus") != 0) return;
    if (!world.errorLines("").empty() || isQuiet(plan.failedCall()) || mode().keepFailing) return;
    EXPECT_EQ(world.doubles.stores.stores(), after_);
  }

  void checkNothingIsHeld(FaultWorld& world) const {
    EXPECT_EQ(world.doubles.acl.unreleased(), 0U);
    EXPECT_EQ(world.doubles.directory.openSessions(), 0);
    const bool free = std::async(std::launch::async, [] {
                        if (!gSettingsDictLock->try_lock()) return false;
                        gSettingsDictLock->unlock();
                        return true;
                      }).get();
    ASSERT_TRUE(free) << "the lock is held";
  }

  void checkSendingItAgain(FaultWorld& world) const {
    FaultPlan none;
    ASSERT_TRUE(world.run(none).reply);
    EXPECT_EQ(world.doubles.stores.stores(), after_);
    checkAcl(entriesOf(world.doubles));
  }

  void check(FaultWorld& world, FaultPlan& plan) {
    const Outcome outcome = world.run(plan);
    checkNothingIsHeld(world);
    checkStores(world.doubles.stores.stores());
    checkAcl(entriesOf(world.doubles));
    checkLines(world, plan);
    if (writes()) checkSuccessIsSuccess(outcome, plan, world);
    checkSendingItAgain(world);
  }

  Stores before_;
  Stores after_;
  Entries aclBefore_;
};

TEST_P(IndexingFaultSweepTest, EveryCallMayFail) {
  constexpr std::size_t kMoreThanAnyRequestMakes = 1000;
  bool storesFailed = false;
  for (std::size_t call = 1;; ++call) {
    ASSERT_LT(call, kMoreThanAnyRequestMakes);
    FaultPlan plan(call);
    plan.setError(mode().error);
    if (mode().keepFailing) plan.keepFailing();
    FaultWorld world(scenario());
    check(world, plan);
    if (HasFailure()) FAIL() << "call " << call << ": " << plan.failedCall();
    storesFailed = storesFailed || plan.failedCall().rfind("metadataStores.", 0) == 0;
    if (!plan.fired()) break;
  }
  EXPECT_TRUE(storesFailed) << "a sweep that asked no store";
}

INSTANTIATE_TEST_SUITE_P(
    Requests, IndexingFaultSweepTest,
    ::testing::Combine(::testing::Values(switchOn(), raise(), switchOff(), shareAndIndex(),
                                         deleteIndexed(), readIndexed(), listIndexed()),
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
