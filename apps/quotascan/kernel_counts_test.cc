#include "quotascan/kernel_counts.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <map>

#include "base/file_descriptor.h"
#include "quotascan/failure.h"

namespace paddock::quotascan {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

if_nextdqblk quotaOf(std::uint32_t id, std::uint64_t bytes, std::uint64_t files) {
  if_nextdqblk quota{};
  quota.dqb_id = id;
  quota.dqb_curspace = bytes;
  quota.dqb_curinodes = files;
  return quota;
}

// A kernel that counts for these ids.
NextQuota kernelWith(const std::map<std::uint32_t, if_nextdqblk>& quotas) {
  return [quotas](std::uint32_t from, if_nextdqblk& quota) {
    const auto next = quotas.lower_bound(from);
    if (next == quotas.end()) return ENOENT;
    quota = next->second;
    return 0;
  };
}

NextQuota kernelThatSays(int error) {
  return [error](std::uint32_t, if_nextdqblk&) { return error; };
}

TEST(KernelCounts, HaveAllIdsInTheirOrder) {
  const auto findings =
      kernelFindings(kernelWith({{1, quotaOf(1, 100, 2)}, {1000, quotaOf(1000, 200, 3)}}), "/vol");
  ASSERT_TRUE(findings);
  EXPECT_TRUE(findings->haveLimits);
  ASSERT_EQ(findings->entries.size(), 2U);
  EXPECT_EQ(findings->entries[0].id, 1U);
  EXPECT_EQ(findings->entries[1].usedBytes, 200U);
  EXPECT_EQ(findings->entries[1].usedFiles, 3U);
}

TEST(KernelCounts, LeaveOutRootAndIdsWithoutAnything) {
  if_nextdqblk limit = quotaOf(6, 0, 0);
  limit.dqb_isoftlimit = 1;
  const auto findings = kernelFindings(
      kernelWith({{0, quotaOf(0, 100, 2)}, {5, quotaOf(5, 0, 0)}, {6, limit}}), "/vol");
  ASSERT_TRUE(findings);
  ASSERT_EQ(findings->entries.size(), 1U);
  EXPECT_EQ(findings->entries[0].id, 6U);
}

TEST(KernelCounts, EndAtTheLargestId) {
  const auto findings =
      kernelFindings(kernelWith({{0xFFFFFFFF, quotaOf(0xFFFFFFFF, 100, 2)}}), "/vol");
  ASSERT_TRUE(findings);
  EXPECT_EQ(findings->entries.size(), 1U);
}

TEST(KernelCounts, EndWhenTheKernelGoesBack) {
  const auto findings = kernelFindings(
      [](std::uint32_t, if_nextdqblk& quota) {
        quota = quotaOf(7, 1, 1);
        return 0;
      },
      "/vol");
  ASSERT_TRUE(findings);
  EXPECT_LE(findings->entries.size(), 2U);
}

TEST(KernelCounts, OfAKernelThatCountsAndHasNoIdAreEmpty) {
  const auto findings = kernelFindings(kernelWith({}), "/vol");
  ASSERT_TRUE(findings);
  EXPECT_THAT(findings->entries, IsEmpty());
}

TEST(KernelCounts, AreNoneWhereTheKernelDoesNotCountOrDoesNotTell) {
  for (const int error : {ESRCH, ENOSYS, EINVAL, ENODEV, EOPNOTSUPP, ENOTBLK, EPERM, EACCES}) {
    EXPECT_FALSE(kernelFindings(kernelThatSays(error), "/vol")) << error;
  }
}

TEST(KernelCounts, ThatCannotBeReadAreAFailure) {
  try {
    kernelFindings(kernelThatSays(EIO), "/vol");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("cannot read the kernel's quotas of /vol: "));
  }
}

TEST(KernelCounts, AreInTheUnitsOfAQuotaFile) {
  if_nextdqblk quota = quotaOf(9, 12345, 4);
  quota.dqb_bhardlimit = 10;
  quota.dqb_bsoftlimit = 8;
  quota.dqb_ihardlimit = 7;
  quota.dqb_isoftlimit = 6;
  quota.dqb_btime = 1'700'000'000;
  quota.dqb_itime = 1'700'000'001;
  const QuotaEntry entry = entryOf(quota);
  EXPECT_EQ(entry.hardBytes, 10U * 1024);
  EXPECT_EQ(entry.softBytes, 8U * 1024);
  EXPECT_EQ(entry.usedBytes, 12345U);
  EXPECT_EQ(entry.hardFiles, 7U);
  EXPECT_EQ(entry.softFiles, 6U);
  EXPECT_EQ(entry.usedFiles, 4U);
  EXPECT_EQ(entry.bytesTimeLimit, 1'700'000'000U);
  EXPECT_EQ(entry.filesTimeLimit, 1'700'000'001U);
}

TEST(KernelCounts, ThatAFieldCannotHoldAreTheMostThatItCan) {
  if_nextdqblk quota = quotaOf(9, 1, 0x1'0000'0000);
  quota.dqb_bhardlimit = 0x40'0000'0000'0000;  // 2^54 KiB = 2^64 bytes
  quota.dqb_ihardlimit = 0xFFFF'FFFF'FFFF;
  quota.dqb_btime = 0x1'0000'0000;
  const QuotaEntry entry = entryOf(quota);
  EXPECT_EQ(entry.hardBytes, 0xFFFF'FFFF'FFFF'FFFFU);
  EXPECT_EQ(entry.hardFiles, 0xFFFF'FFFFU);
  EXPECT_EQ(entry.usedFiles, 0xFFFF'FFFFU);
  EXPECT_EQ(entry.bytesTimeLimit, 0xFFFF'FFFFU);
}

TEST(KernelCounts, OfAFileSystemWithoutDeviceAreNone) {
  const FileDescriptor folder(::open("/proc", O_RDONLY | O_DIRECTORY));
  EXPECT_FALSE(kernelFindings(kernelQuotasOf(folder.get(), kUserQuota), "/proc"));
}

}  // namespace
}  // namespace paddock::quotascan
