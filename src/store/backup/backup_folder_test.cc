#include "store/backup/backup_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "base/guid.h"
#include "platform/accounts.h"
#include "privileges/get_acl.h"
#include "store/directory_access.h"
#include "support/module_fixture.h"

namespace paddock {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Kind = InMemoryTextFiles::Kind;

constexpr const char* kMarker = "/srv/a/.com.veltro.backstow.supported";

class BackupMarker : public ModuleFixture {
 protected:
  static Status remove(const std::string& path) { return delete_backup_marker_for_path(path); }
};

TEST_F(BackupMarker, IsRemovedWithoutAWord) {
  files.setFile(kMarker, "");
  EXPECT_EQ(remove("/srv/a"), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarker, MissingMarkerSucceedsSilently) {
  files.set("/srv/a", {Kind::folder, "", 0755});
  EXPECT_EQ(remove("/srv/a"), 0);
  EXPECT_EQ(remove("/srv/b"), 0);
  files.setFile("/srv/file", "");
  EXPECT_EQ(remove("/srv/file"), 0);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarker, OnlyTheOneDirectlyInsideIsRemoved) {
  files.setFile(kMarker, "");
  files.setFile("/srv/a/b/.com.veltro.backstow.supported", "");
  files.setFile("/srv/.com.veltro.backstow.supported", "");
  files.setFile("/srv/a/.com.veltro.backstow.supported2", "");
  EXPECT_EQ(remove("/srv/a"), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
  EXPECT_NE(files.find("/srv/a/b/.com.veltro.backstow.supported"), nullptr);
  EXPECT_NE(files.find("/srv/.com.veltro.backstow.supported"), nullptr);
  EXPECT_NE(files.find("/srv/a/.com.veltro.backstow.supported2"), nullptr);
}

TEST_F(BackupMarker, SymlinkIsRemovedAndItsTargetKept) {
  files.setFile("/etc/passwd", "root");
  for (const char* target : {"/etc/passwd", "/nowhere"}) {
    files.set(kMarker, {Kind::link, target, 0777});
    EXPECT_EQ(remove("/srv/a"), 0);
    EXPECT_EQ(files.find(kMarker), nullptr) << target;
  }
  EXPECT_EQ(files.contents("/etc/passwd"), "root");
}

TEST_F(BackupMarker, MarkerBehindFolderSymlinkIsRemoved) {
  files.setFile(kMarker, "");
  files.set("/srv/link", {Kind::link, "/srv/a", 0777});
  EXPECT_EQ(remove("/srv/link"), 0);
  EXPECT_EQ(files.find(kMarker), nullptr);
}

TEST_F(BackupMarker, FolderMarkerStaysWithContentsAndIsLogged) {
  files.setFile(std::string(kMarker) + "/inside", "x");
  EXPECT_EQ(remove("/srv/a"), -1);
  EXPECT_EQ(files.contents(std::string(kMarker) + "/inside"), "x");
  EXPECT_THAT(logger.lines(), ElementsAre(RecordingLogger::Line{
                                  kLogError,
                                  "paddock_sharing: Couldn't delete backup share point marker at "
                                  "/srv/a/.com.veltro.backstow.supported\nerror: Is a directory"}));
}

TEST_F(BackupMarker, FailedRemovalLogsErrorAndKeepsMarker) {
  files.setFile(kMarker, "");
  for (const int error : {EPERM, EACCES, EROFS, EIO, EBUSY}) {
    logger.clear();
    trace.fail("removeFile", error, 1);
    EXPECT_EQ(remove("/srv/a"), -1);
    EXPECT_THAT(logger.lines(),
                ElementsAre(RecordingLogger::Line{
                    kLogError, std::string("paddock_sharing: Couldn't delete backup share point "
                                           "marker at /srv/a/.com.veltro.backstow.supported\n"
                                           "error: ") +
                                   std::strerror(error)}));
  }
  EXPECT_NE(files.find(kMarker), nullptr);
}

TEST_F(BackupMarker, UnreachablePathLeavesNothingToRemove) {
  for (const int error : {ENOENT, ENOTDIR, ENAMETOOLONG, ELOOP}) {
    trace.fail("removeFile", error, 1);
    EXPECT_EQ(remove("/srv/a"), 0) << error;
  }
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarker, InvalidPathIsNotSearched) {
  for (const std::string& path :
       {std::string(), std::string("srv/a"), std::string("."), std::string("/srv/a\0x", 8)}) {
    EXPECT_EQ(remove(path), 0);
  }
  EXPECT_EQ(trace.count("removeFile"), 0U);
  EXPECT_THAT(logger.lines(), IsEmpty());
}

TEST_F(BackupMarker, TrailingSlashesAreNotLoggedTwice) {
  trace.fail("removeFile", EPERM);
  EXPECT_EQ(remove("/srv/a//"), -1);
  EXPECT_EQ(remove("/"), -1);
  ASSERT_EQ(logger.lines().size(), 2U);
  EXPECT_THAT(logger.lines()[0].text, ::testing::HasSubstr(" /srv/a/.com.veltro."));
  EXPECT_THAT(logger.lines()[1].text, ::testing::HasSubstr(" /.com.veltro."));
}

TEST_F(BackupMarker, PathWithPercentSignsIsLoggedVerbatim) {
  trace.fail("removeFile", EPERM);
  EXPECT_EQ(remove("/srv/%s%n%@"), -1);
  EXPECT_THAT(logger.lines().front().text,
              ::testing::HasSubstr(" at /srv/%s%n%@/.com.veltro.backstow.supported\nerror: "));
}

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using schema::kGroups;
using schema::kPrimaryGroupID;

constexpr const char* kName = "com.veltro.access_backup";

class BackupGroup : public ModuleFixture {
 protected:
  void addGroup(const std::string& name, const Value& numbers) {
    addRecord(kGroups, name, {{kPrimaryGroupID, numbers}});
  }
  Array numbers() { return values(kGroups, kName, kPrimaryGroupID); }
};

TEST_F(BackupGroup, IsCreatedInLocalNodeWithFirstNumber) {
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(attributes(kGroups, kName),
            (Dictionary{{schema::kRecordName, Array{kName}}, {kPrimaryGroupID, Array{"250"}}}));
}

TEST_F(BackupGroup, IsMadeOnce) {
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_THAT(recordNames(kGroups), ElementsAre(kName));
  EXPECT_EQ(trace.count("newRecord"), 1U);
  EXPECT_EQ(trace.count("setAttribute"), 1U);
}

TEST_F(BackupGroup, ExistingGroupKeepsAnyNumber) {
  addGroup(kName, "7");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"7"}));
  EXPECT_EQ(trace.count("findRecordNames"), 0U) << "no number is looked for";
}

TEST_F(BackupGroup, IsFoundInAnyLetterCase) {
  addGroup("COM.Veltro.Access_Backup", "300");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(recordNames(kGroups).size(), 1U);
}

TEST_F(BackupGroup, GetsFirstNumberUnusedByLocalGroups) {
  addGroup("a", "250");
  addGroup("b", "252");
  addGroup("c", "251");
  addGroup("d", "254");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"253"}));
}

TEST_F(BackupGroup, EveryNumberOfAGroupIsTaken) {
  addGroup("a", Array{"1000", "250"});
  addGroup("b", Array{"251", "20"});
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"252"}));
}

TEST_F(BackupGroup, NumbersAreComparedAsTexts) {
  addGroup("a", "0250");
  addGroup("b", "+250");
  addGroup("c", " 250");
  addGroup("d", "250 ");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"250"}));
}

TEST_F(BackupGroup, NumbersBelow250OrOutsideLocalGroupsAreIgnored) {
  addGroup("a", "249");
  addRecord(schema::kUsers, "u", {{kPrimaryGroupID, "250"}});
  directory.addNode("/LDAP/site", "ReadWrite");
  directory.addRecord("/LDAP/site", kGroups, "l", {{kPrimaryGroupID, "250"}});
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"250"}));
}

TEST_F(BackupGroup, GroupsWithoutANumberDoNotCount) {
  addRecord(kGroups, "a");
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"250"}));
}

TEST_F(BackupGroup, NumbersOfManyGroupsTakeOneSearch) {
  for (int number = 250; number < 1250; ++number) {
    addGroup("g" + std::to_string(number), std::to_string(number));
  }
  trace.forgetCalls();
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"1250"}));
  EXPECT_EQ(trace.count("findRecordNames"), 1U);
  EXPECT_LT(trace.calls().size(), 20U);
}

TEST_F(BackupGroup, NumberSearchEndsAtLastNumber) {
  const std::unordered_set<std::string> taken = {"4294967292", "4294967293", "4294967294"};
  EXPECT_EQ(first_free_group_number(taken, 4294967292, 4294967294), 4294967294U);
  EXPECT_EQ(first_free_group_number({"10"}, 10, 12), 11U);
  EXPECT_EQ(first_free_group_number({"10", "11"}, 10, 12), 12U);
  EXPECT_EQ(first_free_group_number({}, 12, 12), 12U);
}

TEST_F(BackupGroup, ThatCannotBeMadeIsThatStatus) {
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(require_backup_group(), kRecordCreationFailed);
  EXPECT_THAT(recordNames(kGroups), IsEmpty());
}

TEST_F(BackupGroup, FailedLookupReturnsDirectoryStatusAndCreatesNothing) {
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(require_backup_group(), EIO);
  EXPECT_EQ(trace.count("newRecord"), 0U);
  trace.forgetRules();
  trace.raise("openLocal", DirectoryError(EBUSY, "locked"));
  EXPECT_EQ(require_backup_group(), EBUSY);
}

TEST_F(BackupGroup, LookupFailingOnceIsRetriedAndKeepsNumber) {
  addGroup(kName, "7");
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"7"}));
}

TEST_F(BackupGroup, UnreadableGroupNumbersLeaveItWithoutNumber) {
  addGroup("a", "250");
  trace.raise("findRecordNames", DirectoryError(EIO, "damaged"), 1);
  EXPECT_EQ(require_backup_group(), EIO);
  EXPECT_THAT(numbers(), IsEmpty());
  trace.raise("findRecordNames", DirectoryError("no number"), 1);
  EXPECT_EQ(require_backup_group(), -1);
  trace.raise("findRecordNames", DirectoryError(0, "a number that says nothing"), 1);
  EXPECT_EQ(require_backup_group(), -1);
  EXPECT_THAT(numbers(), IsEmpty());
}

TEST_F(BackupGroup, GroupLeftWithoutNumberGetsOneNextTime) {
  addGroup("a", "250");
  trace.raise("setAttribute", DirectoryError(ENOSPC, "disk full"), 1);
  EXPECT_THROW(require_backup_group(), DirectoryError);
  EXPECT_THAT(recordNames(kGroups), Contains(kName));
  EXPECT_THAT(numbers(), IsEmpty());
  EXPECT_EQ(require_backup_group(), 0);
  EXPECT_EQ(numbers(), (Array{"251"}));
}

TEST_F(BackupGroup, StepsComeInTheirOrder) {
  require_backup_group();
  EXPECT_THAT(
      trace.sequence({"findRecordsOfTypes", "newRecord", "findRecordNames", "setAttribute"}),
      ElementsAre("findRecordsOfTypes " + std::string(kName),
                  "findRecordsOfTypes " + std::string(kName), "newRecord " + std::string(kName),
                  "findRecordNames dsRecordsAll", "setAttribute " + std::string(kName)));
  EXPECT_EQ(directory.openSessions(), 0);
}

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kFolder = "/srv/a";

class BackupPermissions : public ModuleFixture {
 protected:
  BackupPermissions() {
    tree.setFolder(kFolder);
    accounts.addGroup(kName, 250);
  }

  static Status set(const std::string& path = kFolder) {
    return set_backup_permissions_for_path(path);
  }
  static acl::Entry entry(const Guid& guid, acl::Permission permissions,
                          int tag = acl::kExtendedAllow) {
    acl::Entry entry;
    entry.tag = tag;
    entry.qualifier = guid;
    entry.permset.permissions = permissions;
    return entry;
  }
  static Guid group(std::uint32_t gid) { return computedGuid({PrincipalType::group, gid}); }
  static Guid somebody() { return computedGuid({PrincipalType::user, 1000}); }
  void setEntries(const std::vector<acl::Entry>& entries) {
    tree.setAcl(kFolder, {.entries = entries});
  }

  // What is kept, as "PRINCIPAL's number allow PERMISSIONS FLAGS".
  struct Kept {
    Guid guid;
    int tag;
    acl::Permission permissions;
    acl::Flag flags;
    friend bool operator==(const Kept&, const Kept&) = default;
  };
  std::vector<Kept> kept() {
    std::vector<Kept> found;
    const StoredAcl* stored = tree.acl(kFolder);
    if (stored == nullptr) return found;
    for (const acl::Entry& one : stored->entries) {
      found.push_back({*one.qualifier, one.tag, one.permset.permissions, one.flagset.flags});
    }
    return found;
  }
  static Kept backupEntry(std::uint32_t gid = 250) {
    return {group(gid), acl::kExtendedAllow, 110, 0};
  }
};

TEST_F(BackupPermissions, GrantCreatesGroupAndItsEntry) {
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry()));
  EXPECT_EQ(values(schema::kGroups, kName, schema::kPrimaryGroupID), (Array{"250"}));
}

TEST_F(BackupPermissions, EntryReadsBackAsSpecified) {
  EXPECT_EQ(set(), 0);
  Array entries;
  EXPECT_EQ(get_acl(kFolder, entries), 0);
  EXPECT_EQ(entries, (Array{Dictionary{{"displayName", kName},
                                       {"guid", guidText(group(250))},
                                       {"allowPermission", "YES"},
                                       {"bitmap", 110},
                                       {"flags", 0},
                                       {"isUser", 1}}}));
}

TEST_F(BackupPermissions, EntryComesFirstAndOthersStayUnchanged) {
  acl::Entry inherited = entry(somebody(), acl::kDelete, acl::kExtendedDeny);
  inherited.flagset.flags = acl::kInherited | acl::kFileInherit;
  setEntries({inherited, entry(group(20), acl::kReadData)});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry(),
                                  Kept{somebody(), acl::kExtendedDeny, acl::kDelete,
                                       acl::kInherited | acl::kFileInherit},
                                  Kept{group(20), acl::kExtendedAllow, acl::kReadData, 0}));
}

TEST_F(BackupPermissions, TwiceAreOneEntry) {
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry()));
  EXPECT_EQ(acl.replacements(), 1);
}

TEST_F(BackupPermissions, GroupEntryWithOtherPermissionsDoesNotCount) {
  addRecord(schema::kGroups, kName, {{schema::kPrimaryGroupID, "250"}});
  setEntries({entry(group(250), 110 & ~2U), entry(group(250), 110 | 16)});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(3));
  EXPECT_EQ(kept().front(), backupEntry());
}

TEST_F(BackupPermissions, EntryBehindOthersCountsDespiteOtherFields) {
  addRecord(schema::kGroups, kName, {{schema::kPrimaryGroupID, "250"}});
  acl::Entry present = entry(group(250), 110, acl::kExtendedDeny);
  present.flagset.flags = acl::kFileInherit;
  setEntries({entry(somebody(), acl::kReadData), present});
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(acl.replacements(), 0);
}

TEST_F(BackupPermissions, SamePermissionsOfOtherPrincipalDoNotCount) {
  setEntries({entry(somebody(), 110)});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(2));
}

TEST_F(BackupPermissions, GroupNumberOfHostWins) {
  accounts.addGroup(kName, 4711);
  addRecord(schema::kGroups, kName, {{schema::kPrimaryGroupID, "300"}});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry(4711)));
}

TEST_F(BackupPermissions, UnknownGroupNameFailsAndChangesNothing) {
  accounts.removeGroup(kName);
  EXPECT_EQ(set(), -1);
  EXPECT_THAT(kept(), IsEmpty());
  EXPECT_THAT(recordNames(schema::kGroups), ElementsAre(kName)) << "for a later write";
}

TEST_F(BackupPermissions, GroupBeyond200BytesOfMembersIsUnknown) {
  // The line with its end, aligned, and a pointer for each member and two more.
  std::vector<std::string> members(8, "member12");
  members.emplace_back("x");
  ASSERT_EQ(groupEntrySize(kName, 250, members), 200U);
  accounts.addGroup(kName, 250, members);
  EXPECT_EQ(set(), 0);
  setEntries({});
  members.back() = "member12";
  accounts.addGroup(kName, 250, members);
  EXPECT_EQ(set(), -1);
  EXPECT_THAT(kept(), IsEmpty());
}

TEST_F(BackupPermissions, InvalidAclReturnsStatusAndCreatesNoGroup) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(set(), INVALID_ACL_ERR);
  EXPECT_THAT(recordNames(schema::kGroups), IsEmpty());
  EXPECT_TRUE(tree.acl(kFolder)->undecodable);
}

TEST_F(BackupPermissions, AStatusOfTheGroupIsTheirs) {
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(set(), kRecordCreationFailed);
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(set(), EIO);
  EXPECT_THAT(kept(), IsEmpty());
}

TEST_F(BackupPermissions, UnwritableAclIsNoFailure) {
  trace.fail("acl_set_file", EIO);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), IsEmpty());
}

TEST_F(BackupPermissions, UnreadableAclIsNotReplaced) {
  setEntries({entry(somebody(), acl::kReadData)});
  trace.fail("acl_get_file", EIO);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(1));
  ASSERT_THAT(logger.lines(), SizeIs(1));
  EXPECT_EQ(logger.lines().front().text,
            "paddock_sharing:set_backup_permissions_for_path the ACL of /srv/a stays as it is, "
            "since it cannot be read: Input/output error");
}

TEST_F(BackupPermissions, AclUnreadableAtFirstIsNotReplaced) {
  setEntries({entry(somebody(), acl::kReadData)});
  trace.fail("acl_get_file", EIO, 1);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(1));
}

TEST_F(BackupPermissions, AnEmptyAclGetsTheEntry) {
  setEntries({});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry()));
}

TEST_F(BackupPermissions, MissingFolderIsNoFailure) {
  tree.remove(kFolder);
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(set(""), 0);
}

TEST_F(BackupPermissions, FailedNameLookupReachesCaller) {
  setEntries({entry(somebody(), acl::kReadData)});
  trace.raise("searchNode", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(set(), DirectoryError);
  EXPECT_THAT(kept(), SizeIs(1));
}

TEST_F(BackupPermissions, StepsComeInTheirOrder) {
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(
      trace.sequence({"acl_get_file", "newRecord", "setAttribute", "getgrnam_r", "acl_set_file"}),
      ElementsAre("acl_get_file /srv/a", "newRecord " + std::string(kName),
                  "setAttribute " + std::string(kName), "getgrnam_r " + std::string(kName),
                  "acl_get_file /srv/a", "acl_set_file /srv/a"));
  EXPECT_EQ(trace.callsOf("getgrnam_r").front().detail, "200");
}

}  // namespace

}  // namespace paddock
