#include "store/share_point_update.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/directory_access.h"
#include "support/share_point_update_fixture.h"

namespace paddock {
namespace {

using schema::kBackstowBackup;
using schema::kBackstowBackupUuid;
using schema::kDirectoryPath;
using schema::kFtpName;
using schema::kRecordName;
using schema::kSmbName;
using schema::kVspName;
using schema::kVspShared;

class NewSharePoint : public SharePointUpdate {
 protected:
  static Dictionary withEveryName() {
    return {{"path", "/srv/a"},
            {"name", "n"},
            {"nameOverVSP", "v"},
            {"nameOverSMB", "s"},
            {"nameOverFTP", "f"}};
  }
};

TEST_F(NewSharePoint, GetsRecordWithSettingsStoredInDirectory) {
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

TEST_F(NewSharePoint, KeepsWhatWasGivenByteForByte) {
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

TEST_F(NewSharePoint, NamesAreMadeUniqueInTheirOrder) {
  trace.forgetCalls();
  EXPECT_EQ(update(withEveryName()), 0);
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

TEST_F(NewSharePoint, TakenNamesGetSuffixesAndUpdateElement) {
  addSharePoint("n", "/srv/other", {{kVspName, "v"}, {kSmbName, "s"}, {kFtpName, "f"}});
  addSharePoint("n-1", "/srv/third", {{kFtpName, "f-1"}});
  EXPECT_EQ(update(withEveryName()), 0);
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

TEST_F(NewSharePoint, OnlyVspNameIsCutForSuffix) {
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

TEST_F(NewSharePoint, OverlongFreeVspNameKeepsFullLength) {
  const std::string name(60, 'n');
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"nameOverVSP", name}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kVspName), (Array{name}));
}

TEST_F(NewSharePoint, AbsentOrEmptyNamesSkipLookup) {
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

TEST_F(NewSharePoint, AbsentOrEmptyRecordNameFailsCreation) {
  EXPECT_EQ(update({{"path", "/srv/a"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", ""}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(NewSharePoint, WithoutAPathTheNameAloneIsStored) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"name", "a"}, {"path", 7}}), 0);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}}}));
  EXPECT_EQ(trace.callsOf("statfs"), std::vector<ServiceCall>{});
}

TEST_F(NewSharePoint, IsInsertedLastIntoTheSharedFileList) {
  sharedFiles.insert("file:///srv/first");
  EXPECT_EQ(update({{"path", "/srv/a b"}, {"name", "a"}}), 0);
  EXPECT_EQ(sharedFiles.urls(),
            (std::vector<std::string>{"file:///srv/first", "file:///srv/a%20b"}));
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(NewSharePoint, AFailedInsertionIsOnlyLogged) {
  sharedFiles.failInsertions(true);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(logger.lines(), (std::vector<RecordingLogger::Line>{{kLogWarning, warning("/srv/a")}}));
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
}

TEST_F(NewSharePoint, FailedListCreationIsOnlyLogged) {
  sharedFiles.failCreation(true);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(logger.lines(), (std::vector<RecordingLogger::Line>{{kLogWarning, warning("/srv/a")}}));
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
}

TEST_F(NewSharePoint, PathWithoutUrlIsOnlyLoggedForList) {
  EXPECT_EQ(update({{"path", "srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(logger.lines(), (std::vector<RecordingLogger::Line>{{kLogWarning, warning("srv/a")}}));
  EXPECT_TRUE(sharedFiles.urls().empty());
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"srv/a"}));
}

TEST_F(NewSharePoint, ARecordThatAppearsMeanwhileIsUsed) {
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

TEST_F(NewSharePoint, NamingListingOrCreatingExceptionReturnsItsStatus) {
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
            kLogError, "paddock_sharing: The share point a for path /srv/a was not saved: broken"}))
        << operation;
  }
  EXPECT_TRUE(sharePointNames().empty());
}

TEST_F(NewSharePoint, FailedCreationWritesNothingElse) {
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {kExport, exportTo("*", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(exportsFile(), "");
  EXPECT_EQ(trace.count("replace"), 0U);
}

TEST_F(NewSharePoint, PersistentLookupFailureReturnsStatusAndKeepsRecord) {
  trace.when(
      [](const ServiceCall& call) {
        return call.operation == "findRecordsOfTypes" && call.detail == kDirectoryPath;
      },
      [](const ServiceCall&) -> int { throw DirectoryError(ETIMEDOUT, "slow"); });
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {kExport, exportTo("*", {"rw"})}}),
            ETIMEDOUT);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}}}));
  EXPECT_EQ(exportsFile(), "");
  EXPECT_EQ(logger.lines(),
            (std::vector<RecordingLogger::Line>{
                {kLogError,
                 "paddock_sharing: The share point a for path /srv/a was not saved: its record "
                 "cannot be looked up: slow"}}));
}

TEST_F(NewSharePoint, AFirstLookupThatFailsOnceIsForgotten) {
  trace.raise("findRecordsOfTypes", DirectoryError(ETIMEDOUT, "slow"), 1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/srv/a"}));
}

TEST_F(NewSharePoint, FailedFolderQueryReturnsStatusAndKeepsRecord) {
  for (const int error : {EACCES, EIO, ENOTDIR, EINVAL}) {
    const std::string name = "a" + std::to_string(error);
    volumes.setError("/srv/" + name, error);
    EXPECT_EQ(update({{"path", "/srv/" + name}, {"name", name}, {kExport, exportTo("*", {"rw"})}}),
              CANNOT_SAVE_SHARE_POINT_ERR);
    EXPECT_EQ(sharePoint(name), (Dictionary{{kRecordName, Array{name}}}));
    EXPECT_EQ(exportsFile(), "");
  }
}

TEST_F(NewSharePoint, ImpossiblePathsAreRefusedAndRecordIsKept) {
  for (const std::string& path : {std::string("/srv/a\0b", 8), "/" + std::string(5000, 'x')}) {
    const std::string name = "a" + std::to_string(path.size());
    EXPECT_EQ(update({{"path", path}, {"name", name}}), CANNOT_SAVE_SHARE_POINT_ERR) << path;
    EXPECT_EQ(sharePoint(name), (Dictionary{{kRecordName, Array{name}}})) << path;
  }
}

TEST_F(NewSharePoint, DotDotInPathIsResolvedByKernel) {
  volumes.mount({"/srv", "/dev/vdb1", "xfs"});
  volumes.setError("/srv/missing/..", ENOENT);
  volumes.setError("/srv/file/..", ENOTDIR);
  EXPECT_EQ(update({{"path", "/srv/a/../b"}, {"name", "b"}}), 0);
  EXPECT_EQ(written_.mountedOnPath(), "/srv");
  EXPECT_EQ(valuesOfSharePoint("b", kDirectoryPath), (Array{"/srv/a/../b"}));
  EXPECT_EQ(update({{"path", "/srv/missing/.."}, {"name", "m"}}), 0);
  EXPECT_FALSE(written_.mountedOnPath());
  EXPECT_EQ(update({{"path", "/srv/file/.."}, {"name", "f"}}), CANNOT_SAVE_SHARE_POINT_ERR);
}

TEST_F(NewSharePoint, EmptyPathIsQueriedAndMissing) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", ""}, {"name", "a"}}), 0);
  EXPECT_EQ(trace.callsOf("statfs").size(), 1U);
  EXPECT_FALSE(written_.mountedOnPath());
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}}, {kDirectoryPath, Array{""}}}));
}

TEST_F(NewSharePoint, InvalidUtf8IsRefusedAndValidRecordStays) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a\xFF"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"nameOverSMB", "s\xC3"}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(update({{"path", "/srv/\xFF"}, {"name", "b"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}}}));
  EXPECT_EQ(sharePoint("b"), (Dictionary{{kRecordName, Array{"b"}}}));
}

TEST_F(NewSharePoint, MissingFolderIsWrittenWithoutMountPoint) {
  volumes.setError("/srv/a", ENOENT);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/srv/a"}));
  EXPECT_FALSE(written_.mountedOnPath());
}

TEST_F(NewSharePoint, ElementGetsMountPointOfItsVolume) {
  volumes.mount({"/srv", "/dev/vdb1", "xfs"});
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"mountedOnPath", "/elsewhere"}}), 0);
  EXPECT_EQ(written_.mountedOnPath(), "/srv");
}

TEST_F(NewSharePoint, UnstorableSettingsReturnStatusAndLaterStepsContinue) {
  files.setFile("/srv/a/.com.veltro.backstow.supported", "");
  trace.raise("setAttributesAndValues", DirectoryError(ENOSPC, "full"), 1);
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {kExport, exportTo("*", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}}}));
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw)"}));
  EXPECT_EQ(trace.count("removeAttribute"), automountAttributes().size());
  EXPECT_EQ(files.find("/srv/a/.com.veltro.backstow.supported"), nullptr);
  EXPECT_EQ(trace.count("copyStorePaths"), 1U) << "indexing is switched";
  trace.raise("setAttributesAndValues", std::runtime_error("broken"), 1);
  EXPECT_EQ(update({{"path", "/srv/b"}, {"name", "b"}}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("b"), (Dictionary{{kRecordName, Array{"b"}}}));
}

TEST_F(NewSharePoint, BackupWithUnstorableSettingsStillGetsUuid) {
  trace.raise("setAttributesAndValues", DirectoryError(ENOSPC, "full"), 1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}, {"isBackstowBackup", true}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"),
            (Dictionary{{kRecordName, Array{"a"}},
                        {kBackstowBackupUuid, Array{"00000000-0000-4000-8000-000000000001"}}}));
}

TEST_F(NewSharePoint, RecordStaysWhenExceptionReachesCaller) {
  trace.raise("statfs", std::runtime_error("broken"), 1);
  EXPECT_THROW(update({{"path", "/srv/a"}, {"name", "a"}}), std::runtime_error);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}}}));
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(NewSharePoint, RepeatedNameInRequestGetsNextName) {
  EXPECT_EQ(update({{"path", "/srv/a/x"}, {"name", "x"}, {"nameOverSMB", "x"}}), 0);
  EXPECT_EQ(update({{"path", "/srv/b/x"}, {"name", "x"}, {"nameOverSMB", "x"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"x", "x-1"}));
  EXPECT_EQ(valuesOfSharePoint("x-1", kSmbName), (Array{"x-1"}));
}

class ChangedSharePoint : public SharePointUpdate {
 protected:
  void SetUp() override {
    addSharePoint(
        "a", "/srv/a",
        {{kVspName, "vsp"}, {kSmbName, "smb"}, {kVspShared, "1"}, {"dsAttrTypeNative:x", "y"}});
  }
};

TEST_F(ChangedSharePoint, OnlyWhatIsNamedIsChanged) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(sharePoint("a"), (Dictionary{{kRecordName, Array{"a"}},
                                         {kDirectoryPath, Array{"/srv/a"}},
                                         {kVspName, Array{"vsp"}},
                                         {kSmbName, Array{"new"}},
                                         {kVspShared, Array{"1"}},
                                         {"dsAttrTypeNative:x", Array{"y"}}}));
}

TEST_F(ChangedSharePoint, AnEmptyNameOverSmbTakesItBack) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", ""}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{""}));
}

TEST_F(ChangedSharePoint, ThePathAloneChangesNothing) {
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}}), 0);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(ChangedSharePoint, IsNeitherRecreatedNorAddedToSharedFiles) {
  trace.forgetCalls();
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "a"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(trace.count("newRecord"), 0U);
  EXPECT_EQ(trace.count("createSharePointList"), 0U);
  EXPECT_TRUE(sharedFiles.urls().empty());
}

TEST_F(ChangedSharePoint, NamesOverProtocolsAreNotMadeUnique) {
  addSharePoint("b", "/srv/b", {{kSmbName, "taken"}, {kVspName, "taken"}});
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "taken"}, {"nameOverVSP", "taken"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"taken"}));
  EXPECT_EQ(valuesOfSharePoint("a", kVspName), (Array{"taken"}));
}

TEST_F(ChangedSharePoint, AnotherNameRenamesTheRecord) {
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "renamed"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"renamed"}));
  EXPECT_EQ(valuesOfSharePoint("renamed", kVspName), (Array{"vsp"}));
}

TEST_F(ChangedSharePoint, NameOfOtherRecordIsRefusedWithoutStoring) {
  addSharePoint("b", "/srv/b");
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", "B"}, {"nameOverSMB", "new"}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), before);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(ChangedSharePoint, EmptyNameIsRefusedAndNothingStored) {
  const auto before = sharePoint("a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"name", ""}, {"nameOverSMB", "new"}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(ChangedSharePoint, PathInOtherLetterCaseFindsRecord) {
  EXPECT_EQ(update({{"path", "/SRV/A"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(sharePointNames(), (std::vector<std::string>{"a"}));
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/SRV/A"}));
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"new"}));
}

TEST_F(ChangedSharePoint, LastOfTwoRecordsIsChanged) {
  addSharePoint("b", "/srv/a");
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"smb"}));
  EXPECT_EQ(valuesOfSharePoint("b", kSmbName), (Array{"new"}));
}

TEST_F(ChangedSharePoint, MissingFolderKeepsMountPoint) {
  volumes.setError("/srv/a", ENOENT);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"mountedOnPath", "/srv"}}), 0);
  EXPECT_EQ(written_.mountedOnPath(), "/srv");
}

TEST_F(ChangedSharePoint, OutdatedMountPointIsReplacedByVolumesOne) {
  volumes.mount({"/srv", "/dev/vdb1", "xfs"});
  EXPECT_EQ(update({{"path", "/srv/a"}, {"mountedOnPath", "/elsewhere"}}), 0);
  EXPECT_EQ(written_.mountedOnPath(), "/srv");
}

TEST_F(ChangedSharePoint, AFolderThatIsGoneIsStillWritten) {
  volumes.setError("/srv/a", ENOENT);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"new"}));
}

TEST_F(ChangedSharePoint, FailedFolderQueryReturnsStatusAndChangesNothing) {
  const auto before = sharePoint("a");
  volumes.setError("/srv/a", EIO);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}, {kExport, exportTo("*", {"rw"})}}),
            CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("a"), before);
  EXPECT_EQ(exportsFile(), "");
}

TEST_F(ChangedSharePoint, UnstorableSettingsReturnStatusAndLaterStepsContinue) {
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

TEST_F(ChangedSharePoint, ExceptionWhileReadingStoredFormReachesCaller) {
  const auto before = sharePoint("a");
  trace.raise("getAllAttributesAndValues", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), DirectoryError);
  EXPECT_EQ(sharePoint("a"), before);
}

TEST_F(ChangedSharePoint, FailedLookupOfStoredFormCountsAsNone) {
  // The second lookup by path is the one that reads the stored share point.
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1, 1);
  EXPECT_EQ(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"new"}));
  EXPECT_EQ(valuesOfSharePoint("a", kVspName), (Array{"vsp"}));
}

TEST_F(ChangedSharePoint, ALocalNodeThatRaisesTravelsOn) {
  trace.raise("localNode", DirectoryError(EIO, "damaged"), 1);
  EXPECT_THROW(update({{"path", "/srv/a"}, {"nameOverSMB", "new"}}), DirectoryError);
}

}  // namespace
}  // namespace paddock
