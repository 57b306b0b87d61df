#include "volumes/quota_listing.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "base/file_access.h"
#include "platform/logger.h"
#include "support/volume_fixture.h"
#include "volumes/quota_entries.h"

namespace paddock {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Dictionary entryForm(const char* name, std::uint64_t used, std::uint64_t free, std::uint64_t limit,
                     int type = 0) {
  return {{"name", name}, {"used", used}, {"free", free}, {"limit", limit}, {"type", type}};
}

class QuotaListing : public VolumeFixture {
 protected:
  QuotaListing() { writeWholeFile(userMarker(), ""); }

  Status list(QuotaType type = kUserQuota) {
    entries_ = Array{"stale"};
    return read_quota_entries(root(), type, entries_);
  }
  Array listed() {
    EXPECT_EQ(list(), kSuccess);
    EXPECT_TRUE(entries_);
    return entries_.value_or(Array{"none"});
  }
  void expectRefused(Status status, const std::string& why = kBadHeader) {
    logger.clear();
    EXPECT_EQ(list(), status);
    EXPECT_FALSE(entries_);
    EXPECT_THAT(logger.lines(), ElementsAre(RecordingLogger::Line{
                                    kLogError, "paddock_sharing: The quotas in " + userFile() +
                                                   " are not listed: " + why}));
  }

  static constexpr const char* kBadHeader = "it does not begin with the header of such a file";
  static constexpr std::uint64_t kAvailable = 1000 * kBlock;
  std::optional<Array> entries_;
  LeftOpen leftOpen_;
};

TEST_F(QuotaListing, ManuallyWrittenFileIsReadBitExact) {
  const unsigned char bytes[] = {0xFF, 0x31, 0xFF, 0x35, 0, 0, 0, 1, 0, 0, 0, 4, 0, 0, 0, 2,  //
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 0x3A, 0x80, 0, 9, 0x3A, 0x80, 'Q',
                                 'U', 'O', 'T', 'A', ' ', 'H', 'A', 'S', 'H', ' ', 'F', 'I', 'L',
                                 'E', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                 // slot 0: uid 1001 uses 0x0102030405 bytes of 0x0200000000
                                 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0,  //
                                 0, 0, 0, 1, 2, 3, 4, 5, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0xE9, 0, 0, 0, 0, 0,
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                 // slot 1: empty, though its usage is not zero
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                 0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                 // slot 2: uid 4294967295 uses one file and no bytes
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                                 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0,
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                 // slot 3: uid 1002 has limits and uses nothing
                                 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1,  //
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1,  //
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0xEA, 0, 0, 0, 0, 0,
                                 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  writeWholeFile(userFile(), std::string(reinterpret_cast<const char*>(bytes), sizeof bytes));
  EXPECT_EQ(listed(), (Array{entryForm("alice", 0x0102030405, 0xFDFCFBFB, 0x0200000000),
                             entryForm("4294967295", 0, kAvailable, 0)}));
}

TEST_F(QuotaListing, WithoutTheMarkerNothingIsListedOrOpened) {
  std::filesystem::remove(userMarker());
  writeUsers({usage(1001, 5)});
  EXPECT_EQ(list(), kSuccess);
  EXPECT_FALSE(entries_);
}

TEST_F(QuotaListing, MarkerMustBeRegularFile) {
  writeUsers({usage(1001, 5)});
  std::filesystem::remove(userMarker());
  std::filesystem::create_directory(userMarker());
  EXPECT_EQ(list(), kSuccess);
  EXPECT_FALSE(entries_);
  std::filesystem::remove(userMarker());
  std::filesystem::create_symlink(".quota.user", userMarker());
  EXPECT_EQ(list(), kSuccess);
  EXPECT_FALSE(entries_);
}

TEST_F(QuotaListing, FreeIsWhatTheHardLimitLeaves) {
  writeUsers({usage(1001, 300, 1000)});
  EXPECT_EQ(listed(), (Array{entryForm("alice", 300, 700, 1000)}));
}

TEST_F(QuotaListing, UserAtOrOverLimitHasNothingFree) {
  writeUsers({usage(1001, 1000, 1000)});
  EXPECT_EQ(listed(), (Array{entryForm("alice", 1000, 0, 1000)}));
  writeUsers({usage(1001, 5000, 1000)});
  EXPECT_EQ(listed(), (Array{entryForm("alice", 5000, 0, 1000)}));
}

TEST_F(QuotaListing, MissingHardLimitLeavesVolumeSpaceFree) {
  QuotaEntry entry = usage(1001, 300);
  entry.softBytes = 100;
  writeUsers({entry});
  EXPECT_EQ(listed(), (Array{entryForm("alice", 300, kAvailable, 0)}));
}

TEST_F(QuotaListing, AmountsHoldAllSixtyFourBits) {
  writeUsers({usage(1001, 1, UINT64_MAX), usage(1002, UINT64_MAX, UINT64_MAX)});
  const Array all = listed();
  ASSERT_EQ(all.size(), 2U);
  for (const Value& entry : all) {
    EXPECT_EQ(*entry.dictionary()->find("limit"), Value::fromUnsigned(UINT64_MAX));
  }
}

TEST_F(QuotaListing, RootAndUnusedEntriesAreLeftOut) {
  QuotaEntry unused = usage(1002, 0, 1000);
  unused.usedFiles = 0;
  QuotaEntry filesOnly = usage(1001, 0);
  writeUsers({unused, filesOnly, usage(0, 77)});
  EXPECT_EQ(listed(), (Array{entryForm("alice", 0, kAvailable, 0)}));
}

TEST_F(QuotaListing, AnIdWithoutANameIsItsNumber) {
  writeUsers({usage(0x80000001, 1), usage(0xFFFFFFFF, 2)}, 4);
  Array names;
  for (const Value& entry : listed()) names.push_back(*entry.dictionary()->find("name"));
  EXPECT_THAT(names, testing::UnorderedElementsAre(Value("2147483649"), Value("4294967295")));
}

TEST_F(QuotaListing, GroupsHaveSeparateFileAndMarker) {
  writeWholeFile(groupFile(), quotaFileBytes(kGroupQuota, 8, {usage(50, 9), usage(1001, 8)}));
  EXPECT_EQ(list(kGroupQuota), kSuccess);
  EXPECT_FALSE(entries_);
  writeWholeFile(groupMarker(), "");
  EXPECT_EQ(list(kGroupQuota), kSuccess);
  EXPECT_THAT(*entries_,
              testing::UnorderedElementsAre(Value(entryForm("staff", 9, kAvailable, 0, 1)),
                                            Value(entryForm("1001", 8, kAvailable, 0, 1))));
}

TEST_F(QuotaListing, AnotherTypeIsRefused) {
  writeWholeFile(path(".quota.ops.undefined"), "");
  writeWholeFile(path(".quota.undefined"), quotaFileBytes(kUserQuota, 4, {}));
  EXPECT_EQ(list(2), -1);
}

TEST_F(QuotaListing, OnlyUfsAndHfsFamiliesAreListed) {
  writeUsers({usage(1001, 5)});
  for (const char* type : {"ext4", "xfs", "hfsplus"}) {
    remount(type);
    EXPECT_EQ(listed().size(), 1U) << type;
  }
  for (const char* type : {"tmpfs", "nfs4", "btrfs"}) {
    remount(type);
    EXPECT_THAT(listed(), IsEmpty()) << type;
  }
  EXPECT_THAT(leftOpen_.numbers(), IsEmpty());
}

TEST_F(QuotaListing, UnopenableFileReturnsItsErrno) {
  expectRefused(ENOENT, "there is no such file, although quotas were switched on here");
  std::filesystem::create_directory(userFile());
  expectRefused(EISDIR, "it is a folder");
  std::filesystem::remove(userFile());
  std::filesystem::create_symlink("/etc/shadow", userFile());
  expectRefused(ELOOP, "it is a symbolic link");
  std::filesystem::remove(userFile());
  ASSERT_EQ(::mkfifo(userFile().c_str(), 0666), 0);
  expectRefused(EINVAL, "it is no regular file");
  EXPECT_THAT(leftOpen_.numbers(), IsEmpty());
}

TEST_F(QuotaListing, AFileOfAnotherUserIsNotBelieved) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file away needs root";
  writeUsers({usage(1001, 5)});
  ASSERT_EQ(::chown(userFile().c_str(), 12345, 80), 0);
  expectRefused(EPERM, "it is of the user 12345 and not of root");
  EXPECT_THAT(leftOpen_.numbers(), IsEmpty());
}

TEST_F(QuotaListing, FailedVolumeQueryReturnsErrnoKeepingFileOpen) {
  writeUsers({usage(1001, 5)});
  volumes.setError(root(), EIO);
  expectRefused(EIO, "the volume: Input/output error");
  EXPECT_THAT(leftOpen_.paths(), ElementsAre(userFile()));
}

TEST_F(QuotaListing, InvalidHeaderReturnsMinusOneKeepingFileOpen) {
  writeWholeFile(userFile(), quotaFileBytes(kGroupQuota, 4, {usage(1001, 5)}));
  expectRefused(-1);
  EXPECT_THAT(leftOpen_.paths(), ElementsAre(userFile()));
}

// Callers that may read settings may do so any number of times.
TEST_F(QuotaListing, RepeatedlyRefusedFileCostsOneDescriptor) {
  writeWholeFile(userFile(), quotaFileBytes(kGroupQuota, 4, {usage(1001, 5)}));
  for (int count = 0; count < 1000; ++count) ASSERT_EQ(list(), -1);
  volumes.setError(root(), EIO);
  for (int count = 0; count < 1000; ++count) ASSERT_EQ(list(), EIO);
  EXPECT_THAT(leftOpen_.paths(), ElementsAre(userFile()));
}

TEST_F(QuotaListing, ReplacedFileIsNotKeptOpen) {
  for (int count = 0; count < 100; ++count) {
    std::filesystem::remove(userFile());
    writeWholeFile(userFile(), "no header");
    ASSERT_EQ(list(), -1);
  }
  EXPECT_THAT(leftOpen_.paths(), ElementsAre(userFile()));
}

TEST_F(QuotaListing, EmptyFileOrTruncatedHeaderReturnsMinusOne) {
  const std::string whole = quotaFileBytes(kUserQuota, 4, {usage(1001, 5)});
  writeWholeFile(userFile(), whole);
  for (std::size_t length = kQuotaSlotSize; length > 0; --length) {
    std::filesystem::resize_file(userFile(), length - 1);
    expectRefused(-1);
  }
}

TEST_F(QuotaListing, FileWithTruncatedTableIsListedToEnd) {
  const std::string whole =
      quotaFileBytes(kUserQuota, 16, {usage(1001, 5), usage(1002, 6), usage(1003, 7)});
  ASSERT_EQ(whole.size(), 17U * kQuotaSlotSize);
  writeWholeFile(userFile(), whole);
  EXPECT_EQ(listed().size(), 3U);
  for (std::size_t length = whole.size(); length >= kQuotaSlotSize; --length) {
    std::filesystem::resize_file(userFile(), length);
    std::size_t expected = 0;
    for (std::size_t at = kQuotaSlotSize; at + kQuotaSlotSize <= length; at += kQuotaSlotSize) {
      if (whole[at + kQuotaIdOffset + 2] != 0) ++expected;
    }
    ASSERT_EQ(listed().size(), expected) << length;
  }
}

TEST_F(QuotaListing, SingleFlippedBitIsRefusedOrRead) {
  const std::string whole = quotaFileBytes(kUserQuota, 2, {usage(1001, 5, 9)});
  writeWholeFile(userFile(), whole);
  const FileDescriptor file(::open(userFile().c_str(), O_WRONLY | O_CLOEXEC));
  const auto put = [&](std::size_t at, int byte) {
    const auto written = static_cast<char>(byte);
    ASSERT_EQ(::pwrite(file.get(), &written, 1, static_cast<off_t>(at)), 1);
  };
  for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
    put(bit / 8, whole[bit / 8] ^ (1 << (bit % 8)));
    const LeftOpen closesThem;
    const Status status = list();
    // Magic, version and maxentries, of which one bit more or less leaves no power of two. Only
    // version 0 is known, too.
    const bool inWords = bit / 8 < 12;
    const bool versionZero = bit / 8 == 7 && bit % 8 == 0;
    ASSERT_EQ(status, inWords && !versionZero ? -1 : 0) << bit;
    put(bit / 8, whole[bit / 8]);
  }
}

TEST_F(QuotaListing, TableNotPowerOfTwoReturnsMinusOne) {
  for (const std::uint32_t maxentries : {0U, 3U, 2047U, 0xFFFFFFFFU}) {
    QuotaFileHeader header;
    header.magic = quotamagic[kUserQuota];
    header.maxentries = maxentries;
    const QuotaSlot slot = encodeQuotaHeader(header);
    writeWholeFile(userFile(), std::string(slot.begin(), slot.end()) + std::string(640, '\0'));
    expectRefused(-1);
  }
}

TEST_F(QuotaListing, ATableOfOneSlotIsListed) {
  writeUsers({usage(1001, 5)}, 1);
  EXPECT_EQ(listed().size(), 1U);
}

TEST_F(QuotaListing, EntriesBehindTheTableAreNotRead) {
  writeWholeFile(userFile(), quotaFileBytes(kUserQuota, 2, {}) +
                                 quotaFileBytes(kUserQuota, 2, {usage(1001, 5)}));
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(QuotaListing, LargestTableOfSparseFileIsReadImmediately) {
  const std::string head = quotaFileBytes(kUserQuota, 2, {usage(1001, 5)});
  writeWholeFile(userFile(), head);
  const FileDescriptor file(::open(userFile().c_str(), O_WRONLY | O_CLOEXEC));
  const unsigned char size[] = {0x80, 0, 0, 0};
  ASSERT_EQ(::pwrite(file.get(), size, sizeof size, 8), 4);
  // 128 GiB, with one more entry in the middle and one at the very end.
  for (const std::uint32_t slot : {0x40000000U, 0x7FFFFFFFU}) {
    const QuotaSlot bytes = encodeQuotaEntry(usage(slot, 6));
    const auto offset = static_cast<off_t>(quotaSlotOffset(slot));
    if (::pwrite(file.get(), bytes.data(), bytes.size(), offset) != 64) {
      GTEST_SKIP() << "the file system takes no file of 128 GiB";
    }
  }
  EXPECT_EQ(listed().size(), 3U);
}

TEST_F(QuotaListing, EntryAtEachBufferEndIsRead) {
  constexpr std::uint32_t kSlots = 16384;
  std::string bytes = quotaFileBytes(kUserQuota, kSlots, {});
  const QuotaSlot entry = encodeQuotaEntry(usage(1001, 5));
  for (const std::uint32_t slot : {0U, 4095U, 4096U, 8191U, 8192U, kSlots - 1}) {
    std::copy(entry.begin(), entry.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>(quotaSlotOffset(slot)));
  }
  writeWholeFile(userFile(), bytes);
  EXPECT_EQ(listed().size(), 6U);
}

TEST_F(QuotaListing, AReadThatFailsIsItsErrno) {
  writeUsers({usage(1001, 5)});
  const FileDescriptor writeOnly(::open(userFile().c_str(), O_WRONLY | O_CLOEXEC));
  QuotaEntries entries(writeOnly.get(), 4);
  EXPECT_FALSE(entries.next());
  EXPECT_EQ(entries.error(), EBADF);
}

TEST(QuotaFilePath, JoinsFolderNameDotAndTypeExtension) {
  EXPECT_EQ(quota_file_path("/vol", ".quota", kUserQuota), "/vol/.quota.user");
  EXPECT_EQ(quota_file_path("/vol", ".quota.ops", kGroupQuota), "/vol/.quota.ops.group");
  EXPECT_EQ(quota_file_path("/vol", ".quota", 2), "/vol/.quota.undefined");
  EXPECT_EQ(quota_file_path("/vol", ".quota", -1), "/vol/.quota.undefined");
  EXPECT_EQ(quota_file_path("/", ".quota", kUserQuota), "/.quota.user");
  EXPECT_EQ(quota_file_path("/vol/", ".quota", kUserQuota), "/vol/.quota.user");
  EXPECT_EQ(quota_file_path("", ".quota", kUserQuota), ".quota.user");
}

}  // namespace
}  // namespace paddock
