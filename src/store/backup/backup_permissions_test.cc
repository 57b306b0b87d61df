#include "store/backup/backup_permissions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "base/computed_guid.h"
#include "platform/group_entry.h"
#include "privileges/get_acl.h"
#include "store/schema.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* kName = "com.veltro.access_backup";
constexpr const char* kFolder = "/srv/a";

class BackupPermissionsTest : public ModuleFixture {
 protected:
  BackupPermissionsTest() {
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

TEST_F(BackupPermissionsTest, GiveTheGroupAnEntryAndMakeTheGroup) {
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry()));
  EXPECT_EQ(values(schema::kGroups, kName, schema::kPrimaryGroupID), (Array{"250"}));
}

TEST_F(BackupPermissionsTest, TheEntryIsReadBackAsItsTableSays) {
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

TEST_F(BackupPermissionsTest, TheEntryComesFirstAndTheOthersStayAsTheyAre) {
  acl::Entry inherited = entry(somebody(), acl::kDelete, acl::kExtendedDeny);
  inherited.flagset.flags = acl::kInherited | acl::kFileInherit;
  setEntries({inherited, entry(group(20), acl::kReadData)});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry(),
                                  Kept{somebody(), acl::kExtendedDeny, acl::kDelete,
                                       acl::kInherited | acl::kFileInherit},
                                  Kept{group(20), acl::kExtendedAllow, acl::kReadData, 0}));
}

TEST_F(BackupPermissionsTest, TwiceAreOneEntry) {
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry()));
  EXPECT_EQ(acl.replacements(), 1);
}

TEST_F(BackupPermissionsTest, AnEntryOfTheGroupWithOtherPermissionsDoesNotCount) {
  addRecord(schema::kGroups, kName, {{schema::kPrimaryGroupID, "250"}});
  setEntries({entry(group(250), 110 & ~2U), entry(group(250), 110 | 16)});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(3));
  EXPECT_EQ(kept().front(), backupEntry());
}

TEST_F(BackupPermissionsTest, AnEntryBehindOthersCountsWhateverItSaysElse) {
  addRecord(schema::kGroups, kName, {{schema::kPrimaryGroupID, "250"}});
  acl::Entry present = entry(group(250), 110, acl::kExtendedDeny);
  present.flagset.flags = acl::kFileInherit;
  setEntries({entry(somebody(), acl::kReadData), present});
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(acl.replacements(), 0);
}

TEST_F(BackupPermissionsTest, AnEntryOfAnotherPrincipalWithThesePermissionsDoesNotCount) {
  setEntries({entry(somebody(), 110)});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(2));
}

TEST_F(BackupPermissionsTest, TheHostsNumberOfTheGroupIsTheOneThatCounts) {
  accounts.addGroup(kName, 4711);
  addRecord(schema::kGroups, kName, {{schema::kPrimaryGroupID, "300"}});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry(4711)));
}

TEST_F(BackupPermissionsTest, AGroupThatIsNotKnownByItsNameIsAFailureThatChangesNothing) {
  accounts.removeGroup(kName);
  EXPECT_EQ(set(), -1);
  EXPECT_THAT(kept(), IsEmpty());
  EXPECT_THAT(recordNames(schema::kGroups), ElementsAre(kName)) << "for a later write";
}

TEST_F(BackupPermissionsTest, AGroupWhoseMembersDoNotFitInto200BytesIsNotKnown) {
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

TEST_F(BackupPermissionsTest, AnAclThatIsInvalidIsItsStatusAndNoGroupIsMade) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(set(), INVALID_ACL_ERR);
  EXPECT_THAT(recordNames(schema::kGroups), IsEmpty());
  EXPECT_TRUE(tree.acl(kFolder)->undecodable);
}

TEST_F(BackupPermissionsTest, AStatusOfTheGroupIsTheirs) {
  trace.raise("newRecord", DirectoryError(EACCES, "read-only"));
  EXPECT_EQ(set(), kRecordCreationFailed);
  trace.raise("findRecordsOfTypes", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(set(), EIO);
  EXPECT_THAT(kept(), IsEmpty());
}

TEST_F(BackupPermissionsTest, AnAclThatCannotBeWrittenIsNoFailure) {
  trace.fail("acl_set_file", EIO);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), IsEmpty());
}

TEST_F(BackupPermissionsTest, AnAclThatCannotBeReadIsNotReplaced) {
  setEntries({entry(somebody(), acl::kReadData)});
  trace.fail("acl_get_file", EIO);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(1));
  ASSERT_THAT(logger.lines(), SizeIs(1));
  EXPECT_EQ(logger.lines().front().text,
            "paddock_sharing:set_backup_permissions_for_path the ACL of /srv/a stays as it is, "
            "since it cannot be read: Input/output error");
}

TEST_F(BackupPermissionsTest, AnAclThatCanBeReadTheSecondTimeOnlyIsNotReplaced) {
  setEntries({entry(somebody(), acl::kReadData)});
  trace.fail("acl_get_file", EIO, 1);
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), SizeIs(1));
}

TEST_F(BackupPermissionsTest, AnEmptyAclGetsTheEntry) {
  setEntries({});
  EXPECT_EQ(set(), 0);
  EXPECT_THAT(kept(), ElementsAre(backupEntry()));
}

TEST_F(BackupPermissionsTest, OfAFolderThatIsNotThereAreNoFailure) {
  tree.remove(kFolder);
  EXPECT_EQ(set(), 0);
  EXPECT_EQ(set(""), 0);
}

TEST_F(BackupPermissionsTest, ANameThatCannotBeLookedUpTravelsOn) {
  setEntries({entry(somebody(), acl::kReadData)});
  trace.raise("searchNode", DirectoryError(EIO, "damaged"));
  EXPECT_THROW(set(), DirectoryError);
  EXPECT_THAT(kept(), SizeIs(1));
}

TEST_F(BackupPermissionsTest, StepsComeInTheirOrder) {
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
