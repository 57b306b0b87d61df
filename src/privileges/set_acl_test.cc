#include "privileges/set_acl.h"

#include <gtest/gtest.h>

#include "privileges/ace_dictionary.h"
#include "privileges/get_acl.h"
#include "support/privileges_fixture.h"

namespace paddock {
namespace {

class AclWriting : public PrivilegesFixture {
 protected:
  Status set(const Array& entries, const std::string& path = kFolder) {
    return set_acl(path, entries);
  }
  // The nth call of the name fails while one entry is written.
  Status setFailing(const std::string& call, std::size_t nth = 1, int error = EIO) {
    return failing(
        call, [this] { return set({whole()}); }, nth, error);
  }

  static Dictionary entry(const Guid& guid, const Value& allow, const Value& bitmap,
                          const Value& flags = 0) {
    return {
        {"guid", guidText(guid)}, {"allowPermission", allow}, {"bitmap", bitmap}, {"flags", flags}};
  }
  // An entry with every permission and every flag.
  static Dictionary whole() { return entry(guidNumber(1), "YES", 16382, 496); }
  static Dictionary without(Dictionary dictionary, const std::string& key) {
    dictionary.erase(key);
    return dictionary;
  }
  static Dictionary with(Dictionary dictionary, const std::string& key, const Value& value) {
    dictionary.set(key, value);
    return dictionary;
  }
  // An entry whose principal is named by kind and id.
  static Dictionary byId(const Value& isUser, const char* key, const Value& id) {
    Dictionary dictionary{{"allowPermission", "YES"}, {"bitmap", 2}, {"isUser", isUser}};
    if (key != nullptr) dictionary.set(key, id);
    return dictionary;
  }

  // A list that is there before, so that "untouched" can be seen.
  void storeOld() {
    acl::Entry old;
    old.tag = acl::kExtendedDeny;
    old.qualifier = guidNumber(99);
    old.permset.permissions = acl::kDelete;
    tree.setAcl(kFolder, {.entries = {old}});
  }
  void expectOld() {
    const StoredAcl* now = tree.acl(kFolder);
    ASSERT_NE(now, nullptr);
    ASSERT_EQ(now->entries.size(), 1U);
    EXPECT_EQ(now->entries.front().qualifier, guidNumber(99));
    EXPECT_EQ(acl.replacements(), 0);
  }
  // The one entry of the folder's ACL.
  acl::Entry written() {
    const StoredAcl* now = tree.acl(kFolder);
    if (now == nullptr || now->entries.size() != 1) {
      ADD_FAILURE() << "not one entry";
      return {};
    }
    return now->entries.front();
  }
};

TEST_F(AclWriting, WritesOneAllowEntryThatReadsBack) {
  EXPECT_EQ(set({entry(guidNumber(1), "YES", 2)}), kSuccess);
  Array read;
  EXPECT_EQ(get_acl(kFolder, read), kSuccess);
  EXPECT_EQ(read, (Array{Dictionary{{"displayName", guidText(guidNumber(1))},
                                    {"guid", guidText(guidNumber(1))},
                                    {"allowPermission", "YES"},
                                    {"bitmap", 2},
                                    {"flags", 0},
                                    {"isUser", 1061109567}}}));
}

TEST_F(AclWriting, WhatWasReadCanBeWrittenBack) {
  EXPECT_EQ(set({whole(), entry(guidNumber(2), "NO", 4, 32), entry(guidNumber(1), "YES", 8)}),
            kSuccess);
  Array first;
  EXPECT_EQ(get_acl(kFolder, first), kSuccess);
  EXPECT_EQ(set(first), kSuccess);
  Array second;
  EXPECT_EQ(get_acl(kFolder, second), kSuccess);
  EXPECT_EQ(second, first);
  EXPECT_EQ(first.size(), 3U);
}

TEST_F(AclWriting, DenyEntryBehindAllowEntryKeepsPosition) {
  EXPECT_EQ(set({entry(guidNumber(1), "YES", 2), entry(guidNumber(2), "NO", 2),
                 entry(guidNumber(3), "YES", 2)}),
            kSuccess);
  std::vector<int> tags;
  for (const acl::Entry& one : tree.acl(kFolder)->entries) tags.push_back(one.tag);
  EXPECT_EQ(tags, (std::vector<int>{1, 2, 1}));
}

TEST_F(AclWriting, AllEntriesThatWereThereAreReplaced) {
  storeOld();
  EXPECT_EQ(set({whole()}), kSuccess);
  EXPECT_EQ(written().qualifier, guidNumber(1));
}

TEST_F(AclWriting, ALinksTargetIsWritten) {
  tree.setLink("/srv/link", kFolder);
  EXPECT_EQ(set({whole()}, "/srv/link"), kSuccess);
  EXPECT_EQ(written().qualifier, guidNumber(1));
}

// Empty arrays.

TEST_F(AclWriting, AnEmptyArrayClearsAValidAcl) {
  storeOld();
  EXPECT_EQ(set({}), kSuccess);
  EXPECT_EQ(tree.acl(kFolder), nullptr);
}

TEST_F(AclWriting, EmptyArrayKeepsPathWithoutAcl) {
  EXPECT_EQ(set({}), kSuccess);
  EXPECT_EQ(set({}, "/srv/missing"), kSuccess);
  EXPECT_EQ(acl.replacements(), 0);
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AclWriting, AnEmptyArrayLeavesAnInvalidAclAlone) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(set({}), kSuccess);
  EXPECT_TRUE(tree.acl(kFolder)->undecodable);
  EXPECT_EQ(acl.replacements(), 0);
}

TEST_F(AclWriting, EmptyArrayKeepsUnreadableAcl) {
  storeOld();
  EXPECT_EQ(failing("acl.acl_get_file", [this] { return set({}); }), kSuccess);
  expectOld();
}

TEST_F(AclWriting, EntriesReplaceAnInvalidAcl) {
  tree.setAcl(kFolder, {.entries = {}, .undecodable = true});
  EXPECT_EQ(set({whole()}), kSuccess);
  EXPECT_EQ(written().qualifier, guidNumber(1));
}

// "allowPermission".

TEST_F(AclWriting, YesAndNoAreAllowAndDeny) {
  EXPECT_EQ(set({entry(guidNumber(1), "YES", 2)}), kSuccess);
  EXPECT_EQ(written().tag, acl::kExtendedAllow);
  EXPECT_EQ(set({entry(guidNumber(1), "NO", 2)}), kSuccess);
  EXPECT_EQ(written().tag, acl::kExtendedDeny);
}

TEST_F(AclWriting, OtherAllowPermissionEndsQuietlyAndChangesNothing) {
  storeOld();
  for (const Value& allow : std::vector<Value>{"yes", "Yes", "no", "", "YES ", " NO", "1", "true",
                                               true, 1, 0, Array{"YES"}, Data{{'N', 'O'}}}) {
    EXPECT_EQ(set({whole(), entry(guidNumber(2), allow, 2), whole()}), kSuccess);
    expectOld();
  }
  EXPECT_EQ(set({without(whole(), "allowPermission")}), kSuccess);
  expectOld();
  EXPECT_TRUE(errorLines().empty());
}

TEST_F(AclWriting, NonDictionaryMemberCountsAsEmptyEntry) {
  storeOld();
  for (const Value& member : std::vector<Value>{"x", 7, true, Array{whole()}, Data{}, Value()}) {
    EXPECT_EQ(set({member}), kSuccess);
    EXPECT_EQ(set({whole(), member}), kSuccess);
    expectOld();
  }
  EXPECT_TRUE(errorLines().empty());
}

// The principal.

TEST_F(AclWriting, GuidTextAcceptsEitherLetterCase) {
  EXPECT_EQ(set({with(whole(), "guid", "deadBEEF-0000-0000-0000-00000000000a")}), kSuccess);
  EXPECT_EQ(written().qualifier, guidNumber(10));
}

TEST_F(AclWriting, AGuidWinsOverKindAndIds) {
  EXPECT_EQ(set({with(byId(0, "uniqueID", 0), "guid", guidText(guidNumber(1)))}), kSuccess);
  EXPECT_EQ(written().qualifier, guidNumber(1));
}

TEST_F(AclWriting, InvalidGuidTextFailsToSetQualifier) {
  storeOld();
  for (const char* text :
       {"", "x", "DEADBEEF-0000-0000-0000-00000000000", "DEADBEEF-0000-0000-0000-0000000000011",
        "DEADBEEF000000000000000000000001", "{DEADBEEF-0000-0000-0000-000000000001}",
        "DEADBEEF-0000-0000-0000-00000000000G", "DEADBEEF_0000_0000_0000_000000000001",
        " DEADBEEF-0000-0000-0000-000000000001"}) {
    EXPECT_EQ(set({with(whole(), "guid", text)}), CANNOT_SET_ACL_QUALIFIER_ERR) << text;
    expectOld();
    expectErrors("set_acl", {std::string("no guid: ") + text});
  }
}

TEST_F(AclWriting, NonTextGuidReadsAsAbsent) {
  EXPECT_EQ(set({with(byId(1, "groupID", 20), "guid", 7)}), kSuccess);
  EXPECT_EQ(written().qualifier, guidOfGroup(20));
  EXPECT_EQ(set({with(whole(), "guid", Array{})}), ACL_UG_TYPE_NOT_FOUND_ERR);
}

TEST_F(AclWriting, AUserIsNamedByItsUid) {
  EXPECT_EQ(set({byId(0, "uniqueID", 1000)}), kSuccess);
  EXPECT_EQ(written().qualifier, guidOfUser(1000));
}

TEST_F(AclWriting, AGroupIsNamedByItsGid) {
  EXPECT_EQ(set({byId(1, "groupID", 20)}), kSuccess);
  EXPECT_EQ(written().qualifier, guidOfGroup(20));
}

TEST_F(AclWriting, NonZeroKindIsGroup) {
  for (const Value& kind : std::vector<Value>{1, 2, -1, 1061109567, 4294967296, true, "1", "-7",
                                              Value::fromUnsigned(~std::uint64_t{0})}) {
    EXPECT_EQ(set({with(byId(kind, "groupID", 20), "uniqueID", 1000)}), kSuccess);
    EXPECT_EQ(written().qualifier, guidOfGroup(20));
  }
}

TEST_F(AclWriting, ZeroKindInAnyFormIsUser) {
  for (const Value& kind : std::vector<Value>{0, false, "0", "00", "-0"}) {
    EXPECT_EQ(set({with(byId(kind, "groupID", 20), "uniqueID", 1000)}), kSuccess);
    EXPECT_EQ(written().qualifier, guidOfUser(1000));
  }
}

TEST_F(AclWriting, IdsMayBeTextsAndBooleans) {
  EXPECT_EQ(set({byId("0", "uniqueID", "1000")}), kSuccess);
  EXPECT_EQ(written().qualifier, guidOfUser(1000));
  EXPECT_EQ(set({byId("1", "groupID", "20")}), kSuccess);
  EXPECT_EQ(written().qualifier, guidOfGroup(20));
  EXPECT_EQ(set({byId(0, "uniqueID", true)}), kSuccess);
  EXPECT_EQ(written().qualifier, guidOfUser(1));
}

TEST_F(AclWriting, TheLargestIdIsOne) {
  EXPECT_EQ(set({byId(0, "uniqueID", 4294967295)}), kSuccess);
  EXPECT_EQ(written().qualifier, guidOfUser(4294967295U));
}

TEST_F(AclWriting, IdBeyond32BitsOrNegativeCannotBeMapped) {
  storeOld();
  for (const Value& id :
       std::vector<Value>{4294967296, -1, -2, "4294967296", "-1", "18446744073709551615",
                          Value::fromUnsigned(~std::uint64_t{0})}) {
    EXPECT_EQ(set({byId(0, "uniqueID", id)}), CANNOT_SET_ACL_QUALIFIER_ERR);
    expectErrors("set_acl", {"uniqueID is no id of 32 bits"});
    EXPECT_EQ(set({byId(1, "groupID", id)}), CANNOT_SET_ACL_QUALIFIER_ERR);
    expectErrors("set_acl", {"groupID is no id of 32 bits"});
  }
  expectOld();
}

TEST_F(AclWriting, MissingGuidAndKindYieldNoPrincipal) {
  storeOld();
  EXPECT_EQ(set({without(byId(0, "uniqueID", 1000), "isUser")}), ACL_UG_TYPE_NOT_FOUND_ERR);
  expectErrors("set_acl", {"no ug Type"});
  expectOld();
}

TEST_F(AclWriting, NonNumericKindIsGroup) {
  for (const Value& kind : std::vector<Value>{"", "user", "0x0", Array{0}, Dictionary{}, Data{}}) {
    EXPECT_EQ(set({with(byId(kind, "groupID", 20), "uniqueID", 1000)}), kSuccess);
    EXPECT_EQ(written().qualifier, guidOfGroup(20));
    EXPECT_EQ(set({byId(kind, "uniqueID", 1000)}), ACL_GROUP_ID_NOT_FOUND_ERR);
    expectErrors("set_acl", {"no groupID"});
  }
}

TEST_F(AclWriting, AUserWithoutAUid) {
  storeOld();
  EXPECT_EQ(set({byId(0, "groupID", 20)}), ACL_UNIQUE_ID_NOT_FOUND_ERR);
  expectErrors("set_acl", {"no uniqueID"});
  EXPECT_EQ(set({byId(0, "uniqueID", "anna")}), ACL_UNIQUE_ID_NOT_FOUND_ERR);
  expectErrors("set_acl", {"no uniqueID"});
  expectOld();
}

TEST_F(AclWriting, AGroupWithoutAGid) {
  storeOld();
  EXPECT_EQ(set({byId(1, "uniqueID", 1000)}), ACL_GROUP_ID_NOT_FOUND_ERR);
  expectErrors("set_acl", {"no groupID"});
  EXPECT_EQ(set({byId(1, "groupID", Array{20})}), ACL_GROUP_ID_NOT_FOUND_ERR);
  expectErrors("set_acl", {"no groupID"});
  expectOld();
}

TEST_F(AclWriting, FailedMappingFailsToSetQualifier) {
  storeOld();
  membership.failWith(ENOENT);
  EXPECT_EQ(set({byId(0, "uniqueID", 1000)}), CANNOT_SET_ACL_QUALIFIER_ERR);
  expectErrors("set_acl", {"mbr_uid_to_uuid error = 2"});
  EXPECT_EQ(set({byId(1, "groupID", 20)}), CANNOT_SET_ACL_QUALIFIER_ERR);
  expectErrors("set_acl", {"mbr_gid_to_uuid error = 2"});
  expectOld();
}

// Permissions and flags.

TEST_F(AclWriting, EachPermissionAndEachFlagIsWrittenAlone) {
  for (const acl::Permission value : acl::kPermissions) {
    EXPECT_EQ(set({entry(guidNumber(1), "YES", value)}), kSuccess);
    EXPECT_EQ(written().permset.permissions, value);
    EXPECT_EQ(written().flagset.flags, 0U);
  }
  for (const acl::Flag value : acl::kFlags) {
    EXPECT_EQ(set({entry(guidNumber(1), "YES", 0, value)}), kSuccess);
    EXPECT_EQ(written().permset.permissions, 0U);
    EXPECT_EQ(written().flagset.flags, value);
  }
}

TEST_F(AclWriting, UnknownPermissionAndFlagBitsAreIgnored) {
  for (const Value& all : std::vector<Value>{16383, -1, "-1", 0x7FFFFFFFFFFFFFFF,
                                             Value::fromUnsigned(~std::uint64_t{0})}) {
    EXPECT_EQ(set({entry(guidNumber(1), "YES", all, 0x1FF)}), kSuccess);
    EXPECT_EQ(written().permset.permissions, 16382U);
    EXPECT_EQ(written().flagset.flags, 496U);
  }
  for (const Value& none : std::vector<Value>{1, 16384, 0x1'0000'0000, 0xFFFF'C001}) {
    EXPECT_EQ(set({entry(guidNumber(1), "YES", none, 0x1'0000'0000)}), kSuccess);
    EXPECT_EQ(written().permset.permissions, 0U);
    EXPECT_EQ(written().flagset.flags, 0U);
  }
}

TEST_F(AclWriting, NumbersMayBeTextsAndBooleans) {
  EXPECT_EQ(set({entry(guidNumber(1), "YES", "6", "96")}), kSuccess);
  EXPECT_EQ(written().permset.permissions, 6U);
  EXPECT_EQ(written().flagset.flags, 96U);
  EXPECT_EQ(set({entry(guidNumber(1), "YES", true, false)}), kSuccess);
  EXPECT_EQ(written().permset.permissions, 0U);
}

TEST_F(AclWriting, AbsentBitsAreNone) {
  EXPECT_EQ(set({without(without(whole(), "bitmap"), "flags")}), kSuccess);
  EXPECT_EQ(written().permset.permissions, 0U);
  EXPECT_EQ(written().flagset.flags, 0U);
  EXPECT_EQ(set({entry(guidNumber(1), "YES", "read", Array{16})}), kSuccess);
  EXPECT_EQ(written().permset.permissions, 0U);
  EXPECT_EQ(written().flagset.flags, 0U);
}

TEST_F(AclWriting, ABitWithTwoNamesIsAddedTwice) {
  FaultPlan none;
  none.countOnly("acl.acl_add_");
  {
    const ForwardingServices counted(doubles(), none);
    const ServicesGuard guard(counted.services());
    EXPECT_EQ(set({entry(guidNumber(1), "YES", 2 | 4 | 8 | 16 | 32 | 64, 16)}), kSuccess);
  }
  std::vector<std::string> expected(2 + 2 + 2 + 1 + 2 + 1, "acl.acl_add_perm");
  expected.emplace_back("acl.acl_add_flag_np");
  EXPECT_EQ(none.calls(), expected);
}

// Failures, step by step.

struct FailedCall {
  const char* call;
  Status status;
  const char* function;
  std::string text;
};
void PrintTo(const FailedCall& failed, std::ostream* out) { *out << failed.call; }

class AclWritingFailure : public AclWriting, public ::testing::WithParamInterface<FailedCall> {};

TEST_P(AclWritingFailure, ReturnsStatusLogsLineAndKeepsFile) {
  storeOld();
  EXPECT_EQ(setFailing(GetParam().call), GetParam().status);
  expectOld();
  expectErrors(GetParam().function, {GetParam().text});
}

INSTANTIATE_TEST_SUITE_P(
    Calls, AclWritingFailure,
    ::testing::Values(
        FailedCall{"acl.acl_init", ACL_INIT_ERR, "set_acl", "acl_init failed"},
        FailedCall{"acl.acl_create_entry", CANNOT_CREATE_ACL_ENTRY_ERR, "set_acl",
                   "acl_create_entry failed = -1"},
        FailedCall{"acl.acl_set_tag_type", CANNOT_SET_ACL_TAG_TYPE_ERR, "set_acl",
                   "acl_set_tag_type failed = -1"},
        FailedCall{"acl.acl_set_qualifier", CANNOT_SET_ACL_QUALIFIER_ERR, "set_acl",
                   "acl_set_qualifier failed = -1"},
        FailedCall{"acl.acl_get_permset", kSuccess, "set_acl", "acl_get_permset failed = -1"},
        FailedCall{"acl.acl_clear_perms", kSuccess, "set_acl", "acl_clear_perms failed = -1"},
        FailedCall{"acl.acl_add_perm", kSuccess, "acl_add_perm", sharing_error_string(-1)},
        FailedCall{"acl.acl_set_permset", CANNOT_SET_ACE_PERMSET_ERR, "set_acl",
                   "acl_set_permset failed = -1"},
        FailedCall{"acl.acl_get_flagset_np", kSuccess, "set_acl", "acl_get_flagset_np failed = -1"},
        FailedCall{"acl.acl_clear_flags_np", kSuccess, "set_acl", "acl_clear_flags_np failed = -1"},
        FailedCall{"acl.acl_add_flag_np", kSuccess, "acl_add_flag_np", sharing_error_string(-1)},
        FailedCall{"acl.acl_set_flagset_np", CANNOT_SET_ACE_FLAGSET_ERR, "set_acl",
                   "acl_set_flagset_np failed = -1"},
        FailedCall{"acl.acl_valid", ACL_VALIDATION_ERR, "set_acl", "acl_valid failed = -1"}),
    [](const auto& test) {
      return std::string(test.param.call).substr(std::string("acl.").size());
    });

TEST_F(AclWriting, UnsettableGuidOfIdReturnsCallResult) {
  storeOld();
  EXPECT_EQ(failing("acl.acl_set_qualifier", [this] { return set({byId(0, "uniqueID", 1000)}); }),
            -1);
  expectErrors("set_acl", {"acl_set_qualifier failed = -1"});
  expectOld();
}

TEST_F(AclWriting, EveryAddedBitThatFailsEndsQuietly) {
  storeOld();
  for (std::size_t bit = 1; bit <= 17; ++bit) {
    EXPECT_EQ(setFailing("acl.acl_add_perm", bit), kSuccess);
    expectErrors("acl_add_perm", {sharing_error_string(-1)});
  }
  for (std::size_t bit = 1; bit <= 5; ++bit) {
    EXPECT_EQ(setFailing("acl.acl_add_flag_np", bit), kSuccess);
    expectErrors("acl_add_flag_np", {sharing_error_string(-1)});
  }
  expectOld();
}

TEST_F(AclWriting, FailureInLaterEntryKeepsFileUnchanged) {
  storeOld();
  EXPECT_EQ(failing(
                "acl.acl_set_flagset_np",
                [this] {
                  return set({whole(), whole(), whole()});
                },
                3),
            CANNOT_SET_ACE_FLAGSET_ERR);
  EXPECT_EQ(set({whole(), entry(guidNumber(1), "YES", 2), with(whole(), "guid", "x")}),
            CANNOT_SET_ACL_QUALIFIER_ERR);
  expectOld();
}

TEST_F(AclWriting, FailedAclReleaseIsLoggedAndKeepsResult) {
  EXPECT_EQ(setFailing("acl.acl_free.list", 1, ENOMEM), kSuccess);
  expectErrors("set_acl", {"set_acl acl_free err. errno = 12"});
  EXPECT_EQ(written().qualifier, guidNumber(1));
  EXPECT_EQ(failing("acl.acl_free.list", [this] { return set({with(whole(), "guid", "x")}); }),
            CANNOT_SET_ACL_QUALIFIER_ERR);
  expectErrors("set_acl", {"no guid: x", "set_acl acl_free err. errno = 5"});
}

TEST_F(AclWriting, RefusedListReturnsItsStatusAndLogsPath) {
  storeOld();
  EXPECT_EQ(set({whole()}, "/srv/missing"), CANNOT_SET_ACL_FILE_ERR);
  expectErrors("set_acl", {"acl_set_file failed = -1",
                           "the ACL of /srv/missing was not set: No such file or directory"});
  EXPECT_EQ(setFailing("acl.acl_set_file", 1, EROFS), CANNOT_SET_ACL_FILE_ERR);
  expectErrors("set_acl", {"acl_set_file failed = -1", "the ACL of " + std::string(kFolder) +
                                                           " was not set: Read-only file system"});
  expectOld();
}

// Sizes.

TEST_F(AclWriting, ListsUpToThousandEntriesAreWritten) {
  for (const std::size_t count : {1U, 128U, 129U, 1000U}) {
    EXPECT_EQ(set(Array(count, whole())), kSuccess);
    EXPECT_EQ(tree.acl(kFolder)->entries.size(), count);
  }
}

TEST_F(AclWriting, LongerListsAreNoValidAcl) {
  storeOld();
  for (const std::size_t count : {1001U, 10'000U}) {
    EXPECT_EQ(set(Array(count, whole())), ACL_VALIDATION_ERR);
    expectErrors("set_acl", {"acl_valid failed = -1"});
    expectOld();
  }
}

// Tracing.

TEST_F(AclWriting, TheStepsAreTraced) {
  EXPECT_EQ(set({whole(), whole()}), kSuccess);
  const std::string prefix = "paddock_sharing:set_acl ";
  Lines expected = {{kLogDebug, prefix + "Begin set_acl loop"}};
  for (int entry = 0; entry < 2; ++entry)
    for (const char* text : {"Enter set_acl loop", "call acl_create_entry", "call acl_set_permset"})
      expected.push_back({kLogDebug, prefix + text});
  EXPECT_EQ(logger.lines(), expected);
}

TEST_F(AclWriting, ClearingTracesTheLoopWithoutARound) {
  storeOld();
  EXPECT_EQ(set({}), kSuccess);
  EXPECT_EQ(logger.lines(), (Lines{{kLogDebug, "paddock_sharing:set_acl Begin set_acl loop"}}));
}

// The two small functions.

class AclBits : public PrivilegesFixture {};

TEST_F(AclBits, OnlyASetBitIsAdded) {
  acl::Permset permset;
  EXPECT_EQ(add_perm_if_set(4, &permset, acl::kReadData), 0);
  EXPECT_EQ(permset.permissions, 0U);
  EXPECT_EQ(add_perm_if_set(6, &permset, acl::kReadData), 0);
  EXPECT_EQ(permset.permissions, 2U);
  acl::Flagset flagset;
  EXPECT_EQ(add_flag_if_set(32, &flagset, acl::kInherited), 0);
  EXPECT_EQ(flagset.flags, 0U);
  EXPECT_EQ(add_flag_if_set(48, &flagset, acl::kInherited), 0);
  EXPECT_EQ(flagset.flags, 16U);
  EXPECT_TRUE(logger.lines().empty());
}

TEST_F(AclBits, AFailedCallIsHandedOutAndLogged) {
  acl::Permset permset;
  EXPECT_EQ(
      failing("acl.acl_add_perm", [&] { return add_perm_if_set(2, &permset, acl::kReadData); }),
      -1);
  expectErrors("acl_add_perm", {sharing_error_string(-1)});
  acl::Flagset flagset;
  EXPECT_EQ(failing("acl.acl_add_flag_np",
                    [&] { return add_flag_if_set(16, &flagset, acl::kInherited); }),
            -1);
  expectErrors("acl_add_flag_np", {sharing_error_string(-1)});
}

}  // namespace
}  // namespace paddock
