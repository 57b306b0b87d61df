#include "store/share_point_update.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/backup_group.h"
#include "store/directory_access.h"
#include "store/schema.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kAutomountDsPath;
using schema::kAutomountFileSystem;
using schema::kAutomountRecordName;
using schema::kBackstowBackup;
using schema::kBackstowBackupUuid;
using schema::kDirectoryPath;
using schema::kFtpName;
using schema::kIsAutomounted;
using schema::kRecordName;
using schema::kSmbName;
using schema::kStaticMountPath;
using schema::kVspName;
using schema::kVspShared;

constexpr const char* kExport = "nfsExportRecord";

class SharePointUpdateTest : public ModuleFixture {
 protected:
  Status update(const Dictionary& settings) {
    written_ = SharePointRecord::recordWithDictionary(settings);
    return update_sharepoint(written_, {});
  }
  static std::vector<std::string> automountAttributes() {
    return {kIsAutomounted, kStaticMountPath, kAutomountDsPath, kAutomountFileSystem,
            kAutomountRecordName};
  }
  static std::string warning(const std::string& path) {
    return "paddock_sharing: Failed to update the share point for path " + path +
           ". This will not affect the share point creation, although it may not be visible in "
           "certain places (like Browsel) until after a restart.";
  }
  // The element as it is after the write.
  SharePointRecord written_ = SharePointRecord::record();
};

class NewSharePointTest : public SharePointUpdateTest {};

TEST_F(NewSharePointTest, GetsARecordWithTheSettingsThatTheDirectoryKeeps) {
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "a"},
                    {"nameOverVSP", "vsp"},
                    {"nameOverSMB", "smb"},
                    {"nameOverFTP", "ftp"},
                    {"isSharedOverVSP", true},
                    {"isBackstowBackup", false},
                    {"isIndexingEnabled", true},
                    {"mountedOnPath", "/elsewhere"}}),
            0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}},
                                         {kDirectoryPath, Array{"/srv/a"}},
                                         {kVspName, Array{"vsp"}},
                                         {kSmbName, Array{"smb"}},
                                         {kFtpName, Array{"ftp"}},
                                         {kVspShared, Array{"1"}},
                                         {kBackstowBackup, Array{"0"}}}));
}

TEST_F(NewSharePointTest, KeepsWhatWasGivenByteForByte) {
  const std::string large = "/srv/" + std::string(3000, 'x');
  const std::string wide = "/srv/caf\xC3\xA9 \xF0\x9F\x98\x80\n#*";
  EXPECT_EQ(update({{"path", large}, {"name", "large"}, {"nameOverSMB", std::string(10240, 's')}}),
            0);
  EXPECT_EQ(update({{"path", wide}, {"name", "wide"}, {"nameOverSMB", ""}}), 0);
  EXPECT_EQ(valuesOfSharePoint("large", kDirectoryPath), (Array{large}));
  EXPECT_EQ(valuesOfSharePoint("large", kSmbName), (Array{std::string(10240, 's')}));
  EXPECT_EQ(valuesOfSharePoint("wide", kDirectoryPath), (Array{wide}));
  EXPECT_EQ(valuesOfSharePoint("wide", kSmbName), (Array{""}));
}

TEST_F(NewSharePointTest, NamesAreMadeUniqueInTheirOrder) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "n"},
                    {"nameOverVSP", "v"},
                    {"nameOverSMB", "s"},
                    {"nameOverFTP", "f"}}),
            0);
  std::vector<ServiceCall> lookups = trace.callsOf("findRecordsOfTypes");
  ASSERT_GE(lookups.size(), 6U);
  lookups.resize(6);
  EXPECT_EQ(lookups, (std::vector<ServiceCall>{{"findRecordsOfTypes", "/srv/a", kDirectoryPath},
                                               {"findRecordsOfTypes", "n", kRecordName},
                                               {"findRecordsOfTypes", "v", kVspName},
                                               {"findRecordsOfTypes", "f", kFtpName},
                                               {"findRecordsOfTypes", "s", kSmbName},
                                               {"findRecordsOfTypes", "/srv/a", kDirectoryPath}}));
}

TEST_F(NewSharePointTest, TakenNamesGetSuffixesAndAreStoredBackIntoTheElement) {
  addSharePoint("n", "/srv/other", {{kVspName, "v"}, {kSmbName, "s"}, {kFtpName, "f"}});
  addSharePoint("n-1", "/srv/third", {{kFtpName, "f-1"}});
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "n"},
                    {"nameOverVSP", "v"},
                    {"nameOverSMB", "s"},
                    {"nameOverFTP", "f"}}),
            0);
  EXPECT_EQ(written_.name(), "n-2");
  EXPECT_EQ(written_.nameOverVSP(), "v-1");
  EXPECT_EQ(written_.nameOverSMB(), "s-1");
  EXPECT_EQ(written_.nameOverFTP(), "f-2");
  EXPECT_EQ(sharePoint("n-2"), (Dictionary{{kRecordName, Array{"n-2"}},
                                           {kDirectoryPath, Array{"/srv/a"}},
                                           {kVspName, Array{"v-1"}},
                                           {kSmbName, Array{"s-1"}},
                                           {kFtpName, Array{"f-2"}}}));
}

TEST_F(NewSharePointTest, OnlyTheVspNameIsCutForItsSuffix) {
  const std::string name(40, 'n');
  addSharePoint(name, "/srv/other", {{kVspName, name}, {kSmbName, name}, {kFtpName, name}});
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", name},
                    {"nameOverVSP", name},
                    {"nameOverSMB", name},
                    {"nameOverFTP", name}}),
            0);
  EXPECT_EQ(written_.name(), name + "-1");
  EXPECT_EQ(written_.nameOverVSP(), std::string(29, 'n') + "-1");
  EXPECT_EQ(written_.nameOverSMB(), name + "-1");
  EXPECT_EQ(written_.nameOverFTP(), name + "-1");
}

TEST_F(NewSharePointTest, AFreeVspNameAboveTheLimitIsKeptAtFullLength) {
  const std::string name(60, 'n');
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"nameOverVSP", name}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kVspName), (Array{name}));
}

TEST_F(NewSharePointTest, NamesThatAreAbsentOrEmptyAreNotLookedUp) {
  addSharePoint("other", "/srv/other", {{kSmbName, ""}, {kFtpName, ""}});
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"nameOverSMB", ""}, {"nameOverFTP", ""}}),
            0);
  for (const ServiceCall& call : trace.callsOf("findRecordsOfTypes")) {
    EXPECT_NE(call.detail, kVspName);
    EXPECT_NE(call.detail, kSmbName);
    EXPECT_NE(call.detail, kFtpName);
  }
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}},
                                         {kDirectoryPath, Array{"/srv/a"}},
                                         {kSmbName, Array{""}},
                                         {kFtpName, Array{""}}}));
}

TEST_F(NewSharePointTest, AnAbsentOrEmptyRecordNameCannotBeCreated) {
  EXPECT_EQ(update({{"path", "/srv/a"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", ""}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(NewSharePointTest, WithoutAPathTheNameAloneIsStored) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"name", "a"}, {"path", 7}}), 0);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}}}));
  EXPECT_EQ(trace.callsOf("statfs"), std::vector<ServiceCall>{});
}

TEST_F(NewSharePointTest, IsInsertedLastIntoTheSharedFileList) {
  sharedFiles.insert("file:///srv/first");
  EXPECT_EQ(update({{"path", "/srv/a b"}, {"name", "a"}}), 0);
  EXPECT_EQ(sharedFiles.urls(),
            (std::vector<std::string>{"file:///srv/first", "file:///srv/a%20b"}));
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(NewSharePointTest, AFailedInsertionIsOnlyLogged) {
  sharedFiles.failInsertions(true);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(logger.lines(), (std::vector<RecordingLogger::Line>{{kLogWarning, warning("/srv/a")}}));
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
}

TEST_F(NewSharePointTest, AListThatCannotBeCreatedIsOnlyLogged) {
  sharedFiles.failCreation(true);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(logger.lines(), (std::vector<RecordingLogger::Line>{{kLogWarning, warning("/srv/a")}}));
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
}

TEST_F(NewSharePointTest, APathWithoutAUrlIsOnlyLoggedForTheList) {
  EXPECT_EQ(update({{"path", "srv/a"}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR)
      << "no volume holds a relative path";
  EXPECT_EQ(
      logger.lines(),
      (std::vector<RecordingLogger::Line>{
          {kLogWarning, warning("srv/a")},
          {kLogError,
           "paddock_sharing: The share point for path srv/a was not saved: Invalid argument"}}));
  EXPECT_TRUE(sharedFiles.urls().empty());
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(NewSharePointTest, ARecordThatAppearsMeanwhileIsUsed) {
  trace.when(
      "insertLast",
      [this](const ServiceCall&) {
        addSharePoint("meanwhile", "/srv/a", {{kSmbName, "kept"}});
        return 0;
      },
      1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"kept"}));
  EXPECT_EQ(trace.count("newRecord"), 0U);
}

TEST_F(NewSharePointTest, AnExceptionWhileNamingListingOrCreatingIsItsStatus) {
  for (const char* operation : {"createSharePointList", "insertLast", "newRecord"}) {
    trace.raise(operation, DirectoryError(EIO, "damaged"), 1);
    EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR)
        << operation;
    trace.raise(operation, std::runtime_error("broken"), 1);
    EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR)
        << operation;
    trace.raise(operation, 42, 1);
    EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR)
        << operation;
    EXPECT_EQ(
        logger.lines()[logger.lines().size() - 2],
        (RecordingLogger::Line{
            kLogError, "paddock_sharing: The share point for path /srv/a was not saved: broken"}))
        << operation;
  }
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(NewSharePointTest, AfterAFailedCreationNothingElseOfItIsWritten) {
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {kExport, exportTo("*", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(exportsFile(), "");
  EXPECT_EQ(trace.count("replace"), 0U);
}

TEST_F(NewSharePointTest, ALookupThatKeepsFailingIsItsStatusAndLeavesNoRecord) {
  trace.when(
      [](const ServiceCall& call) {
        return call.operation == "findRecordsOfTypes" && call.detail == kDirectoryPath;
      },
      [](const ServiceCall&) -> int { throw DirectoryError(ETIMEDOUT, "slow"); });
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {kExport, exportTo("*", {"rw"})}}),
            ETIMEDOUT);
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(exportsFile(), "");
}

TEST_F(NewSharePointTest, AFirstLookupThatFailsOnceIsForgotten) {
  trace.raise("findRecordsOfTypes", DirectoryError(ETIMEDOUT, "slow"), 1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/srv/a"}));
}

TEST_F(NewSharePointTest, AFolderThatCannotBeAskedIsItsStatusAndLeavesNoRecord) {
  for (const int error : {EACCES, EIO, ENOTDIR, EINVAL}) {
    volumes.setError("/srv/a", error);
    EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {kExport, exportTo("*", {"rw"})}}),
              CANNOT_SAVE_SHARE_POINT_ERR);
    EXPECT_TRUE(sharePointNames().empty());
    EXPECT_EQ(exportsFile(), "");
  }
}

TEST_F(NewSharePointTest, PathsThatNoVolumeCanHoldAreRefusedAndLeaveNoRecord) {
  for (const std::string& path :
       {std::string(), std::string("srv/a"), std::string("/srv/../etc"), std::string("/.."),
        std::string("/srv/a\0b", 8), "/" + std::string(5000, 'x')}) {
    EXPECT_EQ(update({{"path", path}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR) << path;
    EXPECT_TRUE(sharePointNames().empty()) << path;
  }
}

TEST_F(NewSharePointTest, NamesThatAreNotUtf8AreRefusedAndLeaveNoRecord) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a\xFF"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"nameOverSMB", "s\xC3"}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(update({{"path", "/srv/\xFF"}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(NewSharePointTest, AFolderThatDoesNotExistYetIsWrittenWithoutAMountPoint) {
  volumes.setError("/srv/a", ENOENT);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/srv/a"}));
  EXPECT_FALSE(written_.mountedOnPath());
}

TEST_F(NewSharePointTest, TheElementGetsTheMountPointOfItsVolume) {
  volumes.mount({"/srv", "/dev/vdb1", "xfs"});
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"mountedOnPath", "/elsewhere"}}), 0);
  EXPECT_EQ(written_.mountedOnPath(), "/srv");
}

TEST_F(NewSharePointTest, SettingsThatCannotBeStoredLeaveNoRecord) {
  trace.raise("setAttributesAndValues", DirectoryError(ENOSPC, "full"), 1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_TRUE(sharePointNames().empty());
  trace.raise("setAttributesAndValues", std::runtime_error("broken"), 1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(NewSharePointTest, SettingsThatCannotBeStoredLeaveNoExportEither) {
  trace.raise("setAttributesAndValues", DirectoryError(ENOSPC, "full"), 1);
  const Dictionary client{{"host", "*"}, {"options", Array{"ro"}}};
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "a"},
                    {"nfsExportRecord", Dictionary{{"clients", Array{client}}}}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(shared_exports_parser().exportCount(), 0U);
}

TEST_F(NewSharePointTest, AnExceptionWhileItsStoredFormIsReadLeavesNoRecordAndTravelsOn) {
  trace.raise("statfs", std::runtime_error("broken"), 1);
  EXPECT_THROW(update({{"path", "/srv/a"}, {"name", "a"}}), std::runtime_error);
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(NewSharePointTest, TheSecondOfOneNameInOneRequestGetsTheNextName) {
  EXPECT_EQ(update({{"path", "/srv/a/x"}, {"name", "x"}, {"nameOverSMB", "x"}}), 0);
  EXPECT_EQ(update({{"path", "/srv/b/x"}, {"name", "x"}, {"nameOverSMB", "x"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"x", "x-1"}));
  EXPECT_EQ(valuesOfSharePoint("x-1", kSmbName), (Array{"x-1"}));
}

class ChangedSharePointTest : public SharePointUpdateTest {
 protected:
  void SetUp() override {
    addSharePoint(
        "a", "/srv/a",
        {{kVspName, "vsp"}, {kSmbName, "smb"}, {kVspShared, "1"}, {"dsAttrTypeNative:x", "y"}});
  }
};

TEST_F(ChangedSharePointTest, OnlyWhatIsNamedIsChanged) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}},
                                         {kDirectoryPath, Array{"/srv/a"}},
                                         {kVspName, Array{"vsp"}},
                                         {kSmbName, Array{"new"}},
                                         {kVspShared, Array{"1"}},
                                         {"dsAttrTypeNative:x", Array{"y"}}}));
}

TEST_F(ChangedSharePointTest, AnEmptyNameOverSmbTakesItBack) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", ""}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{""}));
}

TEST_F(ChangedSharePointTest, ThePathAloneChangesNothing) {
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(ChangedSharePointTest, IsNotCreatedAgainNorInsertedIntoTheSharedFileList) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(trace.count("newRecord"), 0U);
  EXPECT_EQ(trace.count("createSharePointList"), 0U);
  EXPECT_TRUE(sharedFiles.urls().empty());
}

TEST_F(ChangedSharePointTest, NamesOverProtocolsAreNotMadeUnique) {
  addSharePoint("b", "/srv/b", {{kSmbName, "taken"}, {kVspName, "taken"}});
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "taken"}, {"nameOverVSP", "taken"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"taken"}));
  EXPECT_EQ(valuesOfSharePoint("a", kVspName), (Array{"taken"}));
}

TEST_F(ChangedSharePointTest, AnotherNameRenamesTheRecord) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "renamed"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"renamed"}));
  EXPECT_EQ(valuesOfSharePoint("renamed", kVspName), (Array{"vsp"}));
}

TEST_F(ChangedSharePointTest, ANameThatAnotherRecordHasIsRefusedAndNothingIsStored) {
  addSharePoint("b", "/srv/b");
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "B"}, {"nameOverSMB", "new"}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), before);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(ChangedSharePointTest, AnEmptyNameIsRefusedAndNothingIsStored) {
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", ""}, {"nameOverSMB", "new"}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(ChangedSharePointTest, APathThatDiffersByLetterCaseFindsTheRecord) {
  EXPECT_EQ(update({{"path", "/SRV/A"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/SRV/A"}));
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"new"}));
}

TEST_F(ChangedSharePointTest, OfTwoRecordsOfThePathTheLastIsChanged) {
  addSharePoint("b", "/srv/a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"smb"}));
  EXPECT_EQ(valuesOfSharePoint("b", kSmbName), (Array{"new"}));
}

TEST_F(ChangedSharePointTest, TheMountPointOfAFolderThatIsGoneIsKept) {
  volumes.setError("/srv/a", ENOENT);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"mountedOnPath", "/srv"}}), 0);
  EXPECT_EQ(written_.mountedOnPath(), "/srv");
}

TEST_F(ChangedSharePointTest, AMountPointThatIsOutOfDateIsReplacedByThatOfTheVolume) {
  volumes.mount({"/srv", "/dev/vdb1", "xfs"});
  EXPECT_EQ(update({{"path", "/srv/a"}, {"mountedOnPath", "/elsewhere"}}), 0);
  EXPECT_EQ(written_.mountedOnPath(), "/srv");
}

TEST_F(ChangedSharePointTest, AFolderThatIsGoneIsStillWritten) {
  volumes.setError("/srv/a", ENOENT);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"new"}));
}

TEST_F(ChangedSharePointTest, AFolderThatCannotBeAskedIsItsStatusAndChangesNothing) {
  const auto before = sharePoint("a");
  volumes.setError("/srv/a", EIO);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}, {kExport, exportTo("*", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), before);
  EXPECT_EQ(exportsFile(), "");
}

TEST_F(ChangedSharePointTest, SettingsThatCannotBeStoredAreItsStatusAndTheRestGoesOn) {
  const auto before = sharePoint("a");
  trace.raise("setAttributesAndValues", DirectoryError(ENOSPC, "full"), 1);
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"isBackstowBackup", true},
                    {"nameOverSMB", "new"},
                    {kExport, exportTo("*", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  Dictionary expected = *before;
  expected.set(kBackstowBackupUuid, valuesOfSharePoint("a", kBackstowBackupUuid));
  EXPECT_EQ(sharePoint("a"), expected);
  EXPECT_EQ(valuesOfSharePoint("a", kBackstowBackupUuid).size(), 1U);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw)"}));
}

TEST_F(ChangedSharePointTest, AnExceptionWhileItsStoredFormIsReadTravelsOn) {
  const auto before = sharePoint("a");
  trace.raise("getAllAttributesAndValues", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), DirectoryError);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(ChangedSharePointTest, AStoredFormThatCannotBeLookedUpCountsAsNone) {
  // The second lookup by path is the one that reads the stored share point.
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1, 1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"new"}));
  EXPECT_EQ(valuesOfSharePoint("a", kVspName), (Array{"vsp"}));
}

TEST_F(ChangedSharePointTest, ALocalNodeThatRaisesTravelsOn) {
  trace.raise("localNode", DirectoryError(EIO, "damaged"), 1);
  EXPECT_THROW(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), DirectoryError);
}

class SharePointExportTest : public SharePointUpdateTest {
 protected:
  void SetUp() override { addSharePoint("a", "/srv/a"); }
};

TEST_F(SharePointExportTest, ANewExportIsWrittenAtOnce) {
  readExportsFile("/by/hand *(ro)\n");
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw", "sync"})}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw,sync)"}) + "/by/hand *(ro)\n");
}

TEST_F(SharePointExportTest, ASecondExportComesFirst) {
  readExportsFile(managedBlock({"/srv/b *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw"})}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw)", "/srv/b *(ro)"}));
}

TEST_F(SharePointExportTest, AnExportOfThePathIsReplacedAndMovesToTheTop) {
  readExportsFile(managedBlock({"/srv/b *(ro)", "/srv/a *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("h", {"rw"})}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a h(rw)", "/srv/b *(ro)"}));
}

TEST_F(SharePointExportTest, AnUpdateThatDoesNotNameTheExportKeepsItAndMovesItToTheTop) {
  readExportsFile(managedBlock({"/srv/b *(ro)", "/srv/a *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(ro)", "/srv/b *(ro)"}));
}

TEST_F(SharePointExportTest, WithoutAnExportTheFileIsLeftAlone) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(trace.count("replace"), 0U);
}

TEST_F(SharePointExportTest, AnExportThatIsMarkedDeletedIsRemovedWithTheNextWriteOfTheFile) {
  readExportsFile(managedBlock({"/srv/b *(ro)", "/srv/a *(ro)"}));
  EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, Dictionary{{"isDeleted", true}}}}), 0);
  ASSERT_TRUE(shared_exports_parser().writeFile());
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
}

TEST_F(SharePointExportTest, AnExportThatCannotBeOneLineIsNotAddedAndTheRestIsWritten) {
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

TEST_F(SharePointExportTest, AnExportOfANewSharePointThatCannotBeOneLineLeavesTheSharePoint) {
  EXPECT_EQ(update({{"path", "/srv/n"}, {"name", "n"}, {kExport, exportTo("a b", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(valuesOfSharePoint("n", kDirectoryPath), (Array{"/srv/n"}));
}

TEST_F(SharePointExportTest, HostilePathsAreEscapedAndReadBack) {
  const std::string path = "/srv/a b\n#\\101 \"q\" caf\xC3\xA9";
  EXPECT_EQ(update({{"path", path}, {"name", "h"}, {kExport, exportTo("*", {"rw"})}}), 0);
  ASSERT_TRUE(shared_exports_parser().readFile());
  EXPECT_NE(shared_exports_parser().exportWithPath(path), nullptr);
}

TEST_F(SharePointExportTest, AFileThatCannotBeWrittenIsNoErrorOfTheSharePoint) {
  readExportsFile(managedBlock({"/srv/b *(ro)"}));
  for (const int error : {ENOSPC, EROFS, EACCES}) {
    trace.fail("replace", error, 1);
    EXPECT_EQ(update({{"path", "/srv/a"}, {kExport, exportTo("*", {"rw"})}}), 0);
    EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
  }
}

class AutomountAttributesTest : public SharePointUpdateTest {
 protected:
  // A node that refuses everybody.
  AutomountAttributesTest() { directory.addNode("/LDAP/x", "ReadWrite"); }
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

TEST_F(AutomountAttributesTest, ASharePointThatIsNotAutomountedLosesAllFiveInTheirOrder) {
  Dictionary attributes = automounted();
  attributes.set(kIsAutomounted, "0");
  addSharePoint("a", "/srv/a", attributes);
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(removed(), automountAttributes());
  EXPECT_EQ(sharePoint("a"),
            (Dictionary{{kRecordName, Array{"a"}}, {kDirectoryPath, Array{"/srv/a"}}}));
}

TEST_F(AutomountAttributesTest, TheyAreRemovedOnEveryWriteEvenWhenItNeverHadThem) {
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

TEST_F(AutomountAttributesTest, SettingsThatAreNamedWithoutAutomountingAreRemovedToo) {
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "a"},
                    {"automountMountPath", "/Network/a"},
                    {"automountDSPath", "/LDAP/x"},
                    {"automountFileSystemType", 1}}),
            0);
  EXPECT_EQ(sharePoint("a"),
            (Dictionary{{kRecordName, Array{"a"}}, {kDirectoryPath, Array{"/srv/a"}}}));
}

TEST_F(AutomountAttributesTest, AnAutomountedSharePointKeepsThem) {
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

TEST_F(AutomountAttributesTest, AWriteThatDoesNotNameAutomountingKeepsIt) {
  addSharePoint("a", "/srv/a", automounted());
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"automountFileSystemType", "1"}}), 0);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(AutomountAttributesTest, EndingAutomountingRemovesThem) {
  addSharePoint("a", "/srv/a", automounted());
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isAutomounted", false}}), 0);
  EXPECT_EQ(sharePoint("a"),
            (Dictionary{{kRecordName, Array{"a"}}, {kDirectoryPath, Array{"/srv/a"}}}));
}

TEST_F(AutomountAttributesTest, ARemovalThatRaisesTravelsOn) {
  addSharePoint("a", "/srv/a");
  trace.raise("removeAttribute", DirectoryError(EIO, "damaged"), 1, 2);
  EXPECT_THROW(update({{"path", "/srv/a"}}), DirectoryError);
}

class BackupSharePointTest : public SharePointUpdateTest {
 protected:
  static constexpr const char* kMarker = "/srv/a/.com.veltro.backstow.supported";

  std::string uuid(const std::string& name) {
    const Array all = valuesOfSharePoint(name, kBackstowBackupUuid);
    return all.size() == 1 ? *all.front().string() : "(" + std::to_string(all.size()) + " values)";
  }
};

TEST_F(BackupSharePointTest, GetsARandomUuidInCanonicalUpperCaseText) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000001");
  EXPECT_EQ(uuids.count(), 1U);
}

TEST_F(BackupSharePointTest, GetsAnotherUuidAtEveryWrite) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  const std::string first = uuid("a");
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_NE(uuid("a"), first);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000002");
}

TEST_F(BackupSharePointTest, ItsUuidReplacesTheOneThatTheRequestNames) {
  EXPECT_EQ(update({{"path", "/srv/a"},
                    {"name", "a"},
                    {"isBackstowBackup", true},
                    {"backstowBackupUUID", "FFFFFFFF-0000-4000-8000-000000000000"}}),
            0);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000001");
}

TEST_F(BackupSharePointTest, WhatIsNoBackupGetsNoUuid) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isBackstowBackup", false}}), 0);
  EXPECT_EQ(uuid("a"), "(0 values)");
  EXPECT_EQ(uuids.count(), 0U);
}

TEST_F(BackupSharePointTest, LetsTheBackupGroupIntoItsFolderAtEveryWrite) {
  tree.setFolder("/srv/a");
  accounts.addGroup(kBackupGroup, 250);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  ASSERT_NE(tree.acl("/srv/a"), nullptr);
  EXPECT_EQ(tree.acl("/srv/a")->entries.size(), 1U);
  tree.setAcl("/srv/a", {});
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(tree.acl("/srv/a")->entries.size(), 1U);
}

TEST_F(BackupSharePointTest, TheGroupIsLetInBeforeTheUuidIsMade) {
  tree.setFolder("/srv/a");
  accounts.addGroup(kBackupGroup, 250);
  addSharePoint("a", "/srv/a", {{kBackstowBackup, "1"}});
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(trace.sequence({"acl_set_file", "newUuid", "setAttribute", "copyStorePaths"}),
            (std::vector<std::string>{"copyStorePaths ", "setAttribute com.veltro.access_backup",
                                      "acl_set_file /srv/a", "newUuid ", "setAttribute a",
                                      "copyStorePaths "}));
}

TEST_F(BackupSharePointTest, AGroupThatCannotBeLetInChangesNoStatusAndTheUuidIsGiven) {
  tree.setFolder("/srv/a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0)
      << "the host does not know the group";
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000001");
  tree.setAcl("/srv/a", {.entries = {}, .undecodable = true});
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(uuid("a"), "00000000-0000-4000-8000-000000000002");
  EXPECT_EQ(trace.count("acl_set_file"), 0U);
}

TEST_F(BackupSharePointTest, KeepsTheMarkerThatItsClientsMade) {
  files.setFile(kMarker, "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  EXPECT_NE(files.find(kMarker), nullptr);
}

TEST_F(BackupSharePointTest, WhatIsNoBackupLosesTheMarkerAndNoGroupIsLetIn) {
  tree.setFolder("/srv/a");
  files.setFile(kMarker, "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_EQ(trace.count("acl_set_file"), 0U);
  EXPECT_TRUE(recordNames(schema::kGroups).empty());
}

TEST_F(BackupSharePointTest, WhatIsTakenBackLosesTheMarkerAndKeepsTheEntry) {
  tree.setFolder("/srv/a");
  accounts.addGroup(kBackupGroup, 250);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}), 0);
  files.setFile(kMarker, "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"isBackstowBackup", false}}), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_EQ(tree.acl("/srv/a")->entries.size(), 1U);
}

TEST_F(BackupSharePointTest, AMarkerThatCannotBeRemovedChangesNoStatus) {
  files.setFile(std::string(kMarker) + "/inside", "");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(logger.lines().size(), 1U);
  EXPECT_EQ(trace.count("copyStorePaths"), 1U) << "indexing is still switched";
}

TEST_F(BackupSharePointTest, ANameInTheAclThatCannotBeLookedUpTravelsOn) {
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

TEST_F(BackupSharePointTest, WithoutAPathNothingIsLetInAndNothingRemoved) {
  EXPECT_EQ(update({{"name", "a"}, {"isBackstowBackup", true}}), 0);
  EXPECT_EQ(update({{"name", "b"}}), 0);
  EXPECT_EQ(trace.count("removeFile"), 0U);
}

TEST_F(BackupSharePointTest, AUuidThatCannotBeStoredTravelsOn) {
  trace.raise("setAttribute", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}),
               DirectoryError);
}

TEST_F(SharePointUpdateTest, StepsOfANewSharePointComeInTheirOrder) {
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

TEST_F(SharePointUpdateTest, NoSessionIsLeftOpen) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "b"}}), 0);
  EXPECT_EQ(directory.openSessions(), 0);
}

}  // namespace
}  // namespace paddock
