#include "store/share_point_reading.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "exports/shared_exports_parser.h"
#include "store/directory_access.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kDirectoryPath;
using schema::kMounts;
using schema::kSharePoints;

class SharePointReading : public ModuleFixture {
 protected:
  // The paths of a list's share points.
  static std::vector<std::string> paths(const std::optional<Array>& list) {
    std::vector<std::string> all;
    for (const Value& value : list.value_or(Array{})) {
      const std::string* path = value.dictionary()->string("path");
      all.push_back(path != nullptr ? *path : "(none)");
    }
    return all;
  }
  static std::unique_ptr<SharePointRecord> staleRecord() {
    return std::make_unique<SharePointRecord>(
        SharePointRecord::recordWithDictionary({{"path", "/stale"}}));
  }
  std::optional<Array> list_ = Array{"stale"};
  std::unique_ptr<SharePointRecord> record_ = staleRecord();
};

class SharePointFromAttributes : public SharePointReading {};

TEST_F(SharePointFromAttributes, TakesWhatTheDirectoryKeeps) {
  EXPECT_EQ(share_point_from_ds_attributes({{"dsAttrTypeStandard:RecordName", Array{"a"}},
                                            {"dsAttrTypeStandard:RecordType", Array{kSharePoints}},
                                            {kDirectoryPath, Array{"/srv/a"}},
                                            {"dsAttrTypeNative:vsp_shared", Array{"YES"}}},
                                           record_),
            0);
  ASSERT_TRUE(record_);
  EXPECT_EQ(record_->dictionary(), (Dictionary{{"name", "a"},
                                               {"path", "/srv/a"},
                                               {"isSharedOverVSP", true},
                                               {"isIndexingEnabled", false},
                                               {"mountedOnPath", "/"}}));
}

TEST_F(SharePointFromAttributes, AddsTheMountPointOfTheFoldersVolume) {
  volumes.mount({"/srv", "/dev/vdb1", "ext4"});
  volumes.mount({"/srv/a", "/dev/vdc1", "xfs"});
  EXPECT_EQ(share_point_from_ds_attributes({{kDirectoryPath, Array{"/srv/a/b"}}}, record_), 0);
  EXPECT_EQ(record_->mountedOnPath(), "/srv/a");
  EXPECT_EQ(trace.callsOf("statfs"), (std::vector<ServiceCall>{{"statfs", "/srv/a/b", ""}}));
}

TEST_F(SharePointFromAttributes, FailedFolderQueryYieldsNoMountPoint) {
  for (const int error : {ENOENT, EACCES, EIO}) {
    volumes.setError("/srv/a", error);
    EXPECT_EQ(share_point_from_ds_attributes({{kDirectoryPath, Array{"/srv/a"}}}, record_), 0);
    ASSERT_TRUE(record_);
    EXPECT_EQ(record_->dictionary(),
              (Dictionary{{"path", "/srv/a"}, {"isIndexingEnabled", false}}));
  }
}

TEST_F(SharePointFromAttributes, AddsTheExportOfThePath) {
  readExportsFile(managedBlock({"/srv/b *(ro)", "/srv/a 10.0.0.0/8(rw,sync)"}));
  EXPECT_EQ(share_point_from_ds_attributes({{kDirectoryPath, Array{"/srv/a"}}}, record_), 0);
  const Dictionary form = record_->dictionary();
  ASSERT_NE(form.dictionary("nfsExportRecord"), nullptr);
  EXPECT_EQ(*form.dictionary("nfsExportRecord")->string("path"), "/srv/a");
  EXPECT_EQ(*form.dictionary("nfsExportRecord")->array("clients"),
            (Array{Dictionary{{"host", "10.0.0.0/8"}, {"options", Array{"rw", "sync"}}}}));
}

TEST_F(SharePointFromAttributes, TheExportIsLookedUpExactly) {
  readExportsFile(managedBlock({"/srv/A *(ro)", "/srv/a/ *(ro)", "/srv *(ro)"}));
  EXPECT_EQ(share_point_from_ds_attributes({{kDirectoryPath, Array{"/srv/a"}}}, record_), 0);
  EXPECT_EQ(record_->nfsExportRecord(), nullptr);
}

TEST_F(SharePointFromAttributes, LinesOutsideManagedBlockAreIgnored) {
  readExportsFile("/srv/a *(ro)\n");
  EXPECT_EQ(share_point_from_ds_attributes({{kDirectoryPath, Array{"/srv/a"}}}, record_), 0);
  EXPECT_EQ(record_->nfsExportRecord(), nullptr);
}

TEST_F(SharePointFromAttributes, RecordWithoutPathLacksMountPointAndExport) {
  readExportsFile(managedBlock({"/srv/a *(ro)"}));
  EXPECT_EQ(
      share_point_from_ds_attributes({{"dsAttrTypeStandard:RecordName", Array{"a"}}}, record_), 0);
  ASSERT_TRUE(record_);
  EXPECT_EQ(record_->dictionary(), (Dictionary{{"name", "a"}, {"isIndexingEnabled", false}}));
}

class ListReading : public SharePointReading {};

TEST_F(ListReading, WithoutSharePointsTheListIsNotSet) {
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_FALSE(list_);
}

TEST_F(ListReading, RecordsOfOtherTypesAreNoSharePoints) {
  addRecord(kMounts, "a", {{kDirectoryPath, "/srv/a"}});
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_FALSE(list_);
}

TEST_F(ListReading, RecordsOfOtherNodesAreNotListed) {
  directory.addNode("/Other", "ReadWrite");
  directory.addRecord("/Other", kSharePoints, "a", {{kDirectoryPath, "/srv/a"}});
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_FALSE(list_);
}

TEST_F(ListReading, SharePointsFollowDirectoryReplyOrder) {
  addSharePoint("z", "/srv/z");
  addSharePoint("a", "/srv/a");
  addSharePoint("m", "/srv/m");
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_EQ(paths(list_), (std::vector<std::string>{"/srv/z", "/srv/a", "/srv/m"}));
}

TEST_F(ListReading, EachSharePointIsItsCompletedDictionaryForm) {
  addSharePoint("a", "/srv/a",
                {{"dsAttrTypeNative:smb_name", ""},
                 {"dsAttrTypeNative:backstowBackup", "0"},
                 {"dsAttrTypeNative:amt_file_system", "1"}});
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  ASSERT_TRUE(list_);
  ASSERT_EQ(list_->size(), 1U);
  Dictionary form = *list_->front().dictionary();
  ASSERT_NE(form.dictionary("nfsExportRecord"), nullptr);
  EXPECT_EQ(*form.dictionary("nfsExportRecord")->array("clients"),
            (Array{Dictionary{{"host", "*"}, {"options", Array{"rw"}}}}));
  form.erase("nfsExportRecord");
  EXPECT_EQ(form, (Dictionary{{"name", "a"},
                              {"path", "/srv/a"},
                              {"nameOverSMB", ""},
                              {"isBackstowBackup", false},
                              {"isIndexingEnabled", false},
                              {"automountFileSystemType", 1},
                              {"mountedOnPath", "/"}}));
}

TEST_F(ListReading, TheFilterIsIgnored) {
  addSharePoint("a", "/srv/a");
  const Value filter(Dictionary{{"path", "/srv/b"}});
  EXPECT_EQ(read_sharepoints(&filter, list_), 0);
  EXPECT_EQ(paths(list_), (std::vector<std::string>{"/srv/a"}));
}

TEST_F(ListReading, ExportsFileIsReadAgainForEveryList) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_EQ(list_->front().dictionary()->dictionary("nfsExportRecord"), nullptr);
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_NE(list_->front().dictionary()->dictionary("nfsExportRecord"), nullptr);
  setExportsFile("");
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_EQ(list_->front().dictionary()->dictionary("nfsExportRecord"), nullptr);
}

// As it is when the file could not be written.
TEST_F(ListReading, ExportPendingRemovalIsListedAndStillRemoved) {
  addSharePoint("a", "/srv/a");
  setExportsFile(managedBlock({"/srv/a *(rw)", "/srv/b *(rw)"}));
  refresh_exports();
  shared_exports_parser().removeExportWithPath("/srv/a");
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_NE(list_->front().dictionary()->dictionary("nfsExportRecord"), nullptr);
  refresh_exports();
  EXPECT_EQ(shared_exports_parser().exportWithPath("/srv/a"), nullptr);
  EXPECT_NE(shared_exports_parser().exportWithPath("/srv/b"), nullptr);
}

TEST_F(ListReading, ExportsFileIsReadOncePerList) {
  for (int i = 0; i < 20; ++i) {
    addSharePoint("s" + std::to_string(i), "/srv/" + std::to_string(i));
  }
  setExportsFile(managedBlock({"/srv/1 *(rw)"}));
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);  // makes the shared parser, too
  trace.forgetCalls();
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_EQ(trace.count("read"), 1U);
  EXPECT_EQ(trace.count("findRecordNames"), 1U);
  EXPECT_EQ(trace.count("statfs"), 20U);
}

TEST_F(ListReading, MissingExportsFileKeepsPreviousLines) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  files.remove(kExportsPath);
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_NE(list_->front().dictionary()->dictionary("nfsExportRecord"), nullptr);
}

TEST_F(ListReading, UnreadableExportsFileIsNoListError) {
  addSharePoint("a", "/srv/a");
  for (const int error : {ENOENT, EACCES, EIO}) {
    trace.fail("read", error, 1);
    list_.reset();
    EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
    EXPECT_EQ(paths(list_), (std::vector<std::string>{"/srv/a"}));
  }
}

TEST_F(ListReading, RaisingSearchReturnsSuccessWithoutList) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_FALSE(list_);
  trace.raise("findRecordNames", std::runtime_error("broken"), 1);
  list_ = Array{"stale"};
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_FALSE(list_);
  trace.raise("findRecordNames", 42, 1);
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_FALSE(list_);
}

TEST_F(ListReading, RaisingLocalNodeReturnsItsCodeWithoutList) {
  addSharePoint("a", "/srv/a");
  for (const char* operation : {"openLocal", "localNode"}) {
    list_ = Array{"stale"};
    trace.raise(operation, DirectoryError(EIO, "damaged"), 1);
    EXPECT_EQ(read_sharepoints(nullptr, list_), CANNOT_RETRIEVE_SHARE_POINTS_ERR) << operation;
    EXPECT_FALSE(list_) << operation;
    list_ = Array{"stale"};
    trace.raise(operation, std::runtime_error("broken"), 1);
    EXPECT_EQ(read_sharepoints(nullptr, list_), CANNOT_RETRIEVE_SHARE_POINTS_ERR) << operation;
    EXPECT_FALSE(list_) << operation;
  }
}

TEST_F(ListReading, ACompletionThatRaisesEndsTheWholeRead) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  trace.raiseFor("statfs", "/srv/b", std::runtime_error("broken"));
  EXPECT_EQ(read_sharepoints(nullptr, list_), CANNOT_RETRIEVE_SHARE_POINTS_ERR);
  EXPECT_FALSE(list_);
}

TEST_F(ListReading, TwoRecordsOfOnePathAreBothListed) {
  addSharePoint("first", "/srv/a");
  addSharePoint("second", "/srv/a");
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_EQ(paths(list_), (std::vector<std::string>{"/srv/a", "/srv/a"}));
}

TEST_F(ListReading, MissingFolderIsListedWithoutMountPoint) {
  addSharePoint("gone", "/srv/gone");
  addSharePoint("here", "/srv/here");
  volumes.setError("/srv/gone", ENOENT);
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  ASSERT_EQ(paths(list_), (std::vector<std::string>{"/srv/gone", "/srv/here"}));
  EXPECT_FALSE(list_->at(0).dictionary()->contains("mountedOnPath"));
  EXPECT_EQ(*list_->at(1).dictionary()->string("mountedOnPath"), "/");
}

TEST_F(ListReading, ARecordWithoutAPathIsListed) {
  addRecord(kSharePoints, "bare");
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  ASSERT_TRUE(list_);
  EXPECT_EQ(*list_, (Array{Dictionary{{"name", "bare"}, {"isIndexingEnabled", false}}}));
}

TEST_F(ListReading, ReadingChangesNothing) {
  addSharePoint("a", "/srv/a");
  setExportsFile("  # by hand\n\n" + managedBlock({"/srv/a *(rw)"}));
  const auto before = sharePoint("a");
  const std::string exports = exportsFile();
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  EXPECT_EQ(sharePoint("a"), before);
  EXPECT_EQ(exportsFile(), exports);
  EXPECT_EQ(directory.openSessions(), 0);
}

class OneSharePointReading : public SharePointReading {};

TEST_F(OneSharePointReading, FindsTheSharePointOfThePath) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b", {{"dsAttrTypeNative:ftp_name", "ftp"}});
  EXPECT_EQ(get_share_point("/srv/b", record_), 0);
  ASSERT_TRUE(record_);
  EXPECT_EQ(record_->dictionary(), (Dictionary{{"name", "b"},
                                               {"path", "/srv/b"},
                                               {"nameOverFTP", "ftp"},
                                               {"isIndexingEnabled", false},
                                               {"mountedOnPath", "/"}}));
}

TEST_F(OneSharePointReading, UnsharedFolderSucceedsWithoutRecord) {
  addSharePoint("a", "/srv/a");
  EXPECT_EQ(get_share_point("/srv/b", record_), 0);
  EXPECT_EQ(record_, nullptr);
}

TEST_F(OneSharePointReading, PathInOtherLetterCaseIsFound) {
  addSharePoint("a", "/srv/\xC3\x84pfel");
  EXPECT_EQ(get_share_point("/SRV/\xC3\xA4PFEL", record_), 0);
  ASSERT_TRUE(record_);
  EXPECT_EQ(record_->path(), "/srv/\xC3\x84pfel");
}

TEST_F(OneSharePointReading, LastOfTwoRecordsOfPathIsTaken) {
  addSharePoint("first", "/srv/a");
  addSharePoint("second", "/srv/a");
  EXPECT_EQ(get_share_point("/srv/a", record_), 0);
  ASSERT_TRUE(record_);
  EXPECT_EQ(record_->name(), "second");
}

TEST_F(OneSharePointReading, FailedLookupReturnsItsCodeWithoutRecord) {
  addSharePoint("a", "/srv/a");
  for (const char* operation : {"openLocal", "localNode", "findRecordsOfTypes", "findRecord"}) {
    record_ = staleRecord();
    trace.raise(operation, DirectoryError(EIO, "damaged"), 1);
    EXPECT_EQ(get_share_point("/srv/a", record_), CANNOT_RETRIEVE_SHARE_POINTS_ERR) << operation;
    EXPECT_EQ(record_, nullptr) << operation;
  }
}

TEST_F(OneSharePointReading, ForeignLookupErrorCountsAsNotShared) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordsOfTypes", std::runtime_error("broken"));
  EXPECT_EQ(get_share_point("/srv/a", record_), 0);
  EXPECT_EQ(record_, nullptr);
}

TEST_F(OneSharePointReading, AttributesThatCannotBeReadRaise) {
  addSharePoint("a", "/srv/a");
  trace.raise("getAllAttributesAndValues", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(get_share_point("/srv/a", record_), DirectoryError);
  EXPECT_EQ(record_, nullptr);
  EXPECT_EQ(directory.openSessions(), 0);
}

TEST_F(OneSharePointReading, SeesTheExportsAsTheyWereLastRead) {
  addSharePoint("a", "/srv/a");
  readExportsFile("");
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  EXPECT_EQ(get_share_point("/srv/a", record_), 0);
  EXPECT_EQ(record_->nfsExportRecord(), nullptr);
  std::optional<Array> list;
  EXPECT_EQ(read_sharepoints(nullptr, list), 0);
  EXPECT_EQ(get_share_point("/srv/a", record_), 0);
  EXPECT_NE(record_->nfsExportRecord(), nullptr);
}

TEST_F(OneSharePointReading, FailedFolderQueryIsNoError) {
  addSharePoint("a", "/srv/a");
  volumes.setError("/srv/a", EIO);
  EXPECT_EQ(get_share_point("/srv/a", record_), 0);
  ASSERT_TRUE(record_);
  EXPECT_FALSE(record_->mountedOnPath());
}

TEST_F(OneSharePointReading, ChangingReturnedRecordKeepsNextReplyUnchanged) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  EXPECT_EQ(get_share_point("/srv/a", record_), 0);
  const Dictionary before = record_->dictionary();
  record_->setName("changed");
  record_->setNFSExportRecord(nullptr);
  EXPECT_EQ(get_share_point("/srv/a", record_), 0);
  EXPECT_EQ(record_->dictionary(), before);
}

TEST_F(SharePointReading, UnreadableSourceIsLoggedWithReason) {
  addSharePoint("a", "/srv/a");
  const auto expectOne = [this](const std::string& text) {
    EXPECT_EQ(logger.lines(), (std::vector<RecordingLogger::Line>{{kLogError, text}}));
    logger.clear();
    trace.forgetRules();
  };
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(get_share_point("/srv/a", record_), CANNOT_RETRIEVE_SHARE_POINTS_ERR);
  expectOne("paddock_sharing: The share point for path /srv/a cannot be read: damaged");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  expectOne("paddock_sharing: The share points cannot be listed: damaged");
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(read_sharepoints(nullptr, list_), CANNOT_RETRIEVE_SHARE_POINTS_ERR);
  expectOne("paddock_sharing: The share points cannot be listed: damaged");
  setExportsFile(managedBlock({"/srv/a *(rw)"}));
  trace.fail("read", EACCES);
  EXPECT_EQ(read_sharepoints(nullptr, list_), 0);
  expectOne(
      "paddock_sharing: Exports are listed as they were last read: cannot read /etc/exports: "
      "Permission denied");
}

}  // namespace
}  // namespace paddock
