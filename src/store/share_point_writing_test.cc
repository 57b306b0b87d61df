#include "store/share_point_writing.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "store/directory_access.h"
#include "support/advertiser.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kBackstowBackupUuid;
using schema::kDirectoryPath;
using schema::kSmbName;

using Names = std::vector<std::string>;

class SharePointWriting : public ModuleFixture {
 protected:
  Status write(const std::vector<Dictionary>& list, const Array& credentials = {}) {
    sharePoints_.clear();
    for (const Dictionary& settings : list) {
      sharePoints_.push_back(SharePointRecord::recordWithDictionary(settings));
    }
    return write_sharepoints(sharePoints_, context_, credentials, owner_);
  }
  static Dictionary share(const std::string& name) {
    return {{"path", "/srv/" + name}, {"name", name}};
  }
  static Dictionary deletion(const std::string& path) {
    return {{"path", path}, {"isDeleted", true}};
  }
  Names errorLines() const {
    Names texts;
    for (const auto& line : logger.lines()) {
      if (line.priority == kLogError) texts.push_back(line.text);
    }
    return texts;
  }

  // The steps behind the exports file.
  Names end() const {
    Names steps{"doCommand paddock_vsp"};
    steps.insert(steps.end(), synchronisation_.begin(), synchronisation_.end());
    return steps;
  }

  const Names synchronisation_{"run /usr/sbin/keelhouse", "doCommand paddock_nfs",
                               "run /usr/libexec/samba/synchronize-shares"};
  std::vector<SharePointRecord> sharePoints_;
  Context context_;
  Advertiser owner_;
};

TEST_F(SharePointWriting, AnEmptyListStillWritesTheExportsFile) {
  setExportsFile("\n\n  /by/hand *(ro)\n\n");
  EXPECT_EQ(write({}), 0);
  EXPECT_EQ(exportsFile(), "/by/hand *(ro)\n");
  EXPECT_EQ(trace.count("replace"), 1U);
}

TEST_F(SharePointWriting, EmptyListWithoutExportsFileCreatesNone) {
  EXPECT_EQ(write({}), 0);
  EXPECT_FALSE(files.exists(kExportsPath));
}

TEST_F(SharePointWriting, FirstWriteRequestPreservesManualExportLines) {
  setExportsFile("/by/hand *(ro)\n");
  Dictionary settings = share("a");
  settings.set("nfsExportRecord", exportTo("*", {"rw"}));
  EXPECT_EQ(write({settings}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw)"}) + "/by/hand *(ro)\n");
}

TEST_F(SharePointWriting, ElementsAreWrittenInListOrder) {
  EXPECT_EQ(write({share("c"), share("a"), share("b")}), 0);
  EXPECT_EQ(sharePointNames(), (Names{"c", "a", "b"}));
}

TEST_F(SharePointWriting, DeletionsComeFirstInTheirOrder) {
  addSharePoint("old", "/srv/old", {{kSmbName, "s"}});
  addSharePoint("older", "/srv/older");
  readExportsFile(managedBlock({"/srv/older *(ro)"}));
  trace.forgetCalls();
  EXPECT_EQ(write({{{"path", "/srv/new"}, {"name", "old"}, {"nameOverSMB", "s"}},
                   deletion("/srv/older"),
                   share("other"),
                   deletion("/srv/old")}),
            0);
  EXPECT_EQ(trace.sequence({"removeRecord", "newRecord", "replace"}),
            (Names{"removeRecord older", "removeRecord old", "newRecord old", "newRecord other",
                   "replace /etc/exports"}));
  EXPECT_EQ(valuesOfSharePoint("old", kSmbName), (Array{"s"})) << "its name was free again";
}

TEST_F(SharePointWriting, DeletingAndSharingPathTogetherRecreatesSharePoint) {
  addSharePoint("old", "/srv/a", {{kSmbName, "s"}});
  EXPECT_EQ(write({{{"path", "/srv/a"}, {"name", "new"}}, deletion("/srv/a")}), 0);
  EXPECT_EQ(sharePointNames(), (Names{"new"}));
  EXPECT_TRUE(valuesOfSharePoint("new", kSmbName).empty());
}

TEST_F(SharePointWriting, ExportsFileIsWrittenOnceMoreAtEnd) {
  Dictionary settings = share("a");
  settings.set("nfsExportRecord", exportTo("*", {"rw"}));
  trace.fail("replace", ENOSPC, 1);
  EXPECT_EQ(write({settings, share("b")}), 0);
  EXPECT_EQ(trace.sequence({"newRecord", "replace"}),
            (Names{"newRecord a", "replace /etc/exports", "newRecord b", "replace /etc/exports"}));
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/a *(rw)"}));
}

TEST_F(SharePointWriting, ADeletedSharePointsExportLeavesTheFile) {
  addSharePoint("a", "/srv/a");
  readExportsFile("# by hand\n" + managedBlock({"/srv/a *(rw)", "/srv/b *(ro)"}));
  EXPECT_EQ(write({deletion("/srv/a")}), 0);
  EXPECT_EQ(exportsFile(), "# by hand\n" + managedBlock({"/srv/b *(ro)"}));
}

TEST_F(SharePointWriting, InitiallyUnreadableExportsFileIsReadBeforeDeletion) {
  addSharePoint("a", "/srv/a");
  setExportsFile(managedBlock({"/srv/a *(rw)", "/srv/b *(ro)"}));
  trace.fail("read", EIO, 1);
  shared_exports_parser();
  EXPECT_EQ(trace.count("read"), 1U);
  EXPECT_EQ(write({deletion("/srv/a")}), 0);
  EXPECT_TRUE(sharePointNames().empty());
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
}

TEST_F(SharePointWriting, ExternallyChangedExportsFileIsReadBeforeWrites) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(rw)"}));
  setExportsFile(managedBlock({"/srv/a *(ro)", "/srv/c *(rw)"}) + "/by/hand *(ro)\n");
  EXPECT_EQ(write({deletion("/srv/a")}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/c *(rw)"}) + "/by/hand *(ro)\n");
}

TEST_F(SharePointWriting, RemovingTheLastExportRemovesTheMarkers) {
  addSharePoint("a", "/srv/a");
  readExportsFile("# by hand\n" + managedBlock({"/srv/a *(rw)"}));
  EXPECT_EQ(write({deletion("/srv/a")}), 0);
  EXPECT_EQ(exportsFile(), "# by hand\n");
}

TEST_F(SharePointWriting, DeletedExportLeavesFile) {
  addSharePoint("a", "/srv/a");
  readExportsFile(managedBlock({"/srv/a *(rw)", "/srv/b *(ro)"}));
  EXPECT_EQ(write({{{"path", "/srv/a"}, {"nfsExportRecord", Dictionary{{"isDeleted", true}}}}}), 0);
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/b *(ro)"}));
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(SharePointWriting, UnwritableExportsFileIsNoError) {
  for (const int error : {ENOSPC, EROFS, EACCES}) {
    trace.fail("replace", error);
    EXPECT_EQ(write({share("a")}), 0);
    EXPECT_EQ(sharePointNames(), (Names{"a"}));
    trace.forgetRules();
  }
}

TEST_F(SharePointWriting, FailedDeletionsContributeNoStatus) {
  addSharePoint("a", "/srv/a");
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(write({deletion("/srv/a"), deletion("/srv/b"), deletion("relative")}), 0);
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
}

TEST_F(SharePointWriting, FirstStatusIsKeptAndOthersAreWritten) {
  volumes.setError("/srv/b", EIO);
  trace.when(
      [](const ServiceCall& call) {
        return call.operation == "findRecordsOfTypes" && call.subject == "/srv/c";
      },
      [](const ServiceCall&) -> int { throw DirectoryError(ETIMEDOUT, "slow"); });
  EXPECT_EQ(write({share("a"), share("b"), share("c"), share("d")}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePointNames(), (Names{"a", "b", "c", "d"}));
  for (const char* name : {"b", "c"}) removeRecord(schema::kSharePoints, name);
  EXPECT_EQ(write({share("c"), share("b"), share("e")}), ETIMEDOUT);
  EXPECT_EQ(sharePointNames(), (Names{"a", "d", "c", "b", "e"}));
  const std::string line =
      "paddock_sharing: The share point b for path /srv/b was not saved: Input/output error";
  const std::string lookup =
      "paddock_sharing: The share point c for path /srv/c was not saved: its record cannot be "
      "looked up: slow";
  EXPECT_EQ(errorLines(), (Names{line, lookup, lookup, line}));
}

TEST_F(SharePointWriting, SharePointsOfSameNameGetDifferentNames) {
  EXPECT_EQ(write({{{"path", "/srv/1/x"}, {"name", "x"}, {"nameOverVSP", "x"}},
                   {{"path", "/srv/2/x"}, {"name", "x"}, {"nameOverVSP", "x"}}}),
            0);
  EXPECT_EQ(sharePointNames(), (Names{"x", "x-1"}));
  EXPECT_EQ(sharePoints_[1].nameOverVSP(), "x-1");
}

TEST_F(SharePointWriting, TheSamePathTwiceIsOneSharePoint) {
  EXPECT_EQ(write({{{"path", "/srv/a"}, {"name", "a"}, {"nameOverSMB", "one"}},
                   {{"path", "/srv/a"}, {"name", "a"}, {"nameOverSMB", "two"}}}),
            0);
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
  EXPECT_EQ(valuesOfSharePoint("a", kSmbName), (Array{"two"}));
}

TEST_F(SharePointWriting, OneBadExportNeverEndsTheRequest) {
  Dictionary bad = share("b");
  bad.set("nfsExportRecord", exportTo("a b", {"rw"}));
  Dictionary good = share("c");
  good.set("nfsExportRecord", exportTo("*", {"rw"}));
  EXPECT_EQ(write({share("a"), bad, good}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePointNames(), (Names{"a", "b", "c"}));
  EXPECT_EQ(exportsFile(), managedBlock({"/srv/c *(rw)"}));
  EXPECT_EQ(errorLines(),
            (Names{"paddock_sharing: The export of the share point b for path /srv/b was not "
                   "written: a host holds white space or a control character"}));
}

TEST_F(SharePointWriting, WritingABackupTwiceGivesItTwoUuids) {
  Dictionary settings = share("a");
  settings.set("isBackstowBackup", true);
  EXPECT_EQ(write({settings}), 0);
  const Array first = valuesOfSharePoint("a", kBackstowBackupUuid);
  EXPECT_EQ(write({settings}), 0);
  EXPECT_EQ(first.size(), 1U);
  EXPECT_NE(valuesOfSharePoint("a", kBackstowBackupUuid), first);
}

TEST_F(SharePointWriting, TheContextIsNotUsed) {
  context_.replace({{"key", "value"}});
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(context_.snapshot(), (Dictionary{{"key", "value"}}));
}

TEST_F(SharePointWriting, CredentialsOfAnyShapeDoNoHarm) {
  EXPECT_EQ(write({share("a")}, {7, "x", Dictionary{{"nodePath", "/Local"}}}), 0);
}

TEST_F(SharePointWriting, AnEmptyListTellsTheServicesOnce) {
  EXPECT_EQ(write({}), 0);
  EXPECT_EQ(trace.sequence({"run", "doCommand"}), end());
}

TEST_F(SharePointWriting, ServicesAreNotifiedPerDeletionAndAtEnd) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  setExportsFile("# by hand\n\n");
  EXPECT_EQ(write({share("c"), deletion("/srv/a"), share("d"), deletion("/srv/b")}), 0);
  Names expected{"removeRecord a"};
  expected.insert(expected.end(), synchronisation_.begin(), synchronisation_.end());
  expected.emplace_back("removeRecord b");
  expected.insert(expected.end(), synchronisation_.begin(), synchronisation_.end());
  for (const char* step : {"newRecord c", "newRecord d", "replace /etc/exports"}) {
    expected.emplace_back(step);
  }
  for (const std::string& step : end()) expected.push_back(step);
  EXPECT_EQ(trace.sequence({"removeRecord", "newRecord", "replace", "run", "doCommand"}), expected);
}

TEST_F(SharePointWriting, ServiceFailuresKeepStatusAndAreLoggedOnce) {
  programs.setOutcomeOfOthers({.status = ENOENT, .output = "", .errorOutput = ""});
  plugins.setPlugin("paddock_nfs", [](const Dictionary&) {
    return Dictionary{{"status", 1}, {"errorOutput", "exportfs: no kernel server\nmore\n"}};
  });
  addSharePoint("b", "/srv/b");
  EXPECT_EQ(write({share("a"), deletion("/srv/b")}), 0);
  const std::string beginning =
      "paddock_sharing: A service was not told of the share point a for path /srv/a, the share "
      "point for path /srv/b: ";
  EXPECT_EQ(
      errorLines(),
      (Names{beginning + "/usr/sbin/keelhouse: No such file or directory",
             beginning + "paddock_nfs: exportfs: no kernel server",
             beginning + "/usr/libexec/samba/synchronize-shares: No such file or directory"}));
}

TEST_F(SharePointWriting, OfManySharePointsTenAreNamed) {
  programs.setOutcome("/usr/libexec/samba/synchronize-shares",
                      {.status = 0, .output = "", .errorOutput = "no smbd\n"});
  std::vector<Dictionary> list;
  for (int number = 0; number < 12; ++number) list.push_back(share("s" + std::to_string(number)));
  EXPECT_EQ(write(list), 0);
  ASSERT_EQ(errorLines().size(), 1U);
  EXPECT_TRUE(errorLines().front().ends_with(
      "the share point s9 for path /srv/s9 and 2 more: /usr/libexec/samba/synchronize-shares: no "
      "smbd"))
      << errorLines().front();
}

TEST_F(SharePointWriting, ExportsFileFailureIsLoggedWithSharePoint) {
  setExportsFile("/by/hand *(ro)\n");
  Dictionary exported = share("a");
  exported.set("nfsExportRecord", exportTo("*", {"rw"}));
  const std::string beginning =
      "paddock_sharing: The exports file does not follow the change of the share point a for path "
      "/srv/a: ";
  const std::vector<std::pair<std::string, std::string>> faults = {
      {"read", "cannot read /etc/exports: Permission denied"},
      {"copyOnce", "cannot copy /etc/exports: /etc/exports.before-paddock: Permission denied"},
      {"replace", "cannot write /etc/exports: Permission denied"}};
  for (const auto& [call, reason] : faults) {
    trace.fail(call, EACCES);
    EXPECT_EQ(write({exported}), 0) << call;
    EXPECT_EQ(errorLines(), (Names{beginning + reason})) << call;
    EXPECT_EQ(exportsFile(), "/by/hand *(ro)\n");
    logger.clear();
    trace.forgetRules();
  }
  EXPECT_EQ(write({exported}), 0);
  EXPECT_TRUE(errorLines().empty());
  setExportsFile("/by/hand\xFF *(ro)\n");
  EXPECT_EQ(write({exported}), 0);
  EXPECT_EQ(errorLines(), (Names{beginning + "cannot read /etc/exports: it is not UTF-8"}));
}

TEST_F(SharePointWriting, ExportsFileFailureIsLoggedDespiteLaterException) {
  setExportsFile("/by/hand *(ro)\n");
  Dictionary both = share("a");
  both.set("nfsExportRecord", exportTo("*", {"rw"}));
  both.set("isAutomounted", true);
  both.set("automountDSPath", "/LDAP/none");
  trace.fail("replace", EACCES);
  EXPECT_EQ(write({both}), 0);
  ASSERT_EQ(errorLines().size(), 3U);
  EXPECT_EQ(errorLines()[1], "paddock_sharing write_sharepoints exception: 2");
  EXPECT_EQ(errorLines()[2],
            "paddock_sharing: The exports file does not follow the change of the share point a for "
            "path /srv/a: cannot write /etc/exports: Permission denied");
}

TEST_F(SharePointWriting, MissingAutomountNodeLogsPathAndSharePoint) {
  Dictionary automounted = share("a");
  automounted.set("isAutomounted", true);
  automounted.set("automountDSPath", "/LDAP/none");
  EXPECT_EQ(write({automounted}), 0);
  ASSERT_EQ(errorLines().size(), 2U);
  EXPECT_EQ(errorLines()[0].find("paddock_sharing: The automount of the share point a for path "
                                 "/srv/a was not written to the node /LDAP/none: "),
            0U)
      << errorLines()[0];
  EXPECT_EQ(errorLines()[1], "paddock_sharing write_sharepoints exception: 2");
}

TEST_F(SharePointWriting, UnremovableAutomountIsLoggedWithoutStatus) {
  addSharePoint("a", "/srv/a", {{schema::kAutomountDsPath, "/LDAP/none"}});
  EXPECT_EQ(write({{{"path", "/srv/a"}}}), 0);
  ASSERT_EQ(errorLines().size(), 1U);
  EXPECT_EQ(errorLines()[0].find("paddock_sharing: The automount of the share point a for path "
                                 "/srv/a was not removed from the node /LDAP/none: "),
            0U)
      << errorLines()[0];
}

class WritingException : public SharePointWriting {};

TEST_F(WritingException, ExceptionInThirdElementKeepsFirstTwoWritten) {
  Dictionary exported = share("b");
  exported.set("nfsExportRecord", exportTo("*", {"rw"}));
  trace.raiseFor("removeAttribute", "c", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(write({share("a"), exported, share("c"), share("d"), share("e")}), 0);
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{"/srv/a"}));
  EXPECT_EQ(valuesOfSharePoint("b", kDirectoryPath), (Array{"/srv/b"}));
  EXPECT_EQ(sharePoint("d"), std::nullopt);
  EXPECT_EQ(sharePoint("e"), std::nullopt);
  EXPECT_EQ(trace.count("replace"), 1U) << "the export's own write and none at the end";
}

TEST_F(WritingException, TheStatusGatheredSoFarIsReturned) {
  volumes.setError("/srv/a", EIO);
  trace.raiseFor("removeAttribute", "b", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(write({share("a"), share("b"), share("c")}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(sharePoint("c"), std::nullopt);
}

TEST_F(WritingException, IsLoggedWithStatusWhenPresent) {
  trace.raise("removeAttribute", DirectoryError(-14090, "refused"), 1);
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(errorLines(), (Names{"paddock_sharing write_sharepoints exception: -14090"}));
}

TEST_F(WritingException, IsLoggedWithItsDescriptionOtherwise) {
  trace.raise("removeAttribute", DirectoryError("no number"), 1);
  EXPECT_EQ(write({share("a")}), 0);
  trace.raise("removeAttribute", std::runtime_error("broken"), 1);
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(errorLines(), (Names{"paddock_sharing write_sharepoints exception: no number",
                                 "paddock_sharing write_sharepoints exception: broken"}));
}

TEST_F(WritingException, AnExceptionOfAnyKindStaysInside) {
  trace.raise("removeAttribute", 42, 1);
  EXPECT_EQ(write({share("a"), share("b")}), 0);
  ASSERT_EQ(errorLines().size(), 1U);
  EXPECT_EQ(errorLines().front().rfind("paddock_sharing write_sharepoints exception: ", 0), 0U);
  EXPECT_EQ(sharePoint("b"), std::nullopt);
}

TEST_F(WritingException, FailedStartOfFirstLookupEndsCall) {
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(errorLines(), (Names{"paddock_sharing write_sharepoints exception: 5"}));
  EXPECT_EQ(trace.count("replace"), 0U);
}

TEST_F(WritingException, RaisingDeletionEndsCallBeforeAnyWrite) {
  addSharePoint("old", "/srv/old");
  addSharePoint("older", "/srv/older");
  trace.raiseFor("removeRecord", "old", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(write({share("a"), deletion("/srv/old"), deletion("/srv/older")}), 0);
  EXPECT_EQ(sharePointNames(), (Names{"old", "older"}));
  EXPECT_EQ(errorLines(), (Names{"paddock_sharing write_sharepoints exception: 13"}));
  EXPECT_EQ(trace.count("replace"), 0U);
}

TEST_F(WritingException, RaisingFolderQueryKeepsCreatedRecord) {
  trace.raise("statfs", std::runtime_error("broken"), 1);
  EXPECT_EQ(write({share("a"), share("b")}), 0);
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
  EXPECT_EQ(valuesOfSharePoint("a", kDirectoryPath), (Array{}));
}

TEST_F(WritingException, AnEarlierOneLeavesTheServicesUntold) {
  trace.raise("removeAttribute", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(trace.sequence({"run", "doCommand"}), Names());
}

TEST_F(WritingException, OneOfTheAdvertisementLeavesTheServicesUntold) {
  trace.raiseFor("doCommand", "paddock_vsp", DirectoryError(EIO, "no sibling"));
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(sharePointNames(), (Names{"a"}));
  EXPECT_EQ(trace.count("run"), 0U);
  EXPECT_EQ(errorLines(), (Names{"paddock_sharing write_sharepoints exception: 5"}));
}

TEST_F(WritingException, EarlierExceptionKeepsAdvertisement) {
  trace.raise("removeAttribute", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(trace.count("doCommand"), 0U);
}

TEST_F(WritingException, NotificationExceptionIsLoggedAfterNotifyingAllServices) {
  volumes.setError("/srv/a", EIO);
  trace.raiseFor("doCommand", "paddock_nfs", std::runtime_error("no sibling"));
  EXPECT_EQ(write({share("a")}), CANNOT_SAVE_SHARE_POINT_ERR);
  EXPECT_EQ(trace.sequence({"run", "doCommand"}), end());
  EXPECT_EQ(
      errorLines(),
      (Names{"paddock_sharing: The share point a for path /srv/a was not saved: Input/output error",
             "paddock_sharing write_sharepoints exception: no sibling"}));
}

TEST_F(WritingException, NotificationExceptionDuringDeletionEndsCall) {
  addSharePoint("a", "/srv/a");
  addSharePoint("b", "/srv/b");
  trace.raise("doCommand", DirectoryError(EIO, "no sibling"), 1);
  EXPECT_EQ(write({deletion("/srv/a"), deletion("/srv/b"), share("c")}), 0);
  EXPECT_EQ(sharePointNames(), (Names{"b"}));
  EXPECT_EQ(trace.sequence({"run", "doCommand", "replace"}), synchronisation_);
  EXPECT_EQ(errorLines(), (Names{"paddock_sharing write_sharepoints exception: 5"}));
}

TEST_F(WritingException, NoSessionIsLeftOpen) {
  trace.raise("removeAttribute", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(write({share("a")}), 0);
  EXPECT_EQ(directory.openSessions(), 0);
}

}  // namespace
}  // namespace paddock
