#include "privileges/get_acl.h"

#include <gtest/gtest.h>

#include "platform/directory.h"
#include "privileges/ace_dictionary.h"
#include "support/privileges_fixture.h"

namespace paddock {

namespace {

class AclReading : public PrivilegesFixture {
 protected:
  Status get(const std::string& path = kFolder) { return get_acl(path, entries_); }
  void store(const std::vector<acl::Entry>& entries) { tree.setAcl(kFolder, {.entries = entries}); }
  void storeThree() {
    store({entryOf(acl::kExtendedAllow, guidNumber(1), 2),
           entryOf(acl::kExtendedDeny, guidNumber(2), 4),
           entryOf(acl::kExtendedAllow, guidNumber(3), 8)});
  }
  // The whole dictionary of an entry of an unknown principal.
  static Dictionary unknown(const Guid& guid, const char* allow, int bitmap, int flags) {
    return {{"displayName", guidText(guid)},
            {"guid", guidText(guid)},
            {"allowPermission", allow},
            {"bitmap", bitmap},
            {"flags", flags},
            {"isUser", 1061109567}};
  }
  // A call fails in the second of three entries.
  Status failingInTheSecond(const std::string& call) {
    storeThree();
    return failing(
        call, [this] { return get(); }, 2);
  }

  Array entries_;
};

TEST_F(AclReading, APathWithoutAnAclAppendsNothing) {
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(get("/srv/missing"), kSuccess);
  EXPECT_TRUE(entries_.empty());
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AclReading, AnAclThatCannotBeReadAppendsNothing) {
  storeThree();
  EXPECT_EQ(failing("acl.acl_get_file", [this] { return get(); }), kSuccess);
  EXPECT_TRUE(entries_.empty());
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AclReading, AnEmptyAclAppendsNothing) {
  tree.setAcl(kFolder, {.entries = {}, .complete = true});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_TRUE(entries_.empty());
}

TEST_F(AclReading, AnEntryIsADictionaryOfSixKeys) {
  addPrincipal(schema::kUsers, "anna", guidNumber(1), "Anna Example");
  store({entryOf(acl::kExtendedAllow, guidNumber(1), 2 | 8, 32 | 64)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_, (Array{Dictionary{{"displayName", "Anna Example"},
                                        {"guid", "DEADBEEF-0000-0000-0000-000000000001"},
                                        {"allowPermission", "YES"},
                                        {"bitmap", 10},
                                        {"flags", 96},
                                        {"isUser", 0}}}));
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AclReading, AGroupsIsUserIsOne) {
  addPrincipal(schema::kGroups, "staff", guidNumber(1));
  store({entryOf(acl::kExtendedDeny, guidNumber(1), 2)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_.front().dictionary()->integer("isUser"), 1);
  EXPECT_EQ(*entries_.front().dictionary()->string("allowPermission"), "NO");
}

TEST_F(AclReading, APrincipalThatNobodyKnowsIsNoFailure) {
  store({entryOf(acl::kExtendedAllow, guidNumber(1), 2)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_, (Array{unknown(guidNumber(1), "YES", 2, 0)}));
}

TEST_F(AclReading, EntriesAreAppendedInAclOrder) {
  entries_ = {"before"};
  storeThree();
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_,
            (Array{"before", unknown(guidNumber(1), "YES", 2, 0),
                   unknown(guidNumber(2), "NO", 4, 0), unknown(guidNumber(3), "YES", 8, 0)}));
}

TEST_F(AclReading, EachPermissionIsItsBit) {
  for (const acl::Permission value : acl::kPermissions) {
    entries_.clear();
    store({entryOf(acl::kExtendedAllow, guidNumber(1), value)});
    EXPECT_EQ(get(), kSuccess);
    EXPECT_EQ(entries_.front().dictionary()->integer("bitmap"), value);
  }
}

TEST_F(AclReading, EachFlagIsItsBit) {
  for (const acl::Flag value : acl::kFlags) {
    entries_.clear();
    store({entryOf(acl::kExtendedAllow, guidNumber(1), 0, value)});
    EXPECT_EQ(get(), kSuccess);
    EXPECT_EQ(entries_.front().dictionary()->integer("flags"), value);
  }
}

TEST_F(AclReading, UnknownPermissionAndFlagBitsAreNotReported) {
  store({entryOf(acl::kExtendedAllow, guidNumber(1), 0xFFFFFFFF, 0xFFFFFFFF)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_.front().dictionary()->integer("bitmap"), 16382);
  EXPECT_EQ(entries_.front().dictionary()->integer("flags"), 496);
}

TEST_F(AclReading, ALinksTargetIsRead) {
  storeThree();
  tree.setLink("/srv/link", kFolder);
  EXPECT_EQ(get("/srv/link"), kSuccess);
  EXPECT_EQ(entries_.size(), 3U);
}

TEST_F(AclReading, ManyEntriesAreAllRead) {
  for (const std::size_t count : {1U, 128U, 129U, 1000U}) {
    entries_.clear();
    store(std::vector<acl::Entry>(count, entryOf(acl::kExtendedAllow, guidNumber(1), 2)));
    EXPECT_EQ(get(), kSuccess);
    EXPECT_EQ(entries_.size(), count);
  }
}

TEST_F(AclReading, AnInvalidAclIsItsStatus) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(get(), INVALID_ACL_ERR);
  EXPECT_TRUE(entries_.empty());
  expectErrors("get_acl", {"acl_valid error = -1"});
}

TEST_F(AclReading, TooManyEntriesAreAnInvalidAcl) {
  store(std::vector<acl::Entry>(1001, entryOf(acl::kExtendedAllow, guidNumber(1), 2)));
  EXPECT_EQ(get(), INVALID_ACL_ERR);
  EXPECT_TRUE(entries_.empty());
}

TEST_F(AclReading, MissingQualifierReturnsItsStatusAndEarlierEntries) {
  EXPECT_EQ(failingInTheSecond("acl.acl_get_qualifier"), ACL_QUALIFIER_NOT_FOUND_ERR);
  EXPECT_EQ(entries_, (Array{unknown(guidNumber(1), "YES", 2, 0)}));
  expectErrors("get_acl", {"acl_get_qualifier returned nil"});
}

TEST_F(AclReading, StoredEntryWithoutQualifierInvalidatesAcl) {
  store({entryOf(acl::kExtendedAllow, std::nullopt, 2)});
  EXPECT_EQ(get(), INVALID_ACL_ERR);
}

TEST_F(AclReading, FailedQualifierReleaseIsLoggedAndStillSucceeds) {
  storeThree();
  EXPECT_EQ(failing(
                "acl.acl_free.qualifier", [this] { return get(); }, 2, ENOMEM),
            kSuccess);
  EXPECT_EQ(entries_.size(), 3U);
  expectErrors("get_acl", {"acl_free(qualifier) err. errno = 12"});
}

TEST_F(AclReading, UnreadableTagKeepsPreviousEntryValue) {
  storeThree();
  EXPECT_EQ(failing(
                "acl.acl_get_tag_type", [this] { return get(); }, 2),
            kSuccess);
  EXPECT_EQ(entries_.at(1), Value(unknown(guidNumber(2), "YES", 4, 0)));
  expectErrors("get_acl", {"acl_get_tag_type == " + sharing_error_string(-1)});
}

TEST_F(AclReading, ForeignTagKeepsPreviousEntryValue) {
  store({entryOf(acl::kExtendedDeny, guidNumber(1), 2), entryOf(acl::kForeignTag, guidNumber(2), 4),
         entryOf(acl::kExtendedAllow, guidNumber(3), 8),
         entryOf(acl::kForeignTag, guidNumber(4), 16)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_,
            (Array{unknown(guidNumber(1), "NO", 2, 0), unknown(guidNumber(2), "NO", 4, 0),
                   unknown(guidNumber(3), "YES", 8, 0), unknown(guidNumber(4), "YES", 16, 0)}));
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AclReading, DictionaryBeforeAllowOrDenyEndsAfterGuid) {
  addPrincipal(schema::kUsers, "anna", guidNumber(2));
  store({entryOf(acl::kForeignTag, guidNumber(1), 2), entryOf(acl::kForeignTag, guidNumber(2), 4),
         entryOf(acl::kExtendedDeny, guidNumber(3), 8)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_, (Array{Dictionary{{"displayName", guidText(guidNumber(1))},
                                        {"guid", guidText(guidNumber(1))}},
                             Dictionary{{"displayName", "anna"}, {"guid", guidText(guidNumber(2))}},
                             unknown(guidNumber(3), "NO", 8, 0)}));
}

TEST_F(AclReading, UnreadableFirstTagEndsDictionaryAfterGuid) {
  storeThree();
  EXPECT_EQ(failing("acl.acl_get_tag_type", [this] { return get(); }), kSuccess);
  EXPECT_EQ(entries_.front().dictionary()->size(), 2U);
  EXPECT_EQ(entries_.size(), 3U);
}

TEST_F(AclReading, TruncatedEntryStillHasItsPermissionsRead) {
  store({entryOf(acl::kForeignTag, guidNumber(1), 2)});
  EXPECT_EQ(failing("acl.acl_get_permset", [this] { return get(); }), ACE_PERMSET_NOT_FOUND_ERR);
}

TEST_F(AclReading, UnreadablePermissionsReturnTheirStatusAndEarlierEntries) {
  EXPECT_EQ(failingInTheSecond("acl.acl_get_permset"), ACE_PERMSET_NOT_FOUND_ERR);
  EXPECT_EQ(entries_.size(), 1U);
  expectErrors("get_acl", {"acl_get_permset == " + sharing_error_string(-1)});
}

TEST_F(AclReading, UnreadableFlagsReturnTheirStatusAndEarlierEntries) {
  EXPECT_EQ(failingInTheSecond("acl.acl_get_flagset_np"), ACE_FLAGSET_NOT_FOUND_ERR);
  EXPECT_EQ(entries_.size(), 1U);
  expectErrors("get_acl", {"acl_get_flagset_np == " + sharing_error_string(-1)});
}

TEST_F(AclReading, UntestablePermissionOrFlagCountsAsAbsent) {
  store({entryOf(acl::kExtendedAllow, guidNumber(1), 16382, 496)});
  EXPECT_EQ(failing(
                "acl.acl_get_perm_np", [this] { return get(); }, 2),
            kSuccess);
  EXPECT_EQ(failing("acl.acl_get_flag_np", [this] { return get(); }), kSuccess);
  EXPECT_EQ(entries_.at(0).dictionary()->integer("bitmap"), 16382 - 4);
  EXPECT_EQ(entries_.at(1).dictionary()->integer("flags"), 496 - 16);
}

TEST_F(AclReading, IterationEndsWhenNoFurtherEntryFollows) {
  storeThree();
  EXPECT_EQ(failing(
                "acl.acl_get_entry", [this] { return get(); }, 3),
            kSuccess);
  EXPECT_EQ(entries_.size(), 2U);
}

TEST_F(AclReading, FailedAclReleaseIsLoggedAndKeepsResult) {
  storeThree();
  EXPECT_EQ(failing(
                "acl.acl_free.list", [this] { return get(); }, 1, EBADF),
            kSuccess);
  EXPECT_EQ(entries_.size(), 3U);
  expectErrors("get_acl", {"get_acl acl_free err. errno = 9"});
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(failing("acl.acl_free.list", [this] { return get(); }), INVALID_ACL_ERR);
  expectErrors("get_acl", {"acl_valid error = -1", "get_acl acl_free err. errno = 5"});
}

TEST_F(AclReading, DirectoryErrorReachesCallerAndLeaksNothing) {
  storeThree();
  EXPECT_THROW(failing(
                   "node.findRecordsOfTypes", [this] { return get(); }, 2),
               DirectoryError);
  EXPECT_EQ(entries_.size(), 1U);
  EXPECT_EQ(acl.unreleased(), 0U);
}

TEST_F(AclReading, EntryCostsOneSearchWhenPrincipalsHaveRecords) {
  constexpr std::size_t kEntries = 128;
  std::vector<acl::Entry> entries;
  for (std::uint8_t number = 0; number < kEntries; ++number) {
    addPrincipal(schema::kUsers, "user" + std::to_string(number), guidNumber(number));
    entries.push_back(entryOf(acl::kExtendedAllow, guidNumber(number), 2));
  }
  store(entries);
  FaultPlan none;
  none.countOnly("node.");
  const ForwardingServices counted(doubles(), none);
  const ServicesGuard guard(counted.services());
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(none.calls(), std::vector<std::string>(kEntries, "node.findRecordsOfTypes"));
}

class InheritParentAcl : public PrivilegesFixture {
 protected:
  static constexpr const char* kFile = "/srv/folder/file";

  InheritParentAcl() { tree.set(kFile, {"anna", "staff", 0644, "regular"}); }

  void store(const char* path, const std::vector<acl::Entry>& entries) {
    tree.setAcl(path, {.entries = entries});
  }
  static acl::Entry allow(std::uint8_t guid, acl::Flag flags) {
    return entryOf(acl::kExtendedAllow, guidNumber(guid), 2, flags);
  }
  // The last byte of each entry's GUID, and its flags.
  std::vector<std::pair<int, std::int64_t>> inherit(const std::string& path = kFile) {
    Array entries;
    status_ = inherit_parent_ACL(path, entries);
    std::vector<std::pair<int, std::int64_t>> found;
    for (const Value& entry : entries) {
      const auto guid = parseGuid(*entry.dictionary()->string(ace::kGuid));
      found.emplace_back(guid->bytes[15], *entry.dictionary()->integer(ace::kFlags));
    }
    return found;
  }
  using Found = std::vector<std::pair<int, std::int64_t>>;

  Status status_ = kSuccess;
};

TEST_F(InheritParentAcl, OwnEntriesComeBeforeTheParentsOnes) {
  store(kFile, {allow(1, 0)});
  store(kFolder, {allow(2, acl::kFileInherit)});
  EXPECT_EQ(inherit(), (Found{{1, 0}, {2, 48}}));
  EXPECT_EQ(status_, kSuccess);
}

TEST_F(InheritParentAcl, FolderOnlyInheritanceIsNeverTakenOver) {
  store(kFolder, {allow(1, acl::kDirectoryInherit), allow(2, 0), allow(3, acl::kLimitInherit)});
  tree.setFolder("/srv/folder/inner");
  EXPECT_EQ(inherit(), Found{});
  EXPECT_EQ(inherit("/srv/folder/inner"), Found{});
}

TEST_F(InheritParentAcl, OwnInheritedEntriesNeverAppear) {
  store(kFile, {allow(1, acl::kInherited), allow(2, 0), allow(3, acl::kInherited | 0x1E0)});
  EXPECT_EQ(inherit(), (Found{{2, 0}}));
}

TEST_F(InheritParentAcl, OtherFlagsOfParentEntryAreKept) {
  store(kFolder, {allow(1, 0x1E0), allow(2, 0x1F0)});
  EXPECT_EQ(inherit(), (Found{{1, 0x1F0}, {2, 0x1F0}}));
}

TEST_F(InheritParentAcl, OnlyTheFolderAboveIsAsked) {
  tree.setFolder("/srv");
  store("/srv", {allow(1, acl::kFileInherit)});
  EXPECT_EQ(inherit(), Found{});
  EXPECT_EQ(inherit(kFolder), (Found{{1, 48}}));
  EXPECT_EQ(inherit("/srv/folder///"), (Found{{1, 48}}));
}

TEST_F(InheritParentAcl, TheTopFolderIsItsOwnParent) {
  tree.setFolder("/");
  store("/", {allow(1, acl::kFileInherit)});
  EXPECT_EQ(inherit("/"), (Found{{1, 32}, {1, 48}}));
  EXPECT_EQ(inherit("/srv"), (Found{{1, 48}}));
}

TEST_F(InheritParentAcl, AnInvalidAclOfEitherIsTheStatus) {
  tree.setAcl(kFile, {.entries = {}, .undecodable = true});
  EXPECT_EQ(inherit(), Found{});
  EXPECT_EQ(status_, INVALID_ACL_ERR);
  store(kFile, {allow(1, 0)});
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  inherit();
  EXPECT_EQ(status_, INVALID_ACL_ERR);
}

TEST_F(InheritParentAcl, NothingIsWritten) {
  store(kFolder, {allow(2, acl::kFileInherit)});
  inherit();
  EXPECT_EQ(acl.replacements(), 0);
}

}  // namespace

}  // namespace paddock
