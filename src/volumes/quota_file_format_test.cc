#include "volumes/quota_file_format.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace paddock {
namespace {

// The bytes of a slot, hand-encoded.
const QuotaSlot kHeaderBytes = {
    0xFF, 0x31, 0xFF, 0x35,                       // magic of users
    0x00, 0x00, 0x00, 0x01,                       // version
    0x00, 0x00, 0x10, 0x00,                       // 4096 slots
    0x00, 0x00, 0x00, 0x03,                       // three entries
    0x00, 0x00, 0x00, 0x02,                       // flags
    0x65, 0x00, 0x00, 0x01,                       // check time
    0x00, 0x09, 0x3A, 0x80,                       // 604800 seconds
    0x00, 0x01, 0x51, 0x80,                       // 86400 seconds
    'Q',  'U',  'O',  'T',  'A', ' ', 'H', 'A',   //
    'S',  'H',  ' ',  'F',  'I', 'L', 'E', 0x00,  //
    0xA0, 0,    0,    0,    0,   0,   0,   0,     //
    0,    0,    0,    0,    0,   0,   0,   0xAF,  // spare
};

const QuotaSlot kEntryBytes = {
    0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,  // hard limit, bytes
    0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,  // soft limit, bytes
    0xFF, 0xFE, 0xFD, 0xFC, 0xFB, 0xFA, 0xF9, 0xF8,  // bytes in use
    0x00, 0x00, 0x00, 0x64,                          // hard limit, files
    0x00, 0x00, 0x00, 0x32,                          // soft limit, files
    0x00, 0x00, 0x00, 0x0A,                          // files in use
    0x65, 0x00, 0x00, 0x01,                          // time limit, bytes
    0x65, 0x00, 0x00, 0x02,                          // time limit, files
    0x80, 0x00, 0x03, 0xE8,                          // id
    0xB0, 0,    0,    0,    0,    0,    0,    0,     //
    0,    0,    0,    0,    0,    0,    0,    0xBF,  // spare
};

QuotaFileHeader exampleHeader() {
  QuotaFileHeader header;
  header.magic = 0xFF31FF35;
  header.maxentries = 4096;
  header.entryCount = 3;
  header.flags = 2;
  header.checkTime = 0x65000001;
  header.filesGracePeriod = 86400;
  header.spare.front() = 0xA0;
  header.spare.back() = 0xAF;
  return header;
}

QuotaEntry exampleEntry() {
  QuotaEntry entry;
  entry.hardBytes = 0x0102030405060708;
  entry.softBytes = 0x1112131415161718;
  entry.usedBytes = 0xFFFEFDFCFBFAF9F8;
  entry.hardFiles = 100;
  entry.softFiles = 50;
  entry.usedFiles = 10;
  entry.bytesTimeLimit = 0x65000001;
  entry.filesTimeLimit = 0x65000002;
  entry.id = 0x800003E8;
  entry.spare.front() = 0xB0;
  entry.spare.back() = 0xBF;
  return entry;
}

TEST(QuotaFileFormat, HeaderIsReadAndWrittenByteExact) {
  EXPECT_EQ(decodeQuotaHeader(kHeaderBytes), exampleHeader());
  EXPECT_EQ(encodeQuotaHeader(exampleHeader()), kHeaderBytes);
}

TEST(QuotaFileFormat, EntryIsReadAndWrittenByteExact) {
  EXPECT_EQ(decodeQuotaEntry(kEntryBytes), exampleEntry());
  EXPECT_EQ(encodeQuotaEntry(exampleEntry()), kEntryBytes);
  EXPECT_EQ(quotaEntryId(kEntryBytes), 0x800003E8U);
}

TEST(QuotaFileFormat, TheTablesAreThoseOfTheKernel) {
  EXPECT_STREQ(qfextension[kUserQuota], "user");
  EXPECT_STREQ(qfextension[kGroupQuota], "group");
  EXPECT_STREQ(gQuotaFileExtension[2], "undefined");
  EXPECT_EQ(quotamagic[kUserQuota], 0xFF31FF35U);
  EXPECT_EQ(gQuotamagic[kGroupQuota], 0xFF31FF27U);
  EXPECT_STREQ(qfname, ".quota");
  EXPECT_STREQ(quotagroup, "operator");
}

TEST(QuotaFileFormat, HeaderNeedsMagicVersionAndPowerOfTwo) {
  EXPECT_TRUE(isQuotaHeaderOf(kUserQuota, 0xFF31FF35, 1, 2048));
  EXPECT_TRUE(isQuotaHeaderOf(kUserQuota, 0xFF31FF35, 0, 1));
  EXPECT_TRUE(isQuotaHeaderOf(kGroupQuota, 0xFF31FF27, 1, 0x80000000));
  EXPECT_FALSE(isQuotaHeaderOf(kUserQuota, 0xFF31FF27, 1, 2048));
  EXPECT_FALSE(isQuotaHeaderOf(kUserQuota, 0x35FF31FF, 1, 2048));
  EXPECT_FALSE(isQuotaHeaderOf(kUserQuota, 0xFF31FF35, 2, 2048));
  EXPECT_FALSE(isQuotaHeaderOf(kUserQuota, 0xFF31FF35, 1, 0));
  EXPECT_FALSE(isQuotaHeaderOf(kUserQuota, 0xFF31FF35, 1, 2047));
  EXPECT_FALSE(isQuotaHeaderOf(2, 0xFF31FF35, 1, 2048));
  EXPECT_FALSE(isQuotaHeaderOf(-1, 0xFF31FF35, 1, 2048));
}

constexpr std::uint64_t kBlock = 4096;
constexpr std::uint64_t kBlocksOfGibibyte = (1ULL << 30U) / kBlock;

std::uint32_t slotsOf(QuotaType type, std::uint64_t gibibytes) {
  return quotaTableSize(type, kBlock, gibibytes * kBlocksOfGibibyte);
}

TEST(QuotaTableSize, VolumeOfOneGibibyteGetsSmallestTable) {
  EXPECT_EQ(slotsOf(kUserQuota, 1), 2048U);
  EXPECT_EQ(quotaFileSize(2048), 131'136U);
}

TEST(QuotaTableSize, ValueBetweenPowersOfTwoRoundsUp) {
  EXPECT_EQ(slotsOf(kUserQuota, 12), 4096U);  // 3072
  EXPECT_EQ(slotsOf(kUserQuota, 16), 4096U);  // 4096 itself
  EXPECT_EQ(slotsOf(kUserQuota, 17), 8192U);  // 4352
}

TEST(QuotaTableSize, ALargeVolumeGetsTheLargestTable) {
  EXPECT_EQ(slotsOf(kUserQuota, 10'000), 2'097'152U);
  EXPECT_EQ(slotsOf(kUserQuota, 1ULL << 30U), 2'097'152U);
  EXPECT_EQ(slotsOf(kGroupQuota, 1ULL << 30U), 262'144U);
}

TEST(QuotaTableSize, GroupTablesGrowFromSixtyFourGibibytesOn) {
  EXPECT_EQ(slotsOf(kGroupQuota, 0), 2048U);
  EXPECT_EQ(slotsOf(kGroupQuota, 64), 2048U);
  EXPECT_EQ(slotsOf(kGroupQuota, 65), 4096U);
}

TEST(QuotaTableSize, PartsOfAGibibyteAreLeftOut) {
  EXPECT_EQ(quotaTableSize(kUserQuota, kBlock, 9 * kBlocksOfGibibyte - 1), 2048U);
  EXPECT_EQ(quotaTableSize(kUserQuota, kBlock, 9 * kBlocksOfGibibyte), 4096U);
}

TEST(QuotaTableSize, AnotherTypeHasNoTable) {
  EXPECT_EQ(slotsOf(2, 100), 0U);
  EXPECT_EQ(slotsOf(-1, 100), 0U);
}

std::vector<std::uint32_t> slotsTried(std::uint32_t id, std::uint32_t maxentries) {
  std::vector<std::uint32_t> slots;
  for (QuotaProbe probe(id, maxentries); !probe.atEnd(); probe.next()) {
    slots.push_back(probe.slot());
  }
  return slots;
}

// Calculated by hand. Id 1: p = 0x9E3779B1. 16 slots: shift 28, start 9; (p >> 11) is 0x13C6EF, so
// the step is (0xF & 7) | 1 = 7. The row ends before 9 - 7 = 2.
TEST(QuotaProbe, StartsAndStepsAsTheHashSays) {
  EXPECT_EQ(slotsTried(1, 16),
            (std::vector<std::uint32_t>{9, 0, 7, 14, 5, 12, 3, 10, 1, 8, 15, 6, 13, 4, 11}));
  // Id 501: p = 0x9E3779B1 * 501 mod 2^32 = 0xA2912765; 2048 slots: shift 21, start 0x514; p >> 11
  // is 0x145224, of which mask >> 1 leaves 0x224.
  const QuotaProbe probe(501, 2048);
  EXPECT_EQ(probe.slot(), 0x514U);
  QuotaProbe second = probe;
  second.next();
  EXPECT_EQ(second.slot(), (0x514U + 0x225U) & 2047U);
}

TEST(QuotaProbe, TriesEverySlotOnceButTheLast) {
  for (const std::uint32_t id : {1U, 2U, 501U, 65534U, 0x80000000U, 0xFFFFFFFFU}) {
    for (const std::uint32_t maxentries : {2U, 4U, 64U, 2048U}) {
      const auto slots = slotsTried(id, maxentries);
      EXPECT_EQ(slots.size(), maxentries - 1);
      EXPECT_EQ(std::set<std::uint32_t>(slots.begin(), slots.end()).size(), maxentries - 1);
    }
  }
}

TEST(QuotaProbe, TableOfOneSlotHasNoneToTry) { EXPECT_TRUE(slotsTried(1, 1).empty()); }

TEST(QuotaProbe, TheLargestTableStaysWithinItsSlots) {
  QuotaProbe probe(0xFFFFFFFF, 0x80000000);
  for (int step = 0; step < 1000; ++step, probe.next()) EXPECT_LT(probe.slot(), 0x80000000U);
}

}  // namespace
}  // namespace paddock
