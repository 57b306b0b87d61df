#include "quotascan/quota_table.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <random>

#include "base/file_access.h"
#include "quotascan/quotascan_failure.h"
#include "support/temporary_folder.h"

namespace paddock::quotascan {

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

QuotaFileHeader headerOf(std::uint32_t slots) {
  QuotaFileHeader header;
  header.magic = quotamagic[kUserQuota];
  header.maxentries = slots;
  return header;
}

QuotaEntry idEntry(std::uint32_t id, std::uint64_t bytes, std::uint32_t files) {
  QuotaEntry entry;
  entry.id = id;
  entry.usedBytes = bytes;
  entry.usedFiles = files;
  return entry;
}

std::string textOf(const QuotaSlot& slot) { return {slot.begin(), slot.end()}; }

class QuotaTable : public ::testing::Test {
 protected:
  using Table = std::map<std::uint32_t, QuotaEntry>;  // by slot

  // Writes the old file and makes the new one of it.
  TableSummary rewrite(std::uint32_t slots, const Table& old, const Findings& findings) {
    header_ = headerOf(slots);
    std::string bytes =
        textOf(encodeQuotaHeader(header_)) + std::string(std::size_t{slots} * kQuotaSlotSize, '\0');
    for (const auto& [slot, entry] : old) {
      bytes.replace(quotaSlotOffset(slot), kQuotaSlotSize, textOf(encodeQuotaEntry(entry)));
    }
    writeWholeFile(oldPath(), bytes);
    return rewrite(findings);
  }
  TableSummary rewrite(const Findings& findings) {
    const FileDescriptor old(::open(oldPath().c_str(), O_RDONLY));
    const FileDescriptor made(::open(newPath().c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600));
    const TableSummary summary = summarizeTable(old.get(), header_, findings, oldPath());
    rewriteTable(old.get(), header_, findings, summary, made.get(), oldPath(), newPath());
    return summary;
  }

  std::string oldPath() const { return folder_.path("old"); }
  std::string newPath() const { return folder_.path("new"); }
  std::string newBytes() const { return readWholeFile(newPath()); }
  QuotaSlot newSlot(std::uint64_t offset) const {
    QuotaSlot slot{};
    const std::string bytes = newBytes();
    EXPECT_GE(bytes.size(), offset + slot.size());
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), slot.size(), slot.begin());
    return slot;
  }
  // What a search for the id ends at.
  QuotaEntry found(std::uint32_t id) const {
    const std::uint32_t slots = decodeQuotaHeader(newSlot(0)).maxentries;
    for (QuotaProbe probe(id, slots); !probe.atEnd(); probe.next()) {
      const QuotaEntry entry = decodeQuotaEntry(newSlot(quotaSlotOffset(probe.slot())));
      if (entry.id == id || entry.id == 0) return entry;
    }
    return {};
  }

  TestFolder folder_;
  QuotaFileHeader header_;
};

// A hand-written table of 16 slots: id 1 is searched from slot 9 on.
constexpr std::size_t kSizeOf16 = 17 * kQuotaSlotSize;

std::string handWritten(std::string bytesInUse, std::string filesInUse) {
  std::string bytes(kSizeOf16, '\0');
  const std::string header(
      "\xFF\x31\xFF\x35"
      "\0\0\0\x01"
      "\0\0\0\x10"
      "\0\0\0\x07"
      "\0\0\0\x08"
      "\x65\0\0\x01"
      "\0\x01\x51\x80"
      "\0\x09\x3A\x80"
      "QUOTA HASH FILE\0"
      "spare of header",
      63);
  const std::string entry = std::string("\0\0\0\0\x40\0\0\0\0\0\0\0\x20\0\0\0", 16) +
                            std::move(bytesInUse) + std::string("\0\0\0\x64\0\0\0\x32", 8) +
                            std::move(filesInUse) +
                            std::string("\x65\0\0\x02\x65\0\0\x03\0\0\0\x01spare of entry 1", 28);
  bytes.replace(0, header.size(), header);
  bytes.replace(10 * kQuotaSlotSize, entry.size(), entry);
  return bytes;
}

TEST_F(QuotaTable, RewritingChangesOnlyUsage) {
  const std::string old =
      handWritten(std::string("\0\0\0\0\0\0\x10\0", 8), std::string("\0\0\0\x01", 4));
  writeWholeFile(oldPath(), old);
  header_ = decodeQuotaHeader(std::span<const std::uint8_t, kQuotaSlotSize>(
      reinterpret_cast<const std::uint8_t*>(old.data()), 64));
  const TableSummary summary = rewrite({{idEntry(1, 0x123456789A, 0x0708)}, false});
  EXPECT_EQ(newBytes(), handWritten(std::string("\0\0\0\x12\x34\x56\x78\x9A", 8),
                                    std::string("\0\0\x07\x08", 4)));
  EXPECT_EQ(summary.entries, 1U);
  EXPECT_EQ(summary.slots, 16U);
  EXPECT_FALSE(summary.isGrown);
  EXPECT_EQ(summary.repeated, 0U);
}

TEST_F(QuotaTable, IdWithoutFilesKeepsLimitsWithZeroUsage) {
  QuotaEntry old = idEntry(7, 5000, 3);
  old.hardBytes = 1U << 20U;
  old.softFiles = 9;
  old.bytesTimeLimit = 77;
  rewrite(16, {{3, old}}, {});
  old.usedBytes = 0;
  old.usedFiles = 0;
  EXPECT_EQ(found(7), old);
}

TEST_F(QuotaTable, NewIdIsPlacedWhereLookupFindsIt) {
  rewrite(16, {}, {{idEntry(1, 5, 6)}, false});
  EXPECT_EQ(decodeQuotaEntry(newSlot(quotaSlotOffset(9))), idEntry(1, 5, 6));
}

TEST_F(QuotaTable, CollidingEntriesAllRemainFindable) {
  // Slot 9 is where the search for id 1 begins, and 0 where it goes on.
  rewrite(16, {},
          {{idEntry(1, 5, 6), idEntry(0x40000001, 7, 8), idEntry(0x80000001, 9, 10)}, false});
  for (const auto& wanted :
       {idEntry(1, 5, 6), idEntry(0x40000001, 7, 8), idEntry(0x80000001, 9, 10)}) {
    EXPECT_EQ(found(wanted.id), wanted);
  }
}

TEST_F(QuotaTable, UnreachableEntryMovesWhereLookupFindsIt) {
  rewrite(16, {{2, idEntry(1, 5, 6)}}, {{idEntry(1, 50, 60)}, false});
  EXPECT_EQ(decodeQuotaEntry(newSlot(quotaSlotOffset(9))), idEntry(1, 50, 60));
}

TEST_F(QuotaTable, DuplicateIdKeepsFirstEntry) {
  QuotaEntry first = idEntry(1, 5, 6);
  first.hardBytes = 100;
  QuotaEntry second = idEntry(1, 7, 8);
  second.hardBytes = 200;
  const TableSummary summary = rewrite(16, {{4, first}, {9, second}}, {});
  EXPECT_EQ(summary.repeated, 1U);
  EXPECT_EQ(summary.entries, 1U);
  EXPECT_EQ(found(1).hardBytes, 100U);
}

TEST_F(QuotaTable, LimitsAreTakenWhereTheyWereFound) {
  QuotaEntry old = idEntry(1, 5, 6);
  old.hardBytes = 100;
  old.spare.front() = 0xAB;
  QuotaEntry withoutFinding = idEntry(2, 5, 6);
  withoutFinding.hardBytes = 300;
  QuotaEntry finding = idEntry(1, 50, 60);
  finding.hardBytes = 400;
  finding.softBytes = 350;
  finding.hardFiles = 4;
  finding.softFiles = 3;
  finding.bytesTimeLimit = 11;
  finding.filesTimeLimit = 12;
  QuotaEntry limitAlone;
  limitAlone.id = 3;
  limitAlone.hardBytes = 500;
  rewrite(16, {{1, old}, {2, withoutFinding}}, {{finding, limitAlone}, true});
  finding.spare = old.spare;
  EXPECT_EQ(found(1), finding);
  EXPECT_EQ(found(2).hardBytes, 300U);
  EXPECT_EQ(found(3), limitAlone);
}

TEST_F(QuotaTable, LimitsStayWhereNoneWereAskedFor) {
  QuotaEntry old = idEntry(1, 5, 6);
  old.hardBytes = 100;
  rewrite(16, {{1, old}}, {{idEntry(1, 50, 60)}, false});
  EXPECT_EQ(found(1).hardBytes, 100U);
}

TEST_F(QuotaTable, TheLargestIdsAreIds) {
  rewrite(16, {{5, idEntry(0xFFFFFFFF, 1, 1)}},
          {{idEntry(0x80000000, 2, 2), idEntry(0xFFFFFFFF, 3, 3)}, false});
  EXPECT_EQ(found(0x80000000), idEntry(0x80000000, 2, 2));
  EXPECT_EQ(found(0xFFFFFFFF), idEntry(0xFFFFFFFF, 3, 3));
}

Findings manyFindings(std::uint32_t count) {
  Findings findings;
  for (std::uint32_t id = 1; id <= count; ++id)
    findings.entries.push_back(idEntry(id, std::uint64_t{id} * 10, id));
  return findings;
}

TEST_F(QuotaTable, RewritingAnyTableKeepsEveryIdFindable) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    const std::uint32_t slots = 1U << random() % 7;
    // Few different ids, so that they repeat, in any slots.
    Table old;
    std::map<std::uint32_t, QuotaEntry> wanted;
    for (std::uint32_t slot = 0; slot < slots; ++slot) {
      if (random() % 3 == 0) continue;
      old[slot] = idEntry(static_cast<std::uint32_t>(random() % 50 * 85'899'345), 1, 1);
      old[slot].hardBytes = slot;
      if (old[slot].id != 0) wanted.emplace(old[slot].id, old[slot]);
    }
    Findings findings;
    for (auto& [id, entry] : wanted) entry.usedBytes = entry.usedFiles = 0;
    for (std::uint32_t id = 85'899'345; id < 20 * 85'899'345U; id += 85'899'345) {
      if (random() % 2 == 0) continue;
      findings.entries.push_back(idEntry(id, id, 3));
      QuotaEntry& entry = wanted.emplace(id, idEntry(id, 0, 0)).first->second;
      entry.usedBytes = id;
      entry.usedFiles = 3;
    }
    EXPECT_EQ(rewrite(slots, old, findings).entries, wanted.size());
    for (const auto& [id, entry] : wanted) EXPECT_EQ(found(id), entry) << round << ' ' << id;
  }
}

TEST_F(QuotaTable, GrowsToPowerOfTwoAboveNinetyPercent) {
  const TableSummary full = rewrite(2048, {}, manyFindings(1843));
  EXPECT_EQ(full.slots, 2048U);
  EXPECT_FALSE(full.isGrown);
  const TableSummary grown = rewrite(2048, {}, manyFindings(1844));
  EXPECT_EQ(grown.slots, 4096U);
  EXPECT_TRUE(grown.isGrown);
  EXPECT_EQ(grown.entries, 1844U);
  EXPECT_EQ(decodeQuotaHeader(newSlot(0)), headerOf(4096));
  EXPECT_EQ(std::filesystem::file_size(newPath()), quotaFileSize(4096));
  for (const std::uint32_t id : {1U, 2U, 1000U, 1844U})
    EXPECT_EQ(found(id), idEntry(id, std::uint64_t{id} * 10, id));
}

TEST_F(QuotaTable, OldEntriesCountWhenItGrows) {
  Table old;
  for (std::uint32_t slot = 0; slot < 14; ++slot) {
    old[slot] = idEntry(100 + slot, 1, 1);
    old[slot].hardBytes = 1000 + slot;
  }
  EXPECT_EQ(rewrite(16, old, {}).slots, 16U);
  EXPECT_EQ(rewrite(16, old, {{idEntry(100, 2, 2)}, false}).slots, 16U);
  EXPECT_EQ(rewrite(16, old, {{idEntry(1, 2, 2)}, false}).slots, 32U);
  for (std::uint32_t slot = 0; slot < 14; ++slot)
    EXPECT_EQ(found(100 + slot).hardBytes, 1000 + slot);
}

TEST_F(QuotaTable, AFullTableWithoutAnEmptySlotGrows) {
  Table old;
  for (std::uint32_t slot = 0; slot < 16; ++slot) old[slot] = idEntry(500 + slot, 1, 1);
  EXPECT_EQ(rewrite(16, old, {}).slots, 32U);
  for (std::uint32_t slot = 0; slot < 16; ++slot) EXPECT_EQ(found(500 + slot).id, 500 + slot);
}

TEST_F(QuotaTable, SingleSlotTableHoldsNothingAndGrows) {
  EXPECT_EQ(rewrite(1, {}, {}).slots, 1U);
  EXPECT_EQ(rewrite(1, {}, {{idEntry(1, 5, 6)}, false}).slots, 2U);
  EXPECT_EQ(found(1), idEntry(1, 5, 6));
  EXPECT_EQ(rewrite(1, {}, manyFindings(3)).slots, 4U);
  for (const std::uint32_t id : {1U, 2U, 3U}) EXPECT_EQ(found(id).usedFiles, id);
}

TEST(GrownTableSize, IsPowerOfTwoLeavingTenPercentFree) {
  EXPECT_EQ(grownTableSize(2048, 0), 2048U);
  EXPECT_EQ(grownTableSize(2048, 1843), 2048U);
  EXPECT_EQ(grownTableSize(2048, 1844), 4096U);
  EXPECT_EQ(grownTableSize(2048, 100'000), 131'072U);
  EXPECT_EQ(grownTableSize(0x80000000, 0x70000000), 0x80000000U);
  EXPECT_EQ(grownTableSize(0x80000000, 0x80000000), 0U);
}

TEST_F(QuotaTable, SlotsWithoutAnEntryTakeNoRoom) {
  writeWholeFile(oldPath(), textOf(encodeQuotaHeader(headerOf(1U << 21U))));
  std::filesystem::resize_file(oldPath(), quotaFileSize(1U << 21U));
  header_ = headerOf(1U << 21U);
  rewrite({{idEntry(1, 5, 6)}, false});
  struct stat status {};
  ASSERT_EQ(::stat(newPath().c_str(), &status), 0);
  EXPECT_EQ(static_cast<std::uint64_t>(status.st_size), quotaFileSize(1U << 21U));
  EXPECT_LT(status.st_blocks * 512, 100'000);
}

TEST_F(QuotaTable, AnEntryBehindALargeHoleIsFound) {
  constexpr std::uint32_t kSlots = 1U << 24U;
  writeWholeFile(oldPath(), textOf(encodeQuotaHeader(headerOf(kSlots))));
  std::filesystem::resize_file(oldPath(), quotaFileSize(kSlots));
  const FileDescriptor old(::open(oldPath().c_str(), O_WRONLY));
  const QuotaSlot slot = encodeQuotaEntry(idEntry(9, 1, 1));
  ASSERT_EQ(::pwrite(old.get(), slot.data(), slot.size(), quotaSlotOffset(kSlots - 1)), 64);
  header_ = headerOf(kSlots);
  EXPECT_EQ(rewrite({{idEntry(9, 5, 6)}, false}).entries, 1U);
  const FileDescriptor made(::open(newPath().c_str(), O_RDONLY));
  QuotaSlot read{};
  const QuotaProbe probe(9, kSlots);
  ASSERT_EQ(::pread(made.get(), read.data(), read.size(),
                    static_cast<off_t>(quotaSlotOffset(probe.slot()))),
            64);
  EXPECT_EQ(decodeQuotaEntry(read), idEntry(9, 5, 6));
}

TEST_F(QuotaTable, IsUnchangedWhenItHoldsTheFindings) {
  QuotaEntry old = idEntry(1, 5, 6);
  old.hardBytes = 100;
  QuotaEntry idle = idEntry(2, 0, 0);
  idle.hardBytes = 300;
  EXPECT_FALSE(rewrite(16, {{9, old}, {1, idle}}, {{idEntry(1, 5, 6)}, false}).isChanged);
  EXPECT_FALSE(rewrite(16, {}, {}).isChanged);
}

TEST_F(QuotaTable, DiffersByUsageLimitIdSizeOrDuplicate) {
  EXPECT_TRUE(rewrite(16, {{9, idEntry(1, 5, 6)}}, {{idEntry(1, 50, 6)}, false}).isChanged);
  EXPECT_TRUE(rewrite(16, {{9, idEntry(1, 5, 6)}}, {{idEntry(1, 5, 7)}, false}).isChanged);
  EXPECT_TRUE(rewrite(16, {{9, idEntry(1, 5, 6)}}, {}).isChanged);
  EXPECT_TRUE(rewrite(16, {}, {{idEntry(1, 5, 6)}, false}).isChanged);
  QuotaEntry limited = idEntry(1, 5, 6);
  limited.softFiles = 1;
  EXPECT_TRUE(rewrite(16, {{9, idEntry(1, 5, 6)}}, {{limited}, true}).isChanged);
  EXPECT_TRUE(rewrite(1, {{0, idEntry(1, 5, 6)}}, {{idEntry(1, 5, 6)}, false}).isChanged);
  EXPECT_TRUE(
      rewrite(16, {{9, idEntry(1, 5, 6)}, {3, idEntry(1, 5, 6)}}, {{idEntry(1, 5, 6)}, false})
          .isChanged);
}

TEST_F(QuotaTable, UnreadableFileFailsNamingIt) {
  const FileDescriptor folder(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY));
  try {
    summarizeTable(folder.get(), headerOf(16), {}, oldPath());
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), StartsWith("cannot read " + oldPath() + ": Is a directory"));
  }
}

TEST_F(QuotaTable, FullDiskFailsNamingNewFile) {
  writeWholeFile(oldPath(), std::string(kSizeOf16, '\0'));
  header_ = headerOf(16);
  const FileDescriptor old(::open(oldPath().c_str(), O_RDONLY));
  const FileDescriptor full(::open("/dev/full", O_WRONLY));
  try {
    rewriteTable(old.get(), header_, {}, {0, 16}, full.get(), oldPath(), newPath());
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), StartsWith("cannot write " + newPath() + ": "));
    EXPECT_THAT(failure.what(), HasSubstr("the file that was there stays"));
  }
}

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

TEST(KernelCounts, CountingKernelWithoutIdsReturnsEmptyList) {
  const auto findings = kernelFindings(kernelWith({}), "/vol");
  ASSERT_TRUE(findings);
  EXPECT_THAT(findings->entries, IsEmpty());
}

TEST(KernelCounts, KernelWithoutAccountingOrPermissionReturnsNone) {
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

TEST(KernelCounts, OverflowingCountsSaturate) {
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
