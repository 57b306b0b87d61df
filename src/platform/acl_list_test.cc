#include "platform/acl_list.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace paddock::acl {
namespace {

// The calls that touch a list alone; there are no files here.
class ListsOnly : public AclCalls {
 public:
  List* acl_get_file(const std::string&, int) override {
    errno = ENOTSUP;
    return nullptr;
  }
  int acl_set_file(const std::string&, int, List*) override {
    errno = ENOTSUP;
    return -1;
  }
};

class AclLists : public ::testing::Test {
 protected:
  ~AclLists() override { EXPECT_EQ(calls_.acl_free(list_), 0); }

  Entry* append() {
    Entry* entry = nullptr;
    EXPECT_EQ(calls_.acl_create_entry(list_, entry), 0);
    return entry;
  }
  Entry* appendWellFormed() {
    Entry* entry = append();
    EXPECT_EQ(calls_.acl_set_tag_type(entry, kExtendedAllow), 0);
    EXPECT_EQ(calls_.acl_set_qualifier(entry, kGuid), 0);
    return entry;
  }
  Entry* get(int which) {
    Entry* entry = append_;
    const int result = calls_.acl_get_entry(list_, which, entry);
    EXPECT_EQ(result == 0, entry != nullptr);
    return entry;
  }
  // The call fails, and says that its argument is invalid.
  void expectInvalid(int result) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
  }

  static constexpr Guid kGuid{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
  ListsOnly calls_;
  List* list_ = calls_.acl_init(1);
  Entry other_;
  Entry* append_ = &other_;
};

TEST_F(AclLists, AListStartsEmptyWhateverTheHint) {
  for (const int count : {0, 1, 1000, 1'000'000}) {
    List* list = calls_.acl_init(count);
    ASSERT_NE(list, nullptr);
    Entry* entry = append_;
    expectInvalid(calls_.acl_get_entry(list, kFirstEntry, entry));
    EXPECT_EQ(entry, nullptr);
    EXPECT_EQ(calls_.acl_valid(list), 0);
    EXPECT_EQ(calls_.acl_free(list), 0);
  }
}

TEST_F(AclLists, ANegativeHintMakesNoList) {
  errno = 0;
  EXPECT_EQ(calls_.acl_init(-1), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(AclLists, NewEntryStartsUntaggedUnqualifiedWithEmptySets) {
  Entry* entry = append();
  int tag = 7;
  EXPECT_EQ(calls_.acl_get_tag_type(entry, tag), 0);
  EXPECT_EQ(tag, kUndefinedTag);
  errno = 0;
  EXPECT_EQ(calls_.acl_get_qualifier(entry), nullptr);
  EXPECT_EQ(errno, EINVAL);
  Permset* permset = nullptr;
  Flagset* flagset = nullptr;
  ASSERT_EQ(calls_.acl_get_permset(entry, permset), 0);
  ASSERT_EQ(calls_.acl_get_flagset_np(entry, flagset), 0);
  for (const Permission permission : kPermissions)
    EXPECT_EQ(calls_.acl_get_perm_np(permset, permission), 0);
  for (const Flag flag : kFlags) EXPECT_EQ(calls_.acl_get_flag_np(flagset, flag), 0);
}

TEST_F(AclLists, EntriesComeInTheOrderOfTheirCreation) {
  Entry* first = append();
  Entry* second = append();
  EXPECT_EQ(get(kFirstEntry), first);
  EXPECT_EQ(get(kNextEntry), second);
  EXPECT_EQ(get(kNextEntry), nullptr);
  EXPECT_EQ(get(kNextEntry), nullptr);
  EXPECT_EQ(get(kFirstEntry), first);
}

TEST_F(AclLists, NextBeforeFirstIsTheFirst) {
  Entry* first = append();
  EXPECT_EQ(get(kNextEntry), first);
}

TEST_F(AclLists, EntryAppendedDuringWalkIsReached) {
  Entry* first = append();
  EXPECT_EQ(get(kFirstEntry), first);
  EXPECT_EQ(get(kNextEntry), nullptr);
  Entry* second = append();
  EXPECT_EQ(get(kNextEntry), second);
}

TEST_F(AclLists, AnotherPlaceThanFirstOrNextIsInvalid) {
  append();
  for (const int which : {1, 2, -2, 256}) {
    Entry* entry = append_;
    expectInvalid(calls_.acl_get_entry(list_, which, entry));
    EXPECT_EQ(entry, nullptr);
  }
}

TEST_F(AclLists, DeletingLastReturnedEntrySkipsNone) {
  Entry* first = append();
  Entry* second = append();
  Entry* third = append();
  EXPECT_EQ(get(kFirstEntry), first);
  EXPECT_EQ(get(kNextEntry), second);
  EXPECT_EQ(calls_.acl_delete_entry(list_, second), 0);
  EXPECT_EQ(get(kNextEntry), third);
  EXPECT_EQ(get(kNextEntry), nullptr);
}

TEST_F(AclLists, DeletingLaterOrEarlierEntrySkipsNone) {
  Entry* first = append();
  Entry* second = append();
  Entry* third = append();
  Entry* fourth = append();
  EXPECT_EQ(get(kFirstEntry), first);
  EXPECT_EQ(get(kNextEntry), second);
  EXPECT_EQ(calls_.acl_delete_entry(list_, first), 0);
  EXPECT_EQ(calls_.acl_delete_entry(list_, third), 0);
  EXPECT_EQ(get(kNextEntry), fourth);
}

TEST_F(AclLists, AnEntryOfAnotherListCannotBeDeleted) {
  append();
  expectInvalid(calls_.acl_delete_entry(list_, &other_));
  EXPECT_EQ(list_->entries.size(), 1U);
}

TEST_F(AclLists, TagsAreAllowAndDenyAlone) {
  Entry* entry = append();
  int tag = 0;
  for (const int wanted : {kExtendedAllow, kExtendedDeny}) {
    EXPECT_EQ(calls_.acl_set_tag_type(entry, wanted), 0);
    EXPECT_EQ(calls_.acl_get_tag_type(entry, tag), 0);
    EXPECT_EQ(tag, wanted);
  }
  for (const int other : {kUndefinedTag, kForeignTag, -1, 4}) {
    expectInvalid(calls_.acl_set_tag_type(entry, other));
    EXPECT_EQ(entry->tag, kExtendedDeny);
  }
}

TEST_F(AclLists, AQualifierIsHandedOutAsACopy) {
  Entry* entry = append();
  ASSERT_EQ(calls_.acl_set_qualifier(entry, kGuid), 0);
  Guid* qualifier = calls_.acl_get_qualifier(entry);
  ASSERT_NE(qualifier, nullptr);
  EXPECT_EQ(*qualifier, kGuid);
  qualifier->bytes[0] = 99;
  EXPECT_EQ(entry->qualifier, kGuid);
  EXPECT_EQ(calls_.acl_free(qualifier), 0);
}

TEST_F(AclLists, PermissionChangesApplyToEntryImmediately) {
  Entry* entry = append();
  Permset* permset = nullptr;
  ASSERT_EQ(calls_.acl_get_permset(entry, permset), 0);
  Permission sum = 0;
  for (const Permission permission : kPermissions) {
    EXPECT_EQ(calls_.acl_add_perm(permset, permission), 0);
    EXPECT_EQ(calls_.acl_add_perm(permset, permission), 0);
    EXPECT_EQ(calls_.acl_get_perm_np(permset, permission), 1);
    sum |= permission;
    EXPECT_EQ(entry->permset.permissions, sum);
  }
  EXPECT_EQ(sum, kAllPermissions);
  EXPECT_EQ(calls_.acl_clear_perms(permset), 0);
  EXPECT_EQ(entry->permset.permissions, 0U);
}

TEST_F(AclLists, FlagChangesApplyToEntryImmediately) {
  Entry* entry = append();
  Flagset* flagset = nullptr;
  ASSERT_EQ(calls_.acl_get_flagset_np(entry, flagset), 0);
  Flag sum = 0;
  for (const Flag flag : kFlags) {
    EXPECT_EQ(calls_.acl_add_flag_np(flagset, flag), 0);
    EXPECT_EQ(calls_.acl_get_flag_np(flagset, flag), 1);
    sum |= flag;
    EXPECT_EQ(entry->flagset.flags, sum);
  }
  EXPECT_EQ(sum, kAllFlags);
  EXPECT_EQ(calls_.acl_clear_flags_np(flagset), 0);
  EXPECT_EQ(entry->flagset.flags, 0U);
}

TEST_F(AclLists, AnythingButSinglePermissionOrFlagIsInvalid) {
  Entry* entry = append();
  for (const Permission value : {0U, 1U, 6U, 16382U, 16384U, 0x80000000U}) {
    expectInvalid(calls_.acl_add_perm(&entry->permset, value));
    expectInvalid(calls_.acl_get_perm_np(&entry->permset, value));
  }
  for (const Flag value : {0U, 1U, 8U, 48U, 496U, 512U}) {
    expectInvalid(calls_.acl_add_flag_np(&entry->flagset, value));
    expectInvalid(calls_.acl_get_flag_np(&entry->flagset, value));
  }
  EXPECT_EQ(entry->permset.permissions, 0U);
  EXPECT_EQ(entry->flagset.flags, 0U);
}

TEST_F(AclLists, ASetOfAnotherEntryIsCopied) {
  Entry* entry = append();
  other_.permset.permissions = kReadData | kExecute;
  other_.flagset.flags = kFileInherit;
  EXPECT_EQ(calls_.acl_set_permset(entry, &other_.permset), 0);
  EXPECT_EQ(calls_.acl_set_flagset_np(entry, &other_.flagset), 0);
  other_.permset.permissions = 0;
  other_.flagset.flags = 0;
  EXPECT_EQ(entry->permset.permissions, kReadData | kExecute);
  EXPECT_EQ(entry->flagset.flags, kFileInherit);
  EXPECT_EQ(calls_.acl_set_permset(entry, &entry->permset), 0) << "its own set";
  EXPECT_EQ(entry->permset.permissions, kReadData | kExecute);
}

TEST_F(AclLists, ListWithTaggedQualifiedEntriesIsValid) {
  appendWellFormed();
  EXPECT_EQ(calls_.acl_valid(list_), 0);
  Entry* entry = append();
  expectInvalid(calls_.acl_valid(list_));
  entry->tag = kForeignTag;
  expectInvalid(calls_.acl_valid(list_));
  entry->qualifier = kGuid;
  EXPECT_EQ(calls_.acl_valid(list_), 0) << "an entry of another kind is kept";
  entry->tag = kUndefinedTag;
  expectInvalid(calls_.acl_valid(list_));
}

TEST_F(AclLists, AListThatDidNotDecodeIsInvalid) {
  list_->undecodable = true;
  expectInvalid(calls_.acl_valid(list_));
}

TEST_F(AclLists, ListIsValidUpToThousandEntries) {
  for (int count = 0; count < 1000; ++count) appendWellFormed();
  EXPECT_EQ(calls_.acl_valid(list_), 0);
  appendWellFormed();
  expectInvalid(calls_.acl_valid(list_));
}

TEST_F(AclLists, NothingCanBeReleased) {
  List* noList = nullptr;
  Guid* noQualifier = nullptr;
  EXPECT_EQ(calls_.acl_free(noList), 0);
  EXPECT_EQ(calls_.acl_free(noQualifier), 0);
}

}  // namespace
}  // namespace paddock::acl
