#include "privileges/get_acl.h"

#include <gtest/gtest.h>

#include "platform/directory.h"
#include "support/privileges_fixture.h"

namespace paddock {
namespace {

class GetAclTest : public PrivilegesFixture {
 protected:
  Status get(const std::string& path = kFolder) { return get_acl(path, entries_); }
  void store(const std::vector<acl::Entry>& entries) { tree.setAcl(kFolder, {.entries = entries}); }
  void storeThree() {
    store({entryOf(acl::kExtendedAllow, guidNumber(1), 2),
           entryOf(acl::kExtendedDeny, guidNumber(2), 4),
           entryOf(acl::kExtendedAllow, guidNumber(3), 8)});
  }
  // The whole dictionary of an entry of a principal that nobody knows.
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

TEST_F(GetAclTest, APathWithoutAnAclAppendsNothing) {
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(get("/srv/missing"), kSuccess);
  EXPECT_TRUE(entries_.empty());
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(GetAclTest, AnAclThatCannotBeReadAppendsNothing) {
  storeThree();
  EXPECT_EQ(failing("acl.acl_get_file", [this] { return get(); }), kSuccess);
  EXPECT_TRUE(entries_.empty());
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(GetAclTest, AnEmptyAclAppendsNothing) {
  tree.setAcl(kFolder, {.entries = {}, .complete = true});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_TRUE(entries_.empty());
}

TEST_F(GetAclTest, AnEntryIsADictionaryOfSixKeys) {
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

TEST_F(GetAclTest, AGroupsIsUserIsOne) {
  addPrincipal(schema::kGroups, "staff", guidNumber(1));
  store({entryOf(acl::kExtendedDeny, guidNumber(1), 2)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_.front().dictionary()->integer("isUser"), 1);
  EXPECT_EQ(*entries_.front().dictionary()->string("allowPermission"), "NO");
}

TEST_F(GetAclTest, APrincipalThatNobodyKnowsIsNoFailure) {
  store({entryOf(acl::kExtendedAllow, guidNumber(1), 2)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_, (Array{unknown(guidNumber(1), "YES", 2, 0)}));
}

TEST_F(GetAclTest, EntriesAreAppendedInTheOrderOfTheAcl) {
  entries_ = {"before"};
  storeThree();
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_,
            (Array{"before", unknown(guidNumber(1), "YES", 2, 0),
                   unknown(guidNumber(2), "NO", 4, 0), unknown(guidNumber(3), "YES", 8, 0)}));
}

TEST_F(GetAclTest, EachPermissionIsItsBit) {
  for (const acl::Permission value : acl::kPermissions) {
    entries_.clear();
    store({entryOf(acl::kExtendedAllow, guidNumber(1), value)});
    EXPECT_EQ(get(), kSuccess);
    EXPECT_EQ(entries_.front().dictionary()->integer("bitmap"), value);
  }
}

TEST_F(GetAclTest, EachFlagIsItsBit) {
  for (const acl::Flag value : acl::kFlags) {
    entries_.clear();
    store({entryOf(acl::kExtendedAllow, guidNumber(1), 0, value)});
    EXPECT_EQ(get(), kSuccess);
    EXPECT_EQ(entries_.front().dictionary()->integer("flags"), value);
  }
}

TEST_F(GetAclTest, BitsThatAreNoPermissionOrFlagAreNotReported) {
  store({entryOf(acl::kExtendedAllow, guidNumber(1), 0xFFFFFFFF, 0xFFFFFFFF)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_.front().dictionary()->integer("bitmap"), 16382);
  EXPECT_EQ(entries_.front().dictionary()->integer("flags"), 496);
}

TEST_F(GetAclTest, ALinksTargetIsRead) {
  storeThree();
  tree.setLink("/srv/link", kFolder);
  EXPECT_EQ(get("/srv/link"), kSuccess);
  EXPECT_EQ(entries_.size(), 3U);
}

TEST_F(GetAclTest, ManyEntriesAreAllRead) {
  for (const std::size_t count : {1U, 128U, 129U, 1000U}) {
    entries_.clear();
    store(std::vector<acl::Entry>(count, entryOf(acl::kExtendedAllow, guidNumber(1), 2)));
    EXPECT_EQ(get(), kSuccess);
    EXPECT_EQ(entries_.size(), count);
  }
}

TEST_F(GetAclTest, AnInvalidAclIsItsStatus) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(get(), INVALID_ACL_ERR);
  EXPECT_TRUE(entries_.empty());
  expectErrors("get_acl", {"acl_valid error = -1"});
}

TEST_F(GetAclTest, TooManyEntriesAreAnInvalidAcl) {
  store(std::vector<acl::Entry>(1001, entryOf(acl::kExtendedAllow, guidNumber(1), 2)));
  EXPECT_EQ(get(), INVALID_ACL_ERR);
  EXPECT_TRUE(entries_.empty());
}

TEST_F(GetAclTest, AnEntryWithoutAQualifierIsItsStatusWithTheEntriesBeforeIt) {
  EXPECT_EQ(failingInTheSecond("acl.acl_get_qualifier"), ACL_QUALIFIER_NOT_FOUND_ERR);
  EXPECT_EQ(entries_, (Array{unknown(guidNumber(1), "YES", 2, 0)}));
  expectErrors("get_acl", {"acl_get_qualifier returned nil"});
}

TEST_F(GetAclTest, AStoredEntryWithoutAQualifierMakesTheAclInvalid) {
  store({entryOf(acl::kExtendedAllow, std::nullopt, 2)});
  EXPECT_EQ(get(), INVALID_ACL_ERR);
}

TEST_F(GetAclTest, AQualifierThatCannotBeReleasedIsLoggedAndNoFailure) {
  storeThree();
  EXPECT_EQ(failing(
                "acl.acl_free.qualifier", [this] { return get(); }, 2, ENOMEM),
            kSuccess);
  EXPECT_EQ(entries_.size(), 3U);
  expectErrors("get_acl", {"acl_free(qualifier) err. errno = 12"});
}

TEST_F(GetAclTest, ATagThatCannotBeReadLeavesTheValueOfTheEntryBefore) {
  storeThree();
  EXPECT_EQ(failing(
                "acl.acl_get_tag_type", [this] { return get(); }, 2),
            kSuccess);
  EXPECT_EQ(entries_.at(1), Value(unknown(guidNumber(2), "YES", 4, 0)));
  expectErrors("get_acl", {"acl_get_tag_type == " + sharing_error_string(-1)});
}

TEST_F(GetAclTest, AnotherTagLeavesTheValueOfTheEntryBefore) {
  store({entryOf(acl::kExtendedDeny, guidNumber(1), 2), entryOf(acl::kForeignTag, guidNumber(2), 4),
         entryOf(acl::kExtendedAllow, guidNumber(3), 8),
         entryOf(acl::kForeignTag, guidNumber(4), 16)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_,
            (Array{unknown(guidNumber(1), "NO", 2, 0), unknown(guidNumber(2), "NO", 4, 0),
                   unknown(guidNumber(3), "YES", 8, 0), unknown(guidNumber(4), "YES", 16, 0)}));
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(GetAclTest, BeforeTheFirstAllowOrDenyADictionaryEndsAfterTheGuid) {
  addPrincipal(schema::kUsers, "anna", guidNumber(2));
  store({entryOf(acl::kForeignTag, guidNumber(1), 2), entryOf(acl::kForeignTag, guidNumber(2), 4),
         entryOf(acl::kExtendedDeny, guidNumber(3), 8)});
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(entries_, (Array{Dictionary{{"displayName", guidText(guidNumber(1))},
                                        {"guid", guidText(guidNumber(1))}},
                             Dictionary{{"displayName", "anna"}, {"guid", guidText(guidNumber(2))}},
                             unknown(guidNumber(3), "NO", 8, 0)}));
}

TEST_F(GetAclTest, AFirstTagThatCannotBeReadEndsTheDictionaryAfterTheGuid) {
  storeThree();
  EXPECT_EQ(failing("acl.acl_get_tag_type", [this] { return get(); }), kSuccess);
  EXPECT_EQ(entries_.front().dictionary()->size(), 2U);
  EXPECT_EQ(entries_.size(), 3U);
}

TEST_F(GetAclTest, ThePermissionsOfATruncatedEntryAreReadAllTheSame) {
  store({entryOf(acl::kForeignTag, guidNumber(1), 2)});
  EXPECT_EQ(failing("acl.acl_get_permset", [this] { return get(); }), ACE_PERMSET_NOT_FOUND_ERR);
}

TEST_F(GetAclTest, PermissionsThatCannotBeReadAreTheirStatusWithTheEntriesBefore) {
  EXPECT_EQ(failingInTheSecond("acl.acl_get_permset"), ACE_PERMSET_NOT_FOUND_ERR);
  EXPECT_EQ(entries_.size(), 1U);
  expectErrors("get_acl", {"acl_get_permset == " + sharing_error_string(-1)});
}

TEST_F(GetAclTest, FlagsThatCannotBeReadAreTheirStatusWithTheEntriesBefore) {
  EXPECT_EQ(failingInTheSecond("acl.acl_get_flagset_np"), ACE_FLAGSET_NOT_FOUND_ERR);
  EXPECT_EQ(entries_.size(), 1U);
  expectErrors("get_acl", {"acl_get_flagset_np == " + sharing_error_string(-1)});
}

TEST_F(GetAclTest, APermissionOrFlagThatCannotBeTestedCountsAsAbsent) {
  store({entryOf(acl::kExtendedAllow, guidNumber(1), 16382, 496)});
  EXPECT_EQ(failing(
                "acl.acl_get_perm_np", [this] { return get(); }, 2),
            kSuccess);
  EXPECT_EQ(failing("acl.acl_get_flag_np", [this] { return get(); }), kSuccess);
  EXPECT_EQ(entries_.at(0).dictionary()->integer("bitmap"), 16382 - 4);
  EXPECT_EQ(entries_.at(1).dictionary()->integer("flags"), 496 - 16);
}

TEST_F(GetAclTest, TheWalkEndsWhereThereIsNoFurtherEntry) {
  storeThree();
  EXPECT_EQ(failing(
                "acl.acl_get_entry", [this] { return get(); }, 3),
            kSuccess);
  EXPECT_EQ(entries_.size(), 2U);
}

TEST_F(GetAclTest, AnAclThatCannotBeReleasedIsLoggedAndTheResultStays) {
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

TEST_F(GetAclTest, AnErrorOfTheDirectoryReachesTheCallerAndNothingStaysBehind) {
  storeThree();
  EXPECT_THROW(failing(
                   "node.findRecordsOfTypes", [this] { return get(); }, 2),
               DirectoryError);
  EXPECT_EQ(entries_.size(), 1U);
  EXPECT_EQ(acl.unreleased(), 0U);
}

TEST_F(GetAclTest, EachEntryCostsOneSearchWhenAllPrincipalsHaveRecords) {
  constexpr std::size_t kEntries = 128;
  std::vector<acl::Entry> entries;
  for (std::uint8_t number = 0; number < kEntries; ++number) {
    addPrincipal(schema::kUsers, "user" + std::to_string(number), guidNumber(number));
    entries.push_back(entryOf(acl::kExtendedAllow, guidNumber(number), 2));
  }
  store(entries);
  FaultPlan none;
  none.countOnly("node.");
  const FaultyServices counted(doubles(), none);
  const ServicesGuard guard(counted.services());
  EXPECT_EQ(get(), kSuccess);
  EXPECT_EQ(none.calls(), std::vector<std::string>(kEntries, "node.findRecordsOfTypes"));
}

}  // namespace
}  // namespace paddock
