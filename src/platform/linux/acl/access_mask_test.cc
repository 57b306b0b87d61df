#include "platform/linux/acl/access_mask.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace paddock::nt_acl {
namespace {

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
