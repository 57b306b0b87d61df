#include "quotascan/quota_table.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <random>

#include "base/file_descriptor.h"
#include "quotascan/failure.h"
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

QuotaEntry entryOf(std::uint32_t id, std::uint64_t bytes, std::uint32_t files) {
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

// A table of 16 slots, written out by hand: id 1 is searched from slot 9 on.
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

TEST_F(QuotaTable, IsRewrittenByteForByteButForWhatIsUsed) {
  const std::string old =
      handWritten(std::string("\0\0\0\0\0\0\x10\0", 8), std::string("\0\0\0\x01", 4));
  writeWholeFile(oldPath(), old);
  header_ = decodeQuotaHeader(std::span<const std::uint8_t, kQuotaSlotSize>(
      reinterpret_cast<const std::uint8_t*>(old.data()), 64));
  const TableSummary summary = rewrite({{entryOf(1, 0x123456789A, 0x0708)}, false});
  EXPECT_EQ(newBytes(), handWritten(std::string("\0\0\0\x12\x34\x56\x78\x9A", 8),
                                    std::string("\0\0\x07\x08", 4)));
  EXPECT_EQ(summary.entries, 1U);
  EXPECT_EQ(summary.slots, 16U);
  EXPECT_FALSE(summary.isGrown);
  EXPECT_EQ(summary.repeated, 0U);
}

TEST_F(QuotaTable, AnIdThatOwnsNothingKeepsItsLimitsAndUsesNothing) {
  QuotaEntry old = entryOf(7, 5000, 3);
  old.hardBytes = 1U << 20U;
  old.softFiles = 9;
  old.bytesTimeLimit = 77;
  rewrite(16, {{3, old}}, {});
  old.usedBytes = 0;
  old.usedFiles = 0;
  EXPECT_EQ(found(7), old);
}

TEST_F(QuotaTable, ANewIdIsPutWhereItIsSearched) {
  rewrite(16, {}, {{entryOf(1, 5, 6)}, false});
  EXPECT_EQ(decodeQuotaEntry(newSlot(quotaSlotOffset(9))), entryOf(1, 5, 6));
}

TEST_F(QuotaTable, AnEntryThatIsInTheWayIsStayedClearOf) {
  // Slot 9 is where the search for id 1 begins, and 0 where it goes on.
  rewrite(16, {},
          {{entryOf(1, 5, 6), entryOf(0x40000001, 7, 8), entryOf(0x80000001, 9, 10)}, false});
  for (const auto& wanted :
       {entryOf(1, 5, 6), entryOf(0x40000001, 7, 8), entryOf(0x80000001, 9, 10)}) {
    EXPECT_EQ(found(wanted.id), wanted);
  }
}

TEST_F(QuotaTable, AnEntryThatNoSearchFindsIsPutWhereOneDoes) {
  rewrite(16, {{2, entryOf(1, 5, 6)}}, {{entryOf(1, 50, 60)}, false});
  EXPECT_EQ(decodeQuotaEntry(newSlot(quotaSlotOffset(9))), entryOf(1, 50, 60));
}

TEST_F(QuotaTable, OfTwoEntriesOfAnIdTheFirstStays) {
  QuotaEntry first = entryOf(1, 5, 6);
  first.hardBytes = 100;
  QuotaEntry second = entryOf(1, 7, 8);
  second.hardBytes = 200;
  const TableSummary summary = rewrite(16, {{4, first}, {9, second}}, {});
  EXPECT_EQ(summary.repeated, 1U);
  EXPECT_EQ(summary.entries, 1U);
  EXPECT_EQ(found(1).hardBytes, 100U);
}

TEST_F(QuotaTable, LimitsAreTakenWhereTheyWereFound) {
  QuotaEntry old = entryOf(1, 5, 6);
  old.hardBytes = 100;
  old.spare.front() = 0xAB;
  QuotaEntry withoutFinding = entryOf(2, 5, 6);
  withoutFinding.hardBytes = 300;
  QuotaEntry finding = entryOf(1, 50, 60);
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
  QuotaEntry old = entryOf(1, 5, 6);
  old.hardBytes = 100;
  rewrite(16, {{1, old}}, {{entryOf(1, 50, 60)}, false});
  EXPECT_EQ(found(1).hardBytes, 100U);
}

TEST_F(QuotaTable, TheLargestIdsAreIds) {
  rewrite(16, {{5, entryOf(0xFFFFFFFF, 1, 1)}},
          {{entryOf(0x80000000, 2, 2), entryOf(0xFFFFFFFF, 3, 3)}, false});
  EXPECT_EQ(found(0x80000000), entryOf(0x80000000, 2, 2));
  EXPECT_EQ(found(0xFFFFFFFF), entryOf(0xFFFFFFFF, 3, 3));
}

Findings manyFindings(std::uint32_t count) {
  Findings findings;
  for (std::uint32_t id = 1; id <= count; ++id)
    findings.entries.push_back(entryOf(id, std::uint64_t{id} * 10, id));
  return findings;
}

TEST_F(QuotaTable, EveryIdOfATableOfAnyContentsIsFoundAfterwards) {
  std::mt19937 random(7);
  for (int round = 0; round < 200; ++round) {
    const std::uint32_t slots = 1U << random() % 7;
    // Few different ids, so that they repeat, in any slots.
    Table old;
    std::map<std::uint32_t, QuotaEntry> wanted;
    for (std::uint32_t slot = 0; slot < slots; ++slot) {
      if (random() % 3 == 0) continue;
      old[slot] = entryOf(static_cast<std::uint32_t>(random() % 50 * 85'899'345), 1, 1);
      old[slot].hardBytes = slot;
      if (old[slot].id != 0) wanted.emplace(old[slot].id, old[slot]);
    }
    Findings findings;
    for (auto& [id, entry] : wanted) entry.usedBytes = entry.usedFiles = 0;
    for (std::uint32_t id = 85'899'345; id < 20 * 85'899'345U; id += 85'899'345) {
      if (random() % 2 == 0) continue;
      findings.entries.push_back(entryOf(id, id, 3));
      QuotaEntry& entry = wanted.emplace(id, entryOf(id, 0, 0)).first->second;
      entry.usedBytes = id;
      entry.usedFiles = 3;
    }
    EXPECT_EQ(rewrite(slots, old, findings).entries, wanted.size());
    for (const auto& [id, entry] : wanted) EXPECT_EQ(found(id), entry) << round << ' ' << id;
  }
}

TEST_F(QuotaTable, GrowsToTheNextPowerOfTwoWhenOverNineTenthsAreTaken) {
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
    EXPECT_EQ(found(id), entryOf(id, std::uint64_t{id} * 10, id));
}

TEST_F(QuotaTable, OldEntriesCountWhenItGrows) {
  Table old;
  for (std::uint32_t slot = 0; slot < 14; ++slot) {
    old[slot] = entryOf(100 + slot, 1, 1);
    old[slot].hardBytes = 1000 + slot;
  }
  EXPECT_EQ(rewrite(16, old, {}).slots, 16U);
  EXPECT_EQ(rewrite(16, old, {{entryOf(100, 2, 2)}, false}).slots, 16U);
  EXPECT_EQ(rewrite(16, old, {{entryOf(1, 2, 2)}, false}).slots, 32U);
  for (std::uint32_t slot = 0; slot < 14; ++slot)
    EXPECT_EQ(found(100 + slot).hardBytes, 1000 + slot);
}

TEST_F(QuotaTable, AFullTableWithoutAnEmptySlotGrows) {
  Table old;
  for (std::uint32_t slot = 0; slot < 16; ++slot) old[slot] = entryOf(500 + slot, 1, 1);
  EXPECT_EQ(rewrite(16, old, {}).slots, 32U);
  for (std::uint32_t slot = 0; slot < 16; ++slot) EXPECT_EQ(found(500 + slot).id, 500 + slot);
}

TEST_F(QuotaTable, ATableOfOneSlotHoldsNothingAndGrows) {
  EXPECT_EQ(rewrite(1, {}, {}).slots, 1U);
  EXPECT_EQ(rewrite(1, {}, {{entryOf(1, 5, 6)}, false}).slots, 2U);
  EXPECT_EQ(found(1), entryOf(1, 5, 6));
  EXPECT_EQ(rewrite(1, {}, manyFindings(3)).slots, 4U);
  for (const std::uint32_t id : {1U, 2U, 3U}) EXPECT_EQ(found(id).usedFiles, id);
}

TEST(GrownTableSize, IsThePowerOfTwoThatLeavesATenth) {
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
  rewrite({{entryOf(1, 5, 6)}, false});
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
  const QuotaSlot slot = encodeQuotaEntry(entryOf(9, 1, 1));
  ASSERT_EQ(::pwrite(old.get(), slot.data(), slot.size(), quotaSlotOffset(kSlots - 1)), 64);
  header_ = headerOf(kSlots);
  EXPECT_EQ(rewrite({{entryOf(9, 5, 6)}, false}).entries, 1U);
  const FileDescriptor made(::open(newPath().c_str(), O_RDONLY));
  QuotaSlot read{};
  const QuotaProbe probe(9, kSlots);
  ASSERT_EQ(::pread(made.get(), read.data(), read.size(),
                    static_cast<off_t>(quotaSlotOffset(probe.slot()))),
            64);
  EXPECT_EQ(decodeQuotaEntry(read), entryOf(9, 5, 6));
}

TEST_F(QuotaTable, IsUnchangedWhenItHoldsTheFindings) {
  QuotaEntry old = entryOf(1, 5, 6);
  old.hardBytes = 100;
  QuotaEntry idle = entryOf(2, 0, 0);
  idle.hardBytes = 300;
  EXPECT_FALSE(rewrite(16, {{9, old}, {1, idle}}, {{entryOf(1, 5, 6)}, false}).isChanged);
  EXPECT_FALSE(rewrite(16, {}, {}).isChanged);
}

TEST_F(QuotaTable, IsChangedByAnotherFigureLimitIdSizeOrRepetition) {
  EXPECT_TRUE(rewrite(16, {{9, entryOf(1, 5, 6)}}, {{entryOf(1, 50, 6)}, false}).isChanged);
  EXPECT_TRUE(rewrite(16, {{9, entryOf(1, 5, 6)}}, {{entryOf(1, 5, 7)}, false}).isChanged);
  EXPECT_TRUE(rewrite(16, {{9, entryOf(1, 5, 6)}}, {}).isChanged);
  EXPECT_TRUE(rewrite(16, {}, {{entryOf(1, 5, 6)}, false}).isChanged);
  QuotaEntry limited = entryOf(1, 5, 6);
  limited.softFiles = 1;
  EXPECT_TRUE(rewrite(16, {{9, entryOf(1, 5, 6)}}, {{limited}, true}).isChanged);
  EXPECT_TRUE(rewrite(1, {{0, entryOf(1, 5, 6)}}, {{entryOf(1, 5, 6)}, false}).isChanged);
  EXPECT_TRUE(
      rewrite(16, {{9, entryOf(1, 5, 6)}, {3, entryOf(1, 5, 6)}}, {{entryOf(1, 5, 6)}, false})
          .isChanged);
}

TEST_F(QuotaTable, AFileThatCannotBeReadIsAFailureThatNamesIt) {
  const FileDescriptor folder(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY));
  try {
    summarizeTable(folder.get(), headerOf(16), {}, oldPath());
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), StartsWith("cannot read " + oldPath() + ": Is a directory"));
  }
}

TEST_F(QuotaTable, ADiskThatIsFullIsAFailureThatNamesTheNewFile) {
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

}  // namespace
}  // namespace paddock::quotascan
