// Search indexing as reading, writing and deleting share points carry it along.
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/directory_access.h"
#include "store/share_point_reading.h"
#include "store/share_point_update.h"
#include "store/share_point_writing.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using metadata_store::kLevelFSSearchOnly;
using metadata_store::kLevelOff;
using metadata_store::kLevelReadWrite;

using Names = std::vector<std::string>;

class SharePointIndexingTest : public ModuleFixture {
 protected:
  SharePointIndexingTest() { tree.setFolder("/srv/a"); }

  bool readsAsIndexed(const std::string& path) {
    std::unique_ptr<SharePointRecord> record;
    EXPECT_EQ(get_share_point(path, record), 0);
    return record != nullptr && record->isIndexingEnabled();
  }
  static Status update(const Dictionary& settings) {
    SharePointRecord sharePoint = SharePointRecord::recordWithDictionary(settings);
    return update_sharepoint(sharePoint, {});
  }
  Names storeChanges() const { return trace.sequence({"createStore", "setStoreAttributes"}); }
  Names errorLines() const {
    Names texts;
    for (const auto& line : logger.lines()) {
      if (line.priority == kLogError) texts.push_back(line.text);
    }
    return texts;
  }
};

class IndexingReading : public SharePointIndexingTest {};

TEST_F(IndexingReading, SharePointReportsWhetherPathIsIndexed) {
  addSharePoint("a", "/srv/a");
  EXPECT_FALSE(readsAsIndexed("/srv/a"));
  stores.setLevel("/srv/a", kLevelReadWrite);
  EXPECT_TRUE(readsAsIndexed("/srv/a"));
  for (const char* level : {kLevelFSSearchOnly, kLevelOff}) {
    stores.setLevel("/srv/a", level);
    EXPECT_FALSE(readsAsIndexed("/srv/a")) << level;
  }
}

TEST_F(IndexingReading, RecordPathWinsOverRequestedPath) {
  addSharePoint("a", "/srv/a");
  stores.setLevel("/srv/a", kLevelReadWrite);
  EXPECT_TRUE(readsAsIndexed("/SRV/A"));
}

TEST_F(IndexingReading, ListReportsIndexingOfEverySharePoint) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  addRecord(schema::kSharePoints, "bare");
  stores.setLevel("/srv/b", kLevelReadWrite);
  std::optional<Array> list;
  EXPECT_EQ(read_sharepoints(nullptr, list), 0);
  ASSERT_TRUE(list);
  std::vector<Value> flags;
  for (const Value& form : *list) flags.push_back(*form.dictionary()->find("isIndexingEnabled"));
  EXPECT_EQ(flags, (std::vector<Value>{false, true, false}));
}

TEST_F(IndexingReading, StoresAreQueriedOncePerSharePoint) {
  for (int i = 0; i < 500; ++i) {
    addSharePoint("s" + std::to_string(i), "/srv/" + std::to_string(i));
    stores.setLevel("/srv/" + std::to_string(i), kLevelReadWrite);
  }
  std::optional<Array> list;
  EXPECT_EQ(read_sharepoints(nullptr, list), 0);
  EXPECT_EQ(trace.count("copyStorePaths"), 500U);
  EXPECT_EQ(trace.count("copyStoreAttributes"), 500U);
}

TEST_F(IndexingReading, UnavailableStoresAreNoReadingError) {
  addSharePoint("a", "/srv/a");
  stores.setLevel("/srv/a", kLevelReadWrite);
  for (const char* operation : {"copyStorePaths", "copyStoreAttributes"}) {
    trace.fail(operation, EBUSY, 1);
    EXPECT_FALSE(readsAsIndexed("/srv/a")) << operation;
  }
  EXPECT_TRUE(errorLines().empty());
}

TEST_F(IndexingReading, IsAskedBeforeTheMountPoint) {
  addSharePoint("a", "/srv/a");
  EXPECT_FALSE(readsAsIndexed("/srv/a"));
  EXPECT_EQ(trace.sequence({"copyStorePaths", "statfs"}),
            (Names{"copyStorePaths ", "statfs /srv/a"}));
}

class IndexingWriting : public SharePointIndexingTest {};

TEST_F(IndexingWriting, NewSharePointIsIndexedOnRequest) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isIndexingEnabled", true}}), 0);
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelReadWrite);
  EXPECT_NE(tree.acl("/srv/a"), nullptr);
  EXPECT_TRUE(readsAsIndexed("/srv/a"));
  EXPECT_TRUE(errorLines().empty());
}

TEST_F(IndexingWriting, NewSharePointWithoutRequestHasNoStore) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_TRUE(stores.stores().empty());
  EXPECT_EQ(tree.acl("/srv/a"), nullptr);
}

TEST_F(IndexingWriting, AnUpdateSwitchesItOnAndOff) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isIndexingEnabled", true}}), 0);
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelReadWrite);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isIndexingEnabled", false}}), 0);
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelFSSearchOnly);
  EXPECT_EQ(storeChanges(), (Names{"createStore /srv/a", "setStoreAttributes /srv/a"}));
}

TEST_F(IndexingWriting, UpdateWithoutSettingKeepsIndexing) {
  addSharePoint("a", "/srv/a");
  stores.setLevel("/srv/a", kLevelReadWrite);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "s"}}), 0);
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelReadWrite);
  stores.setLevel("/srv/a", kLevelOff);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "s"}}), 0);
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelOff);
  EXPECT_TRUE(storeChanges().empty());
}

TEST_F(IndexingWriting, ThePathOfTheMergedSettingsCounts) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(update({{"path", "/SRV/A"}, {"isIndexingEnabled", true}}), 0);
  EXPECT_EQ(storeChanges(), (Names{"createStore /SRV/A"}));
}

TEST_F(IndexingWriting, IsTheLastStep) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"isBackstowBackup", true},
                    {"isIndexingEnabled", true},
                    {"nfsExportRecord", exportTo("*", {"rw"})}}),
            0);
  EXPECT_EQ(trace.sequence({"setAttributesAndValues", "replace", "setAttribute", "createStore",
                            "acl_set_file"}),
            (Names{"setAttributesAndValues a", "replace /etc/exports",
                   "setAttribute com.veltro.access_backup", "setAttribute a", "createStore /srv/a",
                   "acl_set_file /srv/a"}));
}

TEST_F(IndexingWriting, AFailureIsLoggedAndIsNoStatus) {
  trace.fail("createStore", EROFS);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isIndexingEnabled", true}}), 0);
  EXPECT_EQ(
      errorLines(),
      (Names{"paddock_sharing: Failed to create a R/W Lookwise store at /srv/a (error: 30)"}));
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(IndexingWriting, ExceptionWithStatusLogsPathAndNumber) {
  addSharePoint("a", "/srv/a");
  trace.raise("createStore", DirectoryError(-14090, "refused"));
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isIndexingEnabled", true}}), 0);
  EXPECT_EQ(errorLines(),
            (Names{"paddock_sharing: Could not enable/disable lookwise for /srv/a: -14090"}));
}

TEST_F(IndexingWriting, ExceptionWithoutStatusLogsDescription) {
  addSharePoint("a", "/srv/a");
  trace.raise("createStore", DirectoryError("no number"), 1);
  trace.raise("createStore", std::runtime_error("broken"), 1);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(update({{"path", "/srv/a"}, {"isIndexingEnabled", true}}), 0);
  }
  EXPECT_EQ(errorLines(),
            (Names{"paddock_sharing: Could not enable/disable lookwise for /srv/a: no number",
                   "paddock_sharing: Could not enable/disable lookwise for /srv/a: broken"}));
}

TEST_F(IndexingWriting, AnExceptionOfAnyKindStaysInside) {
  addSharePoint("a", "/srv/a");
  trace.raise("createStore", 42);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isIndexingEnabled", true}}), 0);
  EXPECT_EQ(errorLines().size(), 1U);
}

TEST_F(IndexingWriting, DirectoryFailureStillSwitchesExistingSharePoint) {
  addSharePoint("a", "/srv/a");
  trace.raise("setAttributesAndValues", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isIndexingEnabled", true}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelReadWrite);
}

TEST_F(IndexingWriting, UnstoredNewSharePointIsStillIndexed) {
  trace.raise("setAttributesAndValues", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isIndexingEnabled", true}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(stores.stores().size(), 1U);
}

TEST_F(IndexingWriting, AClusteredVolumeIsLeftAlone) {
  volumes.mount({"/srv", "cluster", "vkfs"});
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isIndexingEnabled", true}}), 0);
  EXPECT_TRUE(stores.stores().empty());
  EXPECT_FALSE(readsAsIndexed("/srv/a"));
  EXPECT_TRUE(errorLines().empty());
}

class IndexingDeletion : public SharePointIndexingTest {};

TEST_F(IndexingDeletion, AnIndexedPathIsSwitchedOff) {
  addSharePoint("a", "/srv/a");
  stores.setLevel("/srv/a", kLevelReadWrite);
  stores.setLevel("/srv/b", kLevelReadWrite);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelFSSearchOnly);
  EXPECT_EQ(stores.levelOf("/srv/b"), kLevelReadWrite);
}

TEST_F(IndexingDeletion, UnindexedPathStaysUnchanged) {
  for (const char* level : {kLevelOff, kLevelFSSearchOnly, "something else"}) {
    addSharePoint("a", "/srv/a");
    stores.setLevel("/srv/a", level);
    delete_sharepoint("/srv/a", {});
    EXPECT_EQ(stores.levelOf("/srv/a"), level);
  }
  EXPECT_TRUE(storeChanges().empty());
}

TEST_F(IndexingDeletion, UnsharedPathIsSwitchedOff) {
  stores.setLevel("/srv/c", kLevelReadWrite);
  delete_sharepoint("/srv/c", {});
  EXPECT_EQ(stores.levelOf("/srv/c"), kLevelFSSearchOnly);
}

TEST_F(IndexingDeletion, ThePathOfTheDeletionCountsExactly) {
  addSharePoint("a", "/srv/a");
  stores.setLevel("/srv/a", kLevelReadWrite);
  delete_sharepoint("/SRV/A", {});
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(stores.levelOf("/srv/a"), kLevelReadWrite);
}

TEST_F(IndexingDeletion, ComesAfterTheExport) {
  addSharePoint("a", "/srv/a");
  stores.setLevel("/srv/a", kLevelReadWrite);
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  trace.raise("setStoreAttributes", std::runtime_error("broken"));
  EXPECT_THROW(delete_sharepoint("/srv/a", {}), std::runtime_error);
  EXPECT_EQ(shared_exports_parser().exportCount(), 0U);
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(IndexingDeletion, FailureIsLoggedAndDeletionContinues) {
  addSharePoint("a", "/srv/a");
  stores.setLevel("/srv/a", kLevelReadWrite);
  trace.fail("setStoreAttributes", EIO);
  delete_sharepoint("/srv/a", {});
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(errorLines(), (Names{"paddock_sharing: Failed to enable FS-Searching on Lookwise "
                                 "store at /srv/a (error: 5)"}));
}

}  // namespace
}  // namespace paddock
