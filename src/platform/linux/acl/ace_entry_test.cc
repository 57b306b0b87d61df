#include "platform/linux/acl/ace_entry.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace paddock::nt_acl {

namespace {

const Guid kGuid = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
const Guid kOther = *parseGuid("DEADBEEF-0000-4000-8000-000000000002");
const Sid kSid{22, {1, 1000}};

// An allowed object entry; its bytes are whatever they are.
Ace foreign() {
  Ace ace{5, kContainerInherit, 0x120089, kSid, std::string(40, '\x05')};
  ace.foreign[1] = static_cast<char>(ace.flags);
  return ace;
}

acl::Entry madeHere(int tag, acl::Permission permissions, acl::Flag flags) {
  acl::Entry entry;
  entry.tag = tag;
  entry.qualifier = kGuid;
  entry.permset.permissions = permissions;
  entry.flagset.flags = flags;
  return entry;
}

TEST(AceEntry, AnAllowedEntryIsRead) {
  const auto entry = entryOf({kAllowed, kObjectInherit, 0x1F01FF, kSid, {}}, kGuid);
  EXPECT_EQ(entry->tag, acl::kExtendedAllow);
  EXPECT_EQ(entry->qualifier, kGuid);
  EXPECT_EQ(entry->permset.permissions, acl::kAllPermissions);
  EXPECT_EQ(entry->flagset.flags, acl::kFileInherit);
}

TEST(AceEntry, ADeniedEntryIsRead) {
  const auto entry = entryOf({kDenied, kInherited, kWriteDataMask, kSid, {}}, kGuid);
  EXPECT_EQ(entry->tag, acl::kExtendedDeny);
  EXPECT_EQ(entry->permset.permissions, acl::kWriteData);
  EXPECT_EQ(entry->flagset.flags, acl::kInherited);
}

TEST(AceEntry, ANewAllowedEntryCarriesSynchronize) {
  EXPECT_EQ(changedAce(madeHere(acl::kExtendedAllow, acl::kReadData, acl::kOnlyInherit), kSid),
            (Ace{kAllowed, kInheritOnly, 0x100001, kSid, {}}));
  EXPECT_EQ(changedAce(madeHere(acl::kExtendedAllow, 0, 0), kSid),
            (Ace{kAllowed, 0, 0x100000, kSid, {}}));
}

TEST(AceEntry, ANewDeniedEntryDoesNot) {
  EXPECT_EQ(changedAce(madeHere(acl::kExtendedDeny, acl::kReadData, 0), kSid),
            (Ace{kDenied, 0, 0x1, kSid, {}}));
}

TEST(AceEntry, UnchangedEntryPreservesNonPermissionBits) {
  const Ace ace{kAllowed, 0xC0, 0x10000001, kSid, {}};
  const auto entry = entryOf(ace, kGuid);
  ASSERT_NE(unchangedAce(*entry), nullptr);
  EXPECT_EQ(*unchangedAce(*entry), ace);
  const acl::Entry copy = *entry;
  ASSERT_NE(unchangedAce(copy), nullptr);
  EXPECT_EQ(*unchangedAce(copy), ace);
}

TEST(AceEntry, AChangeOfAnythingMakesItAnother) {
  const Ace ace{kAllowed, 0, 0x10000001, kSid, {}};
  const auto changed = [&ace](auto change) {
    auto entry = entryOf(ace, kGuid);
    change(*entry);
    return unchangedAce(*entry) == nullptr;
  };
  EXPECT_TRUE(changed([](acl::Entry& entry) { entry.tag = acl::kExtendedDeny; }));
  EXPECT_TRUE(changed([](acl::Entry& entry) { entry.qualifier = kOther; }));
  EXPECT_TRUE(changed([](acl::Entry& entry) { entry.permset.permissions |= acl::kWriteData; }));
  EXPECT_TRUE(changed([](acl::Entry& entry) { entry.flagset.flags |= acl::kInherited; }));
  EXPECT_FALSE(changed([](acl::Entry& entry) {
    entry.permset.permissions = 0;
    entry.permset.permissions = acl::kReadData;
  }));
}

TEST(AceEntry, AnEntryMadeHereIsNoUnchangedOne) {
  const acl::Entry entry = madeHere(acl::kExtendedAllow, acl::kReadData, 0);
  EXPECT_EQ(unchangedAce(entry), nullptr);
  EXPECT_EQ(originalSid(entry), nullptr);
}

TEST(AceEntry, ChangedEntryKeepsSidButDropsNonpermissionBits) {
  const auto entry = entryOf({kAllowed, 0x80, 0x10000001, kSid, {}}, kGuid);
  entry->permset.permissions |= acl::kExecute;
  ASSERT_NE(originalSid(*entry), nullptr);
  EXPECT_EQ(changedAce(*entry, *originalSid(*entry)), (Ace{kAllowed, 0, 0x100021, kSid, {}}));
  entry->qualifier = kOther;
  EXPECT_EQ(originalSid(*entry), nullptr);
}

TEST(AceEntry, ForeignEntryHasOwnTagAndNoPermissions) {
  const auto entry = entryOf(foreign(), kGuid);
  EXPECT_EQ(entry->tag, acl::kForeignTag);
  EXPECT_EQ(entry->permset.permissions, 0U);
  EXPECT_EQ(entry->flagset.flags, acl::kDirectoryInherit);
  EXPECT_EQ(*unchangedAce(*entry), foreign());
}

TEST(AceEntry, ForeignEntryWithChangedFlagsKeepsRest) {
  const auto entry = entryOf(foreign(), kGuid);
  entry->flagset.flags = acl::kInherited;
  Ace expected = foreign();
  expected.flags = kInherited;
  EXPECT_EQ(changedAce(*entry, {}), expected);
}

TEST(AceEntry, RetaggedForeignEntryLosesOriginalSid) {
  const auto entry = entryOf(foreign(), kGuid);
  entry->tag = acl::kExtendedAllow;
  EXPECT_EQ(originalSid(*entry), nullptr);
}

TEST(AceEntry, ForeignEntryFromElsewhereCannotBeStored) {
  EXPECT_FALSE(canBeStored(madeHere(acl::kForeignTag, 0, 0)));
  EXPECT_TRUE(canBeStored(*entryOf(foreign(), kGuid)));
  EXPECT_TRUE(canBeStored(madeHere(acl::kExtendedDeny, 0, 0)));
}

TEST(AceEntry, ForeignEntryGuidIsIndependentOfFlags) {
  Ace inherited = foreign();
  inherited.flags = kInherited;
  inherited.foreign[1] = kInherited;
  EXPECT_EQ(foreignAceGuid(inherited), foreignAceGuid(foreign()));
  Ace other = foreign();
  other.foreign.back() = 'x';
  EXPECT_NE(foreignAceGuid(other), foreignAceGuid(foreign()));
  EXPECT_EQ(guidText(foreignAceGuid(foreign())).substr(0, 9), "4143453A-");
  EXPECT_EQ(guidText(foreignAceGuid(foreign()))[14], '8');
}

// The values of the Windows masks, written out a second time.
const std::vector<std::pair<acl::Permission, std::uint32_t>> kTable{
    {2, 0x1},        {4, 0x2},        {8, 0x20},      {16, 0x10000}, {32, 0x4},
    {64, 0x40},      {128, 0x80},     {256, 0x100},   {512, 0x8},    {1024, 0x10},
    {2048, 0x20000}, {4096, 0x40000}, {8192, 0x80000}};

TEST(AccessMask, EveryPermissionIsOneBit) {
  ASSERT_EQ(kTable.size(), acl::kPermissions.size());
  for (const auto& [permission, mask] : kTable) {
    EXPECT_EQ(maskOf(permission), mask) << permission;
    EXPECT_EQ(permissionsOf(mask), permission) << mask;
  }
}

TEST(AccessMask, AllPermissionsTogetherAreTranslatedBothWays) {
  EXPECT_EQ(maskOf(acl::kAllPermissions), 0x000F01FFU);
  EXPECT_EQ(permissionsOf(0x001F01FF), acl::kAllPermissions);
}

TEST(AccessMask, BitsThatAreNoPermissionAreLeftOut) {
  EXPECT_EQ(maskOf(1), 0U);
  EXPECT_EQ(maskOf(16384), 0U);
  EXPECT_EQ(permissionsOf(0xFFF0FE00), 0U);
}

TEST(AccessMask, EveryFlagIsOneBit) {
  const std::vector<std::pair<acl::Flag, std::uint8_t>> table{
      {16, 0x10}, {32, 0x01}, {64, 0x02}, {128, 0x04}, {256, 0x08}};
  for (const auto& [flag, aceFlag] : table) {
    EXPECT_EQ(aceFlagsOf(flag), aceFlag) << flag;
    EXPECT_EQ(flagsOf(aceFlag), flag) << flag;
  }
}

TEST(AccessMask, OtherFlagsAreLeftOut) {
  EXPECT_EQ(flagsOf(0xE0), 0U);
  EXPECT_EQ(aceFlagsOf(1 | 2 | 512), 0);
}

}  // namespace

}  // namespace paddock::nt_acl
