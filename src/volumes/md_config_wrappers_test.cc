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

class MetadataStoreIndexing : public IndexingFixture {
 protected:
  static void enable() { MDConfigWrappers::enableIndexingForPath(kFolder); }
  static void disable() { MDConfigWrappers::disableIndexingForPath(kFolder); }
  static bool isEnabled() { return MDConfigWrappers::isIndexingEnabledAtPath(kFolder); }
  void mountClustered() { volumes.mount({"/srv", "cluster", "vkfs"}); }
};

// isVelkor

TEST_F(MetadataStoreIndexing, PathOnClusteredFileSystemIsVelkor) {
  mountClustered();
  volumes.mount({"/srv/local", "/dev/vdb1", "ext4"});
  EXPECT_TRUE(MDConfigWrappers::isVelkor(kFolder));
  EXPECT_TRUE(MDConfigWrappers::isVelkor("/srv"));
  EXPECT_FALSE(MDConfigWrappers::isVelkor("/srv/local/a"));
  EXPECT_FALSE(MDConfigWrappers::isVelkor("/"));
}

TEST_F(MetadataStoreIndexing, EmptyPathIsNotVelkorAndNotQueried) {
  volumes.mount({"/", "cluster", "vkfs"});
  EXPECT_FALSE(MDConfigWrappers::isVelkor(""));
  EXPECT_EQ(volumes.statfsCalls(), 0);
}

TEST_F(MetadataStoreIndexing, FailedPathQueryIsNotVelkor) {
  mountClustered();
  volumes.setError(kFolder, EACCES);
  EXPECT_FALSE(MDConfigWrappers::isVelkor(kFolder));
}

TEST_F(MetadataStoreIndexing, TheWholeNameOfTheTypeCounts) {
  for (const char* type : {"vkf", "vkfs2", "VKFS", "fuse.vkfs", ""}) {
    volumes.mount({"/srv", "cluster", type});
    EXPECT_FALSE(MDConfigWrappers::isVelkor(kFolder)) << type;
  }
}

TEST_F(MetadataStoreIndexing, SixteenBytesOfTheNameAreCompared) {
  volumes.mount({"/srv", "cluster", std::string("vkfs\0and something else", 22)});
  EXPECT_TRUE(MDConfigWrappers::isVelkor(kFolder));
}

// isIndexingEnabledAtPath

TEST_F(MetadataStoreIndexing, APathWithoutAStoreIsNotIndexed) {
  EXPECT_FALSE(isEnabled());
  EXPECT_FALSE(MDConfigWrappers::isIndexingEnabledAtPath(""));
}

TEST_F(MetadataStoreIndexing, OnlyAReadWriteStoreIsIndexed) {
  stores.setLevel(kFolder, kLevelReadWrite);
  EXPECT_TRUE(isEnabled());
  for (const char* level : {kLevelFSSearchOnly, kLevelOff, "", "something else"}) {
    stores.setLevel(kFolder, level);
    EXPECT_FALSE(isEnabled()) << level;
  }
}

TEST_F(MetadataStoreIndexing, AStoreWithoutALevelIsNotIndexed) {
  EXPECT_EQ(stores.createStore(kFolder, {}), 0);
  EXPECT_FALSE(isEnabled());
}

TEST_F(MetadataStoreIndexing, PathsAreComparedExactly) {
  stores.setLevel(kFolder, kLevelReadWrite);
  for (const char* path : {"/srv", "/srv/folder/", "/srv/Folder", "/srv/folder/a", "//srv/folder"})
    EXPECT_FALSE(MDConfigWrappers::isIndexingEnabledAtPath(path)) << path;
}

TEST_F(MetadataStoreIndexing, FailedQueryCountsAsNotIndexedWithoutLog) {
  stores.setLevel(kFolder, kLevelReadWrite);
  for (const char* call : {"metadataStores.copyStorePaths", "metadataStores.copyStoreAttributes"})
    failing(call, [] { EXPECT_FALSE(isEnabled()); });
  expectErrors({});
}

TEST_F(MetadataStoreIndexing, TheStoresAreAskedOnce) {
  stores.setLevel(kFolder, kLevelReadWrite);
  FaultPlan plan;
  const ForwardingServices faulty(doubles(), plan);
  const ServicesGuard guard(faulty.services());
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(plan.calls(),
            (Texts{"metadataStores.copyStorePaths", "metadataStores.copyStoreAttributes"}));
}

TEST_F(MetadataStoreIndexing, PathOnClusteredFileSystemFollowsItsStore) {
  mountClustered();
  EXPECT_FALSE(isEnabled());
  stores.setLevel(kFolder, kLevelReadWrite);
  EXPECT_TRUE(isEnabled());
}

// setIsIndexingEnabled

TEST_F(MetadataStoreIndexing, SettingSwitchesOnAndOff) {
  MDConfigWrappers::setIsIndexingEnabled(true, kFolder);
  EXPECT_TRUE(isEnabled());
  MDConfigWrappers::setIsIndexingEnabled(false, kFolder);
  EXPECT_FALSE(isEnabled());
  EXPECT_EQ(stores.levelOf(kFolder), kLevelFSSearchOnly);
}

// enableIndexingForPath

TEST_F(MetadataStoreIndexing, EnablingPathWithoutStoreCreatesStoreAndEntry) {
  enable();
  EXPECT_EQ(stores.stores(),
            (std::map<std::string, Dictionary>{{kFolder, {{"searchLevel", "readWrite"}}}}));
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  expectErrors({});
}

TEST_F(MetadataStoreIndexing, EnablingRaisesLowerStoreAndKeepsOtherAttributes) {
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

TEST_F(MetadataStoreIndexing, EnablingAStoreWithoutALevelSetsIt) {
  EXPECT_EQ(stores.createStore(kFolder, {}), 0);
  enable();
  EXPECT_TRUE(isEnabled());
}

TEST_F(MetadataStoreIndexing, EnablingReadWriteStoreOnlyAddsMissingEntry) {
  stores.setLevel(kFolder, kLevelReadWrite);
  FaultPlan plan;
  const ForwardingServices faulty(doubles(), plan);
  const ServicesGuard guard(faulty.services());
  enable();
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  for (const std::string& call : plan.calls()) {
    EXPECT_NE(call, "metadataStores.setStoreAttributes");
    EXPECT_NE(call, "metadataStores.createStore");
  }
}

TEST_F(MetadataStoreIndexing, FolderWithEntryGetsNoSecondOne) {
  enable();
  disable();
  enable();
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
  EXPECT_EQ(acl.replacements(), 1);
}

TEST_F(MetadataStoreIndexing, OtherStoresAreLeftAlone) {
  stores.setLevel("/srv", kLevelOff);
  stores.setLevel("/srv/folder/", kLevelFSSearchOnly);
  enable();
  EXPECT_EQ(stores.levelOf("/srv"), kLevelOff);
  EXPECT_EQ(stores.levelOf("/srv/folder/"), kLevelFSSearchOnly);
}

TEST_F(MetadataStoreIndexing, PathOnClusteredFileSystemIsNeverChanged) {
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

TEST_F(MetadataStoreIndexing, FailedStoreRaiseIsLoggedAndEndsEnabling) {
  stores.setLevel(kFolder, kLevelOff);
  failing("metadataStores.setStoreAttributes", enable, EROFS);
  expectErrors(
      {"paddock_sharing: Failed to enable indexing on Lookwise store at /srv/folder (error: 30)"});
  EXPECT_EQ(stores.levelOf(kFolder), kLevelOff);
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(MetadataStoreIndexing, FailedStoreCreationIsLoggedAndEndsEnabling) {
  failing("metadataStores.createStore", enable, EBUSY);
  expectErrors(
      {"paddock_sharing: Failed to create a R/W Lookwise store at /srv/folder (error: 16)"});
  EXPECT_TRUE(stores.stores().empty());
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(MetadataStoreIndexing, PathUnfitForStoreIsLogged) {
  MDConfigWrappers::enableIndexingForPath("");
  expectErrors({"paddock_sharing: Failed to create a R/W Lookwise store at  (error: 22)"});
}

TEST_F(MetadataStoreIndexing, StoresThatCannotBeListedAreNotOverwritten) {
  stores.setLevel(kFolder, kLevelOff);
  FaultPlan plan(1);
  plan.countOnly("metadataStores.copyStorePaths");
  plan.keepFailing();
  const ForwardingServices faulty(doubles(), plan);
  {
    const ServicesGuard guard(faulty.services());
    enable();
    disable();
  }
  expectErrors(
      {"paddock_sharing: Failed to create a R/W Lookwise store at /srv/folder (error: 17)"});
  EXPECT_EQ(stores.levelOf(kFolder), kLevelOff);
}

TEST_F(MetadataStoreIndexing, FailedEntryIsLoggedAndStoreStaysRaised) {
  failing("acl.acl_set_file", enable, EPERM);
  expectErrors({"paddock_sharing: Failed to set Lookwise ACE on /srv/folder"});
  EXPECT_TRUE(isEnabled());
  EXPECT_EQ(entries(), (Texts{"(none)"}));
}

TEST_F(MetadataStoreIndexing, MissingFolderHasStoreAndNoEntry) {
  tree.remove(kFolder);
  enable();
  EXPECT_TRUE(isEnabled());
  expectErrors({"paddock_sharing: Failed to set Lookwise ACE on /srv/folder"});
}

// disableIndexingForPath

TEST_F(MetadataStoreIndexing, DisablingLowersReadWriteStoreToAttributeSearch) {
  stores.setLevel(kFolder, kLevelReadWrite);
  EXPECT_EQ(stores.setStoreAttributes(kFolder, {{"other", "kept"}}), 0);
  disable();
  EXPECT_EQ(stores.stores().at(kFolder),
            (Dictionary{{"searchLevel", "fsSearchOnly"}, {"other", "kept"}}));
  expectErrors({});
}

TEST_F(MetadataStoreIndexing, DisablingKeepsTheEntry) {
  enable();
  disable();
  EXPECT_EQ(entries(), (Texts{kLookwiseEntry}));
}

TEST_F(MetadataStoreIndexing, DisablingALowerStoreChangesNothing) {
  for (const char* level : {kLevelFSSearchOnly, kLevelOff}) {
    stores.setLevel(kFolder, level);
    FaultPlan plan;
    const ForwardingServices faulty(doubles(), plan);
    const ServicesGuard guard(faulty.services());
    disable();
    EXPECT_EQ(stores.levelOf(kFolder), level);
    EXPECT_EQ(plan.calls().back(), "metadataStores.copyStoreAttributes");
  }
}

TEST_F(MetadataStoreIndexing, DisablingAPathWithoutAStoreDoesNothing) {
  disable();
  MDConfigWrappers::disableIndexingForPath("");
  EXPECT_TRUE(stores.stores().empty());
  EXPECT_EQ(entries(), (Texts{"(none)"}));
  expectErrors({});
}

TEST_F(MetadataStoreIndexing, DisablingStoreWithOtherLevelSetsAttributeSearch) {
  EXPECT_EQ(stores.createStore(kFolder, {}), 0);
  disable();
  EXPECT_EQ(stores.levelOf(kFolder), kLevelFSSearchOnly);
  stores.setLevel(kFolder, "something else");
  disable();
  EXPECT_EQ(stores.levelOf(kFolder), kLevelFSSearchOnly);
}

TEST_F(MetadataStoreIndexing, AStoreThatCannotBeLoweredIsLogged) {
  stores.setLevel(kFolder, kLevelReadWrite);
  failing("metadataStores.setStoreAttributes", disable, EIO);
  expectErrors(
      {"paddock_sharing: Failed to enable FS-Searching on Lookwise store at /srv/folder (error: "
       "5)"});
  EXPECT_EQ(stores.levelOf(kFolder), kLevelReadWrite);
}

// The notified command

class IndexingCommand : public MetadataStoreIndexing {
 protected:
  IndexingCommand() { setCommand({"/bin/tell", "--from", "paddock"}); }
  static RecordingProgramRunner::Run told(const std::string& level) {
    return {"/bin/tell", {"/bin/tell", "--from", "paddock", kFolder, level}};
  }
};

TEST_F(IndexingCommand, ReceivesPathAndNewLevelOfEachChange) {
  enable();
  EXPECT_EQ(programs.started(), (Runs{told("readWrite")}));
  disable();
  EXPECT_EQ(programs.started(), (Runs{told("readWrite"), told("fsSearchOnly")}));
  enable();
  EXPECT_EQ(programs.started(), (Runs{told("readWrite"), told("fsSearchOnly"), told("readWrite")}));
  EXPECT_EQ(programs.runs(), Runs()) << "nothing is waited for";
}

TEST_F(IndexingCommand, IsNotToldWhenNothingChanges) {
  disable();
  stores.setLevel(kFolder, kLevelReadWrite);
  enable();
  stores.setLevel(kFolder, kLevelOff);
  disable();
  EXPECT_EQ(programs.started(), Runs());
}

TEST_F(IndexingCommand, IsNotToldOfWhatFailed) {
  failing("metadataStores.createStore", enable);
  stores.setLevel(kFolder, kLevelFSSearchOnly);
  failing("metadataStores.setStoreAttributes", enable);
  stores.setLevel(kFolder, kLevelReadWrite);
  failing("metadataStores.setStoreAttributes", disable);
  EXPECT_EQ(programs.started(), Runs());
}

TEST_F(IndexingCommand, IsToldOfAChangeWhoseEntryFailed) {
  failing("acl.acl_set_file", enable);
  EXPECT_EQ(programs.started(), (Runs{told("readWrite")}));
}

TEST_F(IndexingCommand, FailedStartIsOnlyLogged) {
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

TEST_F(IndexingCommand, WithoutACommandNothingIsStarted) {
  setCommand({});
  enable();
  disable();
  EXPECT_EQ(programs.started(), Runs());
  expectErrors({});
}

TEST_F(IndexingCommand, PathsOfAnyKindAreOneArgument) {
  const std::string path = "/srv/a b;$(touch x)\n'\"*";
  tree.setFolder(path);
  MDConfigWrappers::enableIndexingForPath(path);
  ASSERT_EQ(programs.started().size(), 1U);
  EXPECT_EQ(programs.started().at(0).arguments,
            (Texts{"/bin/tell", "--from", "paddock", path, "readWrite"}));
}

}  // namespace
}  // namespace paddock
