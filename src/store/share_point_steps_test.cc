// What follows from the settings of a share point that is written.
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/backup/backup_folder.h"
#include "store/directory_access.h"
#include "support/share_point_update_fixture.h"

namespace paddock {
namespace {

using schema::kAutomountDsPath;
using schema::kAutomountFileSystem;
using schema::kAutomountRecordName;
using schema::kBackstowBackup;
using schema::kBackstowBackupUuid;
using schema::kDirectoryPath;
using schema::kIsAutomounted;
using schema::kRecordName;
using schema::kSmbName;
using schema::kStaticMountPath;

class SharePointExport : public SharePointUpdate {
 protected:
  void SetUp() override { addSharePoint("a", "/srv/a"); }
};

TEST_F(SharePointExport, ANewExportIsWrittenAtOnce) {
  readExportsFile("/by/hand *(ro)\n");
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw", "sync"})}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw,sync)"}) + "/by/hand *(ro)\n");
}

TEST_F(SharePointExport, ASecondExportComesFirst) {
  readExportsFile(managedBlock({"/srv/b *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw"})}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw)", "/srv/b *(ro)"}));
}

TEST_F(SharePointExport, ExistingExportIsReplacedAndMovesToTop) {
  readExportsFile(managedBlock({"/srv/b *(ro)", "/srv/a *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("h", {"rw"})}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a h(rw)", "/srv/b *(ro)"}));
}

TEST_F(SharePointExport, UpdateWithoutExportMovesKeptExportToTop) {
  readExportsFile(managedBlock({"/srv/b *(ro)", "/srv/a *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(ro)", "/srv/b *(ro)"}));
}

TEST_F(SharePointExport, WithoutAnExportTheFileIsLeftAlone) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(trace.count("replace"), 0U);
}

TEST_F(SharePointExport, DeletedExportIsRemovedByNextFileWrite) {
  readExportsFile(managedBlock({"/srv/b *(ro)", "/srv/a *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, Dictionary{{"isDeleted", true}}}}), 0);
  ASSERT_TRUE(shared_exports_parser().writeFile());
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
}

TEST_F(SharePointExport, UnrepresentableExportIsSkippedAndRestWritten) {
  readExportsFile(managedBlock({"/srv/b *(ro)"}));
  for (const char* host : {"a b", "h(rw)", "h\n/etc", "h\t"}) {
    EXPECT_EQ(
        update({{"path", "/srv/a"}, {"nameOverSMB", host}, {kExport, exportTo(host, {"rw"})}}),
        CANNOT_SAVE_SHARE_POINT_ERR)
        << host;
    EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"})) << host;
    EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{host}));
  }
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"r w"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw)"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw\n"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
}

TEST_F(SharePointExport, UnrepresentableExportLogsReason) {
  const auto lineOf = [this](const Dictionary& exportSettings) {
    logger.clear();
    EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {kExport, exportSettings}}),
              CANNOT_SAVE_SHARE_POINT_ERR);
    const auto lines = logger.lines();
    EXPECT_EQ(lines.size(), 1U);
    return lines.empty() || lines.front().priority != kLogError ? "" : lines.front().text;
  };
  const std::string beginning = "paddock_sharing: The export of the share point a for path /srv/a";
  EXPECT_EQ(lineOf(exportTo("a b", {"rw"})),
            beginning + " was not written: a host holds white space or a control character");
  EXPECT_EQ(lineOf(exportTo("*", {"rw", "bogus"})),
            beginning + " was not written: \"bogus\" is no export option");
  EXPECT_EQ(lineOf({{"clients", Array{}}}),
            beginning + " was not written: the export has no client");
  Dictionary elsewhere = exportTo("*", {"rw"});
  elsewhere.set("path", "relative");
  EXPECT_EQ(lineOf(elsewhere),
            beginning + ", of relative, was not written: the path is not absolute");
}

TEST_F(SharePointExport, UnrepresentableExportKeepsNewSharePoint) {
  EXPECT_EQ(update({{"path", "/srv/n"}, {"name", "n"}, {kExport, exportTo("a b", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(valuesOfSharePoint("n", kDirectoryPath), (Array{"/srv/n"}));
}

TEST_F(SharePointExport, HostilePathsAreEscapedAndReadBack) {
  const std::string path = "/srv/a b\n#\\101 \"q\" caf\xC3\xA9";
  EXPECT_EQ(update({{"path", path}, {"name", "h"}, {kExport, exportTo("*", {"rw"})}}), 0);
  ASSERT_TRUE(shared_exports_parser().readFile());
  EXPECT_NE(shared_exports_parser().exportWithPath(path), nullptr);
}

TEST_F(SharePointExport, UnwritableFileIsNoSharePointError) {
  readExportsFile(managedBlock({"/srv/b *(ro)"}));
  for (const int error : {ENOSPC, EROFS, EACCES}) {
    trace.fail("replace", error, 1);
    EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw"})}}), 0);
    EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
  }
}

class AutomountAttributes : public SharePointUpdate {
 protected:
  // A node that refuses everybody.
  AutomountAttributes() { directory.addNode("/LDAP/x", "ReadWrite"); }
  Dictionary automounted() const {
    return {{kIsAutomounted, "1"},
            {kStaticMountPath, "/Network/a"},
            {kAutomountDsPath, "/LDAP/x"},
            {kAutomountFileSystem, "1"},
            {kAutomountRecordName, "rec"}};
  }
  std::vector<std::string> removed() const {
    std::vector<std::string> all;
    for (const ServiceCall& call : trace.callsOf("removeAttribute")) all.push_back(call.detail);
    return all;
  }
};

TEST_F(AutomountAttributes, UnautomountedSharePointLosesAllFiveInOrder) {
  Dictionary attributes = automounted();
  attributes.set(kIsAutomounted, "0");
  addSharePoint("a", "/srv/a", attributes);
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(removed(), automountAttributes());
  EXPECT_EQ(sharePoint("a"),
            (Dictionary{{kRecordName, Array{"a"}}, {kDirectoryPath, Array{"/srv/a"}}}));
}

TEST_F(AutomountAttributes, AreRemovedOnEveryWriteEvenWhenAbsent) {
  addSharePoint("a", "/srv/a");
  for (int times = 0; times < 2; ++times) {
    trace.forgetCalls();
    EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
    EXPECT_EQ(removed(), automountAttributes());
  }
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/b"}, {"name", "b"}}), 0);
  EXPECT_EQ(removed(), automountAttributes());
}

TEST_F(AutomountAttributes, RequestedSettingsWithoutAutomountingAreRemoved) {
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "a"},
                    {"automountMountPath", "/Network/a"},
                    {"automountDSPath", "/LDAP/x"},
                    {"automountFileSystemType", 1}}),
            0);
  EXPECT_EQ(sharePoint("a"),
            (Dictionary{{kRecordName, Array{"a"}}, {kDirectoryPath, Array{"/srv/a"}}}));
}

TEST_F(AutomountAttributes, AnAutomountedSharePointKeepsThem) {
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "a"},
                    {"isAutomounted", true},
                    {"automountMountPath", "/Network/a"},
                    {"automountDSPath", "/LDAP/x"},
                    {"automountFileSystemType", 1}}),
            0);
  EXPECT_TRUE(removed().empty());
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}},
                                         {kDirectoryPath, Array{"/srv/a"}},
                                         {kIsAutomounted, Array{"1"}},
                                         {kStaticMountPath, Array{"/Network/a"}},
                                         {kAutomountDsPath, Array{"/LDAP/x"}},
                                         {kAutomountFileSystem, Array{"1"}}}));
}

TEST_F(AutomountAttributes, WriteWithoutAutomountFlagKeepsThem) {
  addSharePoint("a", "/srv/a", automounted());
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"automountFileSystemType", "1"}}), 0);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(AutomountAttributes, EndingAutomountingRemovesThem) {
  addSharePoint("a", "/srv/a", automounted());
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isAutomounted", false}}), 0);
  EXPECT_EQ(sharePoint("a"),
            (Dictionary{{kRecordName, Array{"a"}}, {kDirectoryPath, Array{"/srv/a"}}}));
}

TEST_F(AutomountAttributes, ARemovalThatRaisesTravelsOn) {
  addSharePoint("a", "/srv/a");
  trace.raise("removeAttribute", DirectoryError(EIO, "damaged"), 1, 2);
  EXPECT_THROW(update({{"path", "/srv/a"}}), DirectoryError);
}

class BackupSharePoint : public SharePointUpdate {
 protected:
  static constexpr const char* kMarker = "/srv/a/.com.veltro.backstow.supported";

  std::string uuid(const std::string& name) {
    const Array all = valuesOfSharePoint(name, kBackstowBackupUuid);
    return all.size() == 1 ? *all.front().string() : "(" + std::to_string(all.size()) + " values)";
  }
};

TEST_F(BackupSharePoint, GetsRandomUuidInCanonicalUpperCase) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000001");
  EXPECT_EQ(uuids.count(), 1U);
}

TEST_F(BackupSharePoint, GetsAnotherUuidAtEveryWrite) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  const std::string first = uuid("a");
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_NE(uuid("a"), first);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000002");
}

TEST_F(BackupSharePoint, GeneratedUuidReplacesRequestedOne) {
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "a"},
                    {"isBackstowBackup", true},
                    {"backstowBackupUUID", "FFFFFFFF-0000-4000-8000-000000000000"}}),
            0);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000001");
}

TEST_F(BackupSharePoint, WhatIsNoBackupGetsNoUuid) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isBackstowBackup", false}}), 0);
  EXPECT_EQ(uuid("a"), "(0 values)");
  EXPECT_EQ(uuids.count(), 0U);
}

TEST_F(BackupSharePoint, GrantsBackupGroupAccessAtEveryWrite) {
  tree.setFolder("/srv/a");
  accounts.addGroup(kBackupGroup, 250);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  ASSERT_NE(tree.acl("/srv/a"), nullptr);
  EXPECT_EQ(tree.acl("/srv/a")->entries.size(), 1U);
  tree.setAcl("/srv/a", {});
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(tree.acl("/srv/a")->entries.size(), 1U);
}

TEST_F(BackupSharePoint, GroupGetsAccessBeforeUuidIsGenerated) {
  tree.setFolder("/srv/a");
  accounts.addGroup(kBackupGroup, 250);
  addSharePoint("a", "/srv/a", {{kBackstowBackup, "1"}});
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(trace.sequence({"acl_set_file", "newUuid", "setAttribute", "copyStorePaths"}),
            (std::vector<std::string>{"copyStorePaths ", "setAttribute com.veltro.access_backup",
                                      "acl_set_file /srv/a", "newUuid ", "setAttribute a",
                                      "copyStorePaths "}));
}

TEST_F(BackupSharePoint, FailedGroupAccessKeepsStatusAndAssignsUuid) {
  tree.setFolder("/srv/a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0)
      << "the host does not know the group";
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000001");
  tree.setAcl("/srv/a", {.entries = {}, .undecodable = true});
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000002");
  EXPECT_EQ(trace.count("acl_set_file"), 0U);
}

TEST_F(BackupSharePoint, KeepsTheMarkerThatItsClientsMade) {
  files.setFile(kMarker, "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  EXPECT_NE(files.find(kMarker), nullptr);
}

TEST_F(BackupSharePoint, OrdinarySharePointLosesMarkerWithoutGroupAccess) {
  tree.setFolder("/srv/a");
  files.setFile(kMarker, "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_EQ(trace.count("acl_set_file"), 0U);
  EXPECT_TRUE(recordNames(schema::kGroups).empty());
}

TEST_F(BackupSharePoint, RevokedBackupLosesMarkerAndKeepsEntry) {
  tree.setFolder("/srv/a");
  accounts.addGroup(kBackupGroup, 250);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  files.setFile(kMarker, "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isBackstowBackup", false}}), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_EQ(tree.acl("/srv/a")->entries.size(), 1U);
}

TEST_F(BackupSharePoint, UnremovableMarkerKeepsStatus) {
  files.setFile(std::string(kMarker) + "/inside", "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(logger.lines().size(), 1U);
  EXPECT_EQ(trace.count("copyStorePaths"), 1U) << "indexing is still switched";
}

TEST_F(BackupSharePoint, FailedLookupOfAclNameReachesCaller) {
  tree.setFolder("/srv/a");
  acl::Entry entry;
  entry.tag = acl::kExtendedAllow;
  entry.qualifier = Guid();
  tree.setAcl("/srv/a", {.entries = {entry}});
  trace.raise("searchNode", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}),
               DirectoryError);
  EXPECT_EQ(uuid("a"), "(0 values)");
}

TEST_F(BackupSharePoint, MissingPathGrantsAndRemovesNothing) {
  EXPECT_EQ(update({{"name", "a"}, {"isBackstowBackup", true}}), 0);
  EXPECT_EQ(update({{"name", "b"}}), 0);
  EXPECT_EQ(trace.count("removeFile"), 0U);
}

TEST_F(BackupSharePoint, AUuidThatCannotBeStoredTravelsOn) {
  trace.raise("setAttribute", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}),
               DirectoryError);
}

TEST_F(SharePointUpdate, StepsOfNewSharePointFollowOrder) {
  volumes.mount({"/nfs_reshares/a", "server:/export", "nfs4"});
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/nfs_reshares/a"},
                    {"name", "a"},
                    {"isBackstowBackup", true},
                    {kExport, exportTo("*", {"rw"})}}),
            0);
  EXPECT_EQ(
      trace.sequence({"insertLast", "newRecord", "setAttributesAndValues", "replace",
                      "removeAttribute", "doCommand", "newUuid", "setAttribute"}),
      (std::vector<std::string>{
          "insertLast file:///nfs_reshares/a", "newRecord a", "setAttributesAndValues a",
          "replace /etc/exports", "removeAttribute a", "removeAttribute a", "removeAttribute a",
          "removeAttribute a", "removeAttribute a", "doCommand paddock_filebrowser",
          "setAttribute a", "newRecord com.veltro.access_backup",
          "setAttribute com.veltro.access_backup", "newUuid ", "setAttribute a"}));
}

TEST_F(SharePointUpdate, NoSessionIsLeftOpen) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "b"}}), 0);
  EXPECT_EQ(directory.openSessions(), 0);
}

}  // namespace
}  // namespace paddock
