#include "store/share_point_writing.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/directory_access.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kMounts;
using schema::kReshareMountName;

using Names = std::vector<std::string>;

class SharePointDeletion : public ModuleFixture {
 protected:
  void SetUp() override {
    addSharePoint("a", "/srv/a");
    addSharePoint("b", "/srv/b");
  }
};

TEST_F(SharePointDeletion, RemovesOnlyRecordOfPath) {
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(SharePointDeletion, APathThatIsNotSharedChangesNothing) {
  sharedFiles.insert("file:///srv/c");
  delete_sharepoint("/srv/c", {});
  delete_sharepoint("", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///srv/c"}));
}

TEST_F(SharePointDeletion, PathInOtherLetterCaseFindsRecord) {
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  delete_sharepoint("/SRV/A", {});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
  EXPECT_EQ(shared_exports_parser().exportCount(), 0U);
}

TEST_F(SharePointDeletion, LastOfTwoRecordsIsRemoved) {
  addSharePoint("second", "/srv/a");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, AReshareTakesItsMountRecordAlong) {
  addSharePoint("r", "/nfs_reshares/r", {{kReshareMountName, "server:/export"}});
  addRecord(kMounts, "server:/export");
  addRecord(kMounts, "server:/other");
  delete_sharepoint("/nfs_reshares/r", {});
  EXPECT_EQ(recordNames(kMounts), (Names{"server:/other"}));
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, MissingAttributeSkipsMountRecordSearch) {
  addRecord(kMounts, "/srv/a");
  addRecord(kMounts, "a");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(recordNames(kMounts), (Names{"/srv/a", "a"}));
}

TEST_F(SharePointDeletion, MissingMountRecordIsNoError) {
  addSharePoint("r", "/nfs_reshares/r", {{kReshareMountName, "server:/export"}});
  delete_sharepoint("/nfs_reshares/r", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, UnremovableMountRecordStaysAndDeletionContinues) {
  addSharePoint("r", "/nfs_reshares/r", {{kReshareMountName, "server:/export"}});
  addRecord(kMounts, "server:/export");
  trace.raiseFor("removeRecord", "server:/export", DirectoryError(EIO, "damaged"));
  delete_sharepoint("/nfs_reshares/r", {});
  EXPECT_EQ(recordNames(kMounts), (Names{"server:/export"}));
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, ListedFolderLosesItemAndKeepsRecord) {
  sharedFiles.insert("file:///srv/b");
  sharedFiles.insert("file:///srv/a");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///srv/b"}));
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, UnremovableItemStaysAndRecordIsRemoved) {
  sharedFiles.insert("file:///srv/a");
  sharedFiles.failRemovals(-50);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///srv/a"}));
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(SharePointDeletion, EveryItemOfTheFolderIsRemoved) {
  sharedFiles.insert("file:///srv/a");
  sharedFiles.insert("file:///srv/b");
  sharedFiles.insert("file:///srv/a");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///srv/b"}));
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, RemovingOneItemKeepsRecord) {
  sharedFiles.insert("file:///srv/a");
  sharedFiles.insert("file:///srv/a");
  trace.fail("removeItem", -50, 1);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///srv/a"}));
}

TEST_F(SharePointDeletion, FailedRemovalAfterSuccessfulOneKeepsRecord) {
  sharedFiles.insert("file:///srv/a");
  sharedFiles.insert("file:///srv/a");
  trace.fail("removeItem", -50, 1, 1);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, ItemsAreResolvedQuietly) {
  sharedFiles.insert("file:///srv/b");
  sharedFiles.insert("file:///srv/a");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharedFiles.resolveFlags(), (std::vector<std::uint32_t>{3, 3}));
}

TEST_F(SharePointDeletion, ItemsThatCannotBeResolvedDoNotMatch) {
  sharedFiles.insertUnresolvable("file:///srv/a");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///srv/a"}));
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(SharePointDeletion, UrlsAreComparedExactly) {
  sharedFiles.insert("file:///srv/a/");
  sharedFiles.insert("file:///srv/A");
  sharedFiles.insert("file:///srv/a/b");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharedFiles.urls().size(), 3U);
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(SharePointDeletion, TheUrlIsBuiltFromTheStoredPath) {
  sharedFiles.insert("file:///SRV/A");
  sharedFiles.insert("file:///srv/a");
  delete_sharepoint("/SRV/A", {});
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///SRV/A"}));
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
}

TEST_F(SharePointDeletion, MissingSharedFileListRemovesRecord) {
  sharedFiles.failCreation(true);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(SharePointDeletion, RecordOfPathWithoutUrlIsKept) {
  addSharePoint("relative", "srv/relative");
  delete_sharepoint("srv/relative", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b", "relative"}));
}

TEST_F(SharePointDeletion, FailedLookupOfStoredSharePointKeepsRecord) {
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  sharedFiles.insert("file:///srv/a");
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(sharedFiles.urls(), (Names{"file:///srv/a"}));
  EXPECT_EQ(shared_exports_parser().exportCount(), 1U);
}

TEST_F(SharePointDeletion, FailedRecordLookupKeepsRecordAndRemovesRest) {
  readExportsFile(managedBlock({"/srv/a *(ro)", "/srv/b *(ro)"}));
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1, 1);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(shared_exports_parser().exportWithPath("/srv/a"), nullptr);
  EXPECT_NE(shared_exports_parser().exportWithPath("/srv/b"), nullptr);
}

TEST_F(SharePointDeletion, ExportIsRemovedAndFileLeftToCaller) {
  const std::string before = managedBlock({"/srv/b *(ro)", "/srv/a *(rw)"});
  readExportsFile(before);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(exportsFile(), before);
  EXPECT_TRUE(shared_exports_parser().writeFile());
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
}

TEST_F(SharePointDeletion, ExportOfUnsharedFolderStays) {
  readExportsFile(managedBlock({"/srv/c *(ro)"}));
  delete_sharepoint("/srv/c", {});
  EXPECT_NE(shared_exports_parser().exportWithPath("/srv/c"), nullptr);
}

TEST_F(SharePointDeletion, TheExportGoesEvenWhenTheRecordStays) {
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  sharedFiles.insert("file:///srv/a");
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(shared_exports_parser().exportCount(), 0U);
}

TEST_F(SharePointDeletion, SharePointOfMissingFolderIsDeleted) {
  volumes.setError("/srv/a", ENOENT);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(SharePointDeletion, UnreadableStoredAttributesThrowAndDeleteNothing) {
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  trace.raise("getAllAttributesAndValues", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(delete_sharepoint("/srv/a", {}), DirectoryError);
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(shared_exports_parser().exportCount(), 1U);
}

TEST_F(SharePointDeletion, UnremovableRecordThrowsBeforeExportRemoval) {
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  trace.raise("removeRecord", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(delete_sharepoint("/srv/a", {}), DirectoryError);
  EXPECT_EQ(sharePointNames(), (Names{"a", "b"}));
  EXPECT_EQ(shared_exports_parser().exportCount(), 1U);
}

TEST_F(SharePointDeletion, StepsComeInTheirOrder) {
  addSharePoint("r", "/nfs_reshares/r", {{kReshareMountName, "server:/export"}});
  addRecord(kMounts, "server:/export");
  trace.forgetCalls();
  delete_sharepoint("/nfs_reshares/r", {});
  EXPECT_EQ(trace.sequence({"getAllAttributesAndValues", "removeRecord", "createSharePointList"}),
            (Names{"getAllAttributesAndValues r", "removeRecord server:/export",
                   "createSharePointList ", "removeRecord r"}));
}

TEST_F(SharePointDeletion, BackupMarkerIsRemovedForUnsharedPathsToo) {
  for (const std::string folder : {"/srv/a", "/srv/c"}) {
    files.setFile(folder + "/.com.veltro.backstow.supported", "");
    delete_sharepoint(folder, {});
    EXPECT_EQ(files.find(folder + "/.com.veltro.backstow.supported"), nullptr);
  }
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(SharePointDeletion, UnremovableBackupMarkerIsLoggedAndServicesNotified) {
  files.setFile("/srv/a/.com.veltro.backstow.supported", "");
  trace.fail("removeFile", EROFS);
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
  EXPECT_EQ(logger.lines().size(), 1U);
  EXPECT_EQ(trace.count("run"), 2U);
}

TEST_F(SharePointDeletion, BackupMarkerComesBetweenIndexingAndServices) {
  stores.setLevel("/srv/a", metadata_store::kLevelReadWrite);
  trace.forgetCalls();
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(trace.sequence({"setStoreAttributes", "removeFile", "run"}),
            (Names{"setStoreAttributes /srv/a", "removeFile /srv/a", "run /usr/sbin/keelhouse",
                   "run /usr/libexec/samba/synchronize-shares"}));
}

TEST_F(SharePointDeletion, TheServicesAreToldOnceAtTheEnd) {
  trace.forgetCalls();
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(trace.sequence({"removeRecord", "run", "doCommand"}),
            (Names{"removeRecord a", "run /usr/sbin/keelhouse", "doCommand paddock_nfs",
                   "run /usr/libexec/samba/synchronize-shares"}));
}

TEST_F(SharePointDeletion, UnsharedPathNotifiesServices) {
  delete_sharepoint("/srv/c", {});
  EXPECT_EQ(trace.count("run"), 2U);
}

TEST_F(SharePointDeletion, ServicesThatCannotBeToldAreNoError) {
  programs.setOutcomeOfOthers({ENOENT, "", "missing"});
  delete_sharepoint("/srv/a", {});
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
}

TEST_F(SharePointDeletion, NoSessionIsLeftOpen) {
  delete_sharepoint("/srv/a", {});
  trace.raise("removeRecord", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(delete_sharepoint("/srv/b", {}), DirectoryError);
  EXPECT_EQ(directory.openSessions(), 0);
}

}  // namespace
}  // namespace paddock
