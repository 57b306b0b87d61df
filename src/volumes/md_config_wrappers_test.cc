#include "volumes/md_config_wrappers.h"

#include <cerrno>

#include "support/indexing_fixture.h"

namespace paddock {
namespace {

using metadata_store::kLevelFSSearchOnly;
using metadata_store::kLevelOff;
using metadata_store::kLevelReadWrite;

using Texts = std::vector<std::string>;
using Runs = std::vector<RecordingProgramRunner::Run>;

class MDConfigWrappersTest : public IndexingFixture {
 protected:
  static void enable() { MDConfigWrappers::enableIndexingForPath(kFolder); }
  static void disable() { MDConfigWrappers::disableIndexingForPath(kFolder); }
  static bool isEnabled() { return MDConfigWrappers::isIndexingEnabledAtPath(kFolder); }
  void mountClustered() { volumes.mount({"/srv", "cluster", "vkfs"}); }
};

// isVelkor

TEST_F(MDConfigWrappersTest, APathOnTheClusteredFileSystemIsVelkor) {
  mountClustered();
  volumes.mount({"/srv/local", "/dev/vdb1", "ext4"});
  EXPECT_TRUE(MDConfigWrappers::isVelkor(kFolder));
  EXPECT_TRUE(MDConfigWrappers::isVelkor("/srv"));
  EXPECT_FALSE(MDConfigWrappers::isVelkor("/srv/local/a"));
  EXPECT_FALSE(MDConfigWrappers::isVelkor("/"));
}

TEST_F(MDConfigWrappersTest, NoPathIsNotVelkorAndIsNotAskedFor) {
  volumes.mount({"/", "cluster", "vkfs"});
  EXPECT_FALSE(MDConfigWrappers::isVelkor(""));
  EXPECT_EQ(volumes.statfsCalls(), 0);
}

TEST_F(MDConfigWrappersTest, APathThatCannotBeAskedIsNotVelkor) {
  mountClustered();
  volumes.setError(kFolder, EACCES);
  EXPECT_FALSE(MDConfigWrappers::isVelkor(kFolder));
}

TEST_F(MDConfigWrappersTest, TheWholeNameOfTheTypeCounts) {
  for (const char* type : {"vkf", "vkfs2", "VKFS", "fuse.vkfs", ""}) {
    volumes.mount({"/srv", "cluster", type});
    EXPECT_FALSE(MDConfigWrappers::isVelkor(kFolder)) << type;
  }
}

TEST_F(MDConfigWrappersTest, SixteenBytesOfTheNameAreCompared) {
  volumes.mount({"/srv", "cluster", std::string("vkfs\0and something else", 22)});
  EXPECT_TRUE(MDConfigWrappers::isVelkor(kFolder));
}

// isIndexingEnabledAtPath

TEST_F(MDConfigWrappersTest, APathWithoutAStoreIsNotIndexed) {
  EXPECT_FALSE(isEnabled());
  EXPECT_FALSE(MDConfigWrappers::isIndexingEnabledAtPath(""));
}

TEST_F(MDConfigWrappersTest, OnlyAReadWriteStoreIsIndexed) {
  stores.setLevel(kFolder, kLevelReadWrite);
  EXPECT_TRUE(isEnabled());
  for (const char* level : {kLevelFSSearchOnly, kLevelOff, "", "something else"}) {
    stores.setLevel(kFolder, level);
    EXPECT_FALSE(isEnabled()) << level;
  }
}

TEST_F(MDConfigWrappersTest, AStoreWithoutALevelIsNotIndexed) {
  EXPECT_EQ(stores.createStore(kFolder, {}), 0);
  EXPECT_FALSE(isEnabled());
}

TEST_F(MDConfigWrappersTest, PathsAreComparedExactly) {
  stores.setLevel(kFolder, kLevelReadWrite);
  for (const char* path : {"/srv", "/srv/folder/", "/srv/Folder", "/srv/folder/a", "//srv/folder"})
    EXPECT_FALSE(MDConfigWrappers::isIndexingEnabledAtPath(path)) << path;
}

TEST_F(MDConfigWrappersTest, WhatCannotBeAskedIsNotIndexedAndNotLogged) {
  stores.setLevel(kFolder, kLevelReadWrite);
  for (const char* call : {"metadataStores.copyStorePaths", "metadataStores.copyStoreAttributes"})
    failing(call, [] { EXPECT_FALSE(isEnabled()); });
  expectErrors({});
}

TEST_F(MDConfigWrappersTest, TheStoresAreAskedOnce) {
  stores.setLevel(kFolder, kLevelReadWrite);
  FaultPlan plan;
  const FaultyServices faulty(doubles(), plan);
  const ServicesGuard guard(faulty.services());
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(plan.calls(),
            (Texts{"metadataStores.copyStorePaths", "metadataStores.copyStoreAttributes"}));
}

TEST_F(MDConfigWrappersTest, APathOnTheClusteredFileSystemIsWhatItsStoreSays) {
  mountClustered();
  EXPECT_FALSE(isEnabled());
  stores.setLevel(kFolder, kLevelReadWrite);
  EXPECT_TRUE(isEnabled());
}

// setIsIndexingEnabled

TEST_F(MDConfigWrappersTest, SettingSwitchesOnAndOff) {
  MDConfigWrappers::setIsIndexingEnabled(true, kFolder);
  EXPECT_TRUE(isEnabled());
  MDConfigWrappers::setIsIndexingEnabled(false, kFolder);
  EXPECT_FALSE(isEnabled());
  EXPECT_EQ(stores.levelOf(kFolder), kLevelFSSearchOnly);
}

// enableIndexingForPath

TEST_F(MDConfigWrappersTest, EnablingAPathWithoutAStoreCreatesOneAndAddsTheEntry) {
  enable();
  EXPECT_EQ(stores.stores(),
            (std::map<std::string, Dictionary>{{kFolder, {{"searchLevel", "readWrite"}}}}));
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  expectErrors({});
}

TEST_F(MDConfigWrappersTest, EnablingRaisesALowerStoreAndKeepsItsOtherAttributes) {
  for (const char* level : {kLevelFSSearchOnly, kLevelOff, "something else"}) {
    stores.setLevel(kFolder, level);
    EXPECT_EQ(stores.setStoreAttributes(kFolder, {{"other", "kept"}}), 0);
    enable();
    EXPECT_EQ(stores.stores().at(kFolder),
              (Dictionary{{"searchLevel", "readWrite"}, {"other", "kept"}}));
  }
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  expectErrors({});
}

TEST_F(MDConfigWrappersTest, EnablingAStoreWithoutALevelSetsIt) {
  EXPECT_EQ(stores.createStore(kFolder, {}), 0);
  enable();
  EXPECT_TRUE(isEnabled());
}

TEST_F(MDConfigWrappersTest, EnablingAReadWriteStoreChangesNothingButAddsAMissingEntry) {
  stores.setLevel(kFolder, kLevelReadWrite);
  FaultPlan plan;
  const FaultyServices faulty(doubles(), plan);
  const ServicesGuard guard(faulty.services());
  enable();
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  for (const std::string& call : plan.calls()) {
    EXPECT_NE(call, "metadataStores.setStoreAttributes");
    EXPECT_NE(call, "metadataStores.createStore");
  }
}

TEST_F(MDConfigWrappersTest, AFolderThatHoldsTheEntryGetsNoSecondOne) {
  enable();
  disable();
  enable();
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  EXPECT_EQ(acl.replacements(), 1);
}

TEST_F(MDConfigWrappersTest, OtherStoresAreLeftAlone) {
  stores.setLevel("/srv", kLevelOff);
  stores.setLevel("/srv/folder/", kLevelFSSearchOnly);
  enable();
  EXPECT_EQ(stores.levelOf("/srv"), kLevelOff);
  EXPECT_EQ(stores.levelOf("/srv/folder/"), kLevelFSSearchOnly);
}

TEST_F(MDConfigWrappersTest, APathOnTheClusteredFileSystemIsNeverChanged) {
  mountClustered();
  setCommand({"/bin/tell"});
  enable();
  EXPECT_TRUE(stores.stores().empty());
  for (const char* level : {kLevelReadWrite, kLevelFSSearchOnly, kLevelOff}) {
    stores.setLevel(kFolder, level);
    enable();
    disable();
    EXPECT_EQ(stores.levelOf(kFolder), level);
  }
  EXPECT_EQ(entries(), (Texts{"(none)"}));
  EXPECT_EQ(programs.started(), Runs());
  expectErrors({});
}

TEST_F(MDConfigWrappersTest, AStoreThatCannotBeRaisedIsLoggedAndEndsIt) {
  stores.setLevel(kFolder, kLevelOff);
  failing("metadataStores.setStoreAttributes", enable, EROFS);
  expectErrors(
      {"paddock_sharing: Failed to enable indexing on Lookwise store at /srv/folder (error: 30)"});
  EXPECT_EQ(stores.levelOf(kFolder), kLevelOff);
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(MDConfigWrappersTest, AStoreThatCannotBeCreatedIsLoggedAndEndsIt) {
  failing("metadataStores.createStore", enable, EBUSY);
  expectErrors(
      {"paddock_sharing: Failed to create a R/W Lookwise store at /srv/folder (error: 16)"});
  EXPECT_TRUE(stores.stores().empty());
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(MDConfigWrappersTest, APathThatNoStoreCanHaveIsLogged) {
  MDConfigWrappers::enableIndexingForPath("");
  expectErrors({"paddock_sharing: Failed to create a R/W Lookwise store at  (error: 22)"});
}

TEST_F(MDConfigWrappersTest, StoresThatCannotBeListedAreNotOverwritten) {
  stores.setLevel(kFolder, kLevelOff);
  FaultPlan plan(1);
  plan.countOnly("metadataStores.copyStorePaths");
  plan.keepFailing();
  const FaultyServices faulty(doubles(), plan);
  {
    const ServicesGuard guard(faulty.services());
    enable();
    disable();
  }
  expectErrors(
      {"paddock_sharing: Failed to create a R/W Lookwise store at /srv/folder (error: 17)"});
  EXPECT_EQ(stores.levelOf(kFolder), kLevelOff);
}

TEST_F(MDConfigWrappersTest, AnEntryThatCannotBeSetIsLoggedAndTheStoreStaysRaised) {
  failing("acl.acl_set_file", enable, EPERM);
  expectErrors({"paddock_sharing: Failed to set Lookwise ACE on /srv/folder"});
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(MDConfigWrappersTest, AFolderThatIsMissingHasAStoreAndNoEntry) {
  tree.remove(kFolder);
  enable();
  EXPECT_TRUE(isEnabled());
  expectErrors({"paddock_sharing: Failed to set Lookwise ACE on /srv/folder"});
}

// disableIndexingForPath

TEST_F(MDConfigWrappersTest, DisablingLowersAReadWriteStoreToSearchOfAttributes) {
  stores.setLevel(kFolder, kLevelReadWrite);
  EXPECT_EQ(stores.setStoreAttributes(kFolder, {{"other", "kept"}}), 0);
  disable();
  EXPECT_EQ(stores.stores().at(kFolder),
            (Dictionary{{"searchLevel", "fsSearchOnly"}, {"other", "kept"}}));
  expectErrors({});
}

TEST_F(MDConfigWrappersTest, DisablingKeepsTheEntry) {
  enable();
  disable();
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
}

TEST_F(MDConfigWrappersTest, DisablingALowerStoreChangesNothing) {
  for (const char* level : {kLevelFSSearchOnly, kLevelOff}) {
    stores.setLevel(kFolder, level);
    FaultPlan plan;
    const FaultyServices faulty(doubles(), plan);
    const ServicesGuard guard(faulty.services());
    disable();
    EXPECT_EQ(stores.levelOf(kFolder), level);
    EXPECT_EQ(plan.calls().back(), "metadataStores.copyStoreAttributes");
  }
}

TEST_F(MDConfigWrappersTest, DisablingAPathWithoutAStoreDoesNothing) {
  disable();
  MDConfigWrappers::disableIndexingForPath("");
  EXPECT_TRUE(stores.stores().empty());
  EXPECT_EQ(entries(), (Texts{"(none)"}));
  expectErrors({});
}

TEST_F(MDConfigWrappersTest, DisablingAStoreWithAnotherLevelOrNoneSetsSearchOfAttributes) {
  EXPECT_EQ(stores.createStore(kFolder, {}), 0);
  disable();
  EXPECT_EQ(stores.levelOf(kFolder), kLevelFSSearchOnly);
  stores.setLevel(kFolder, "something else");
  disable();
  EXPECT_EQ(stores.levelOf(kFolder), kLevelFSSearchOnly);
}

TEST_F(MDConfigWrappersTest, AStoreThatCannotBeLoweredIsLogged) {
  stores.setLevel(kFolder, kLevelReadWrite);
  failing("metadataStores.setStoreAttributes", disable, EIO);
  expectErrors(
      {"paddock_sharing: Failed to enable FS-Searching on Lookwise store at /srv/folder (error: "
       "5)"});
  EXPECT_EQ(stores.levelOf(kFolder), kLevelReadWrite);
}

// The command that is told

class IndexingCommandTest : public MDConfigWrappersTest {
 protected:
  IndexingCommandTest() { setCommand({"/bin/tell", "--from", "paddock"}); }
  static RecordingProgramRunner::Run told(const std::string& level) {
    return {"/bin/tell", {"/bin/tell", "--from", "paddock", kFolder, level}};
  }
};

TEST_F(IndexingCommandTest, IsToldOfEachChangeWithThePathAndTheNewLevel) {
  enable();
  EXPECT_EQ(programs.started(), (Runs{told("readWrite")}));
  disable();
  EXPECT_EQ(programs.started(), (Runs{told("readWrite"), told("fsSearchOnly")}));
  enable();
  EXPECT_EQ(programs.started(), (Runs{told("readWrite"), told("fsSearchOnly"), told("readWrite")}));
  EXPECT_EQ(programs.runs(), Runs()) << "nothing is waited for";
}

TEST_F(IndexingCommandTest, IsNotToldWhenNothingChanges) {
  disable();
  stores.setLevel(kFolder, kLevelReadWrite);
  enable();
  stores.setLevel(kFolder, kLevelOff);
  disable();
  EXPECT_EQ(programs.started(), Runs());
}

TEST_F(IndexingCommandTest, IsNotToldOfWhatFailed) {
  failing("metadataStores.createStore", enable);
  stores.setLevel(kFolder, kLevelFSSearchOnly);
  failing("metadataStores.setStoreAttributes", enable);
  stores.setLevel(kFolder, kLevelReadWrite);
  failing("metadataStores.setStoreAttributes", disable);
  EXPECT_EQ(programs.started(), Runs());
}

TEST_F(IndexingCommandTest, IsToldOfAChangeWhoseEntryFailed) {
  failing("acl.acl_set_file", enable);
  EXPECT_EQ(programs.started(), (Runs{told("readWrite")}));
}

TEST_F(IndexingCommandTest, OneThatCannotBeStartedIsLoggedAndNoMore) {
  programs.setStartError(ENOENT);
  enable();
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  expectErrors(
      {"paddock_sharing: Failed to start the indexing command for /srv/folder (error: 2)"});
  disable();
  EXPECT_FALSE(isEnabled());
  expectErrors(
      {"paddock_sharing: Failed to start the indexing command for /srv/folder (error: 2)"});
}

TEST_F(IndexingCommandTest, WithoutACommandNothingIsStarted) {
  setCommand({});
  enable();
  disable();
  EXPECT_EQ(programs.started(), Runs());
  expectErrors({});
}

TEST_F(IndexingCommandTest, PathsOfAnyKindAreOneArgument) {
  const std::string path = "/srv/a b;$(touch x)\n'\"*";
  tree.setFolder(path);
  MDConfigWrappers::enableIndexingForPath(path);
  ASSERT_EQ(programs.started().size(), 1U);
  EXPECT_EQ(programs.started().at(0).arguments,
            (Texts{"/bin/tell", "--from", "paddock", path, "readWrite"}));
}

}  // namespace
}  // namespace paddock
