#include "quotascan/quota_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "quotascan/quotascan_failure.h"
#include "quotascan/replacement.h"
#include "support/temporary_folder.h"

namespace paddock::quotascan {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr std::uint32_t kSlots = 16;

std::string fileBytes(QuotaType type = kUserQuota) {
  QuotaFileHeader header;
  header.magic = quotamagic[static_cast<std::size_t>(type)];
  header.maxentries = kSlots;
  const QuotaSlot slot = encodeQuotaHeader(header);
  return std::string(slot.begin(), slot.end()) + std::string(kSlots * kQuotaSlotSize, '\0');
}

class QuotaFileOpening : public ::testing::Test {
 protected:
  std::optional<QuotaFile> open(QuotaType type = kUserQuota) {
    return QuotaFile::open(volume_.get(), folder_.path(), type, {[this] { ++waits_; }});
  }
  // Why the file is refused; empty when it is not.
  std::string refusal(QuotaType type = kUserQuota) {
    try {
      open(type);
      return "";
    } catch (const Failure& failure) {
      return failure.what();
    }
  }
  void write(const std::string& bytes) { writeWholeFile(path(), bytes); }
  std::string path() const { return folder_.path(".quota.user"); }

  TestFolder folder_;
  FileDescriptor volume_{::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY)};
  std::atomic<int> waits_ = 0;
};

TEST_F(QuotaFileOpening, OneThatIsNotThereIsNone) {
  EXPECT_FALSE(open());
  EXPECT_FALSE(open(kGroupQuota));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(QuotaFileOpening, IsOpenedWithItsHeader) {
  write(fileBytes());
  const auto file = open();
  ASSERT_TRUE(file);
  EXPECT_EQ(file->header().maxentries, kSlots);
  EXPECT_EQ(file->path(), path());
  EXPECT_EQ(file->name(), ".quota.user");
}

TEST_F(QuotaFileOpening, OfGroupsHasItsOwnNameAndMagic) {
  writeWholeFile(folder_.path(".quota.group"), fileBytes(kGroupQuota));
  EXPECT_TRUE(open(kGroupQuota));
  writeWholeFile(folder_.path(".quota.group"), fileBytes(kUserQuota));
  EXPECT_THAT(refusal(kGroupQuota), HasSubstr("does not begin as a quota file for groups does"));
  write(fileBytes(kGroupQuota));
  EXPECT_THAT(refusal(), HasSubstr("does not begin as a quota file for users does"));
}

TEST_F(QuotaFileOpening, TruncatedFileIsRefusedWithReason) {
  const std::string whole = fileBytes();
  for (std::size_t size = 0; size < whole.size(); ++size) {
    write(whole.substr(0, size));
    EXPECT_THAT(refusal(), AllOf(StartsWith(path() + " has " + std::to_string(size) + " bytes"),
                                 HasSubstr("it is left as it is")));
  }
}

TEST_F(QuotaFileOpening, WithBytesBehindItsEndIsRefused) {
  write(fileBytes() + "x");
  EXPECT_THAT(refusal(), HasSubstr("and not the 1088 that its header says"));
}

TEST_F(QuotaFileOpening, AnyBitOfMagicVersionAndSizeCounts) {
  constexpr std::size_t kByte = 8;
  constexpr std::size_t kBitsThatCount = 12 * kByte;
  for (std::size_t bit = 0; bit < kQuotaSlotSize * kByte; ++bit) {
    std::string bytes = fileBytes();
    bytes[bit / kByte] =
        static_cast<char>(static_cast<unsigned char>(bytes[bit / kByte]) ^ 1U << bit % kByte);
    // Version 0 is one that is known.
    const bool isVersion0 = bit == 7 * kByte;
    write(bytes);
    EXPECT_EQ(refusal().empty(), bit >= kBitsThatCount || isVersion0) << bit;
  }
}

TEST_F(QuotaFileOpening, OddNumbersOfSlotsAreRefused) {
  for (const std::uint32_t slots : {0U, 3U, 0x80000000U, 0xFFFFFFFFU}) {
    QuotaFileHeader header;
    header.magic = quotamagic[kUserQuota];
    header.maxentries = slots;
    const QuotaSlot slot = encodeQuotaHeader(header);
    write(std::string(slot.begin(), slot.end()) + fileBytes().substr(kQuotaSlotSize));
    EXPECT_NE(refusal(), "") << slots;
  }
}

TEST_F(QuotaFileOpening, TheKernelsOwnIsRefused) {
  write(std::string("\x11\x1F\xC0\xD9\x01\0\0\0", 8) + fileBytes().substr(8));
  EXPECT_THAT(refusal(), EndsWith("is the kernel's own quota file, and is left as it is"));
  writeWholeFile(folder_.path(".quota.group"),
                 std::string("\x27\x19\xC0\xD9\x01\0\0\0", 8) + fileBytes().substr(8));
  EXPECT_THAT(refusal(kGroupQuota), HasSubstr("is the kernel's own quota file"));
}

TEST_F(QuotaFileOpening, WhatIsNoRegularFileIsRefused) {
  std::filesystem::create_directory(path());
  EXPECT_THAT(refusal(), StartsWith(path() + " is a folder"));
  std::filesystem::remove(path());
  writeWholeFile(folder_.path("target"), fileBytes());
  std::filesystem::create_symlink("target", path());
  EXPECT_THAT(refusal(), StartsWith(path() + " is a symbolic link, which is not followed"));
  std::filesystem::remove(path());
  ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
  EXPECT_THAT(refusal(), StartsWith(path() + " is not a regular file"));
}

TEST_F(QuotaFileOpening, UnopenableFileSuggestsRunningAsRoot) {
  if (::geteuid() != 0) GTEST_SKIP() << "to become another user needs root";
  write(fileBytes());
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(path().c_str(), 0640), 0);
  ASSERT_EQ(::seteuid(21001), 0);
  const std::string text = refusal();
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(text, "cannot open " + path() + ": Permission denied; run quotascan as root");
}

TEST_F(QuotaFileOpening, OneThatBelongsToAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
  write(fileBytes());
  ASSERT_EQ(::chown(path().c_str(), 21001, 0), 0);
  EXPECT_THAT(refusal(), StartsWith(path() + " belongs to the user 21001 and not to root"));
}

TEST_F(QuotaFileOpening, OneRunAtATimeHasIt) {
  write(fileBytes());
  auto first = open();
  EXPECT_EQ(waits_, 0);
  std::thread other([&] {
    const auto second = open();
    EXPECT_EQ(waits_, 1);
    EXPECT_TRUE(second);
  });
  while (waits_ == 0) std::this_thread::yield();
  first.reset();
  other.join();
}

TEST_F(QuotaFileOpening, WaitForLockOpensCurrentFile) {
  write(fileBytes());
  auto first = open();
  std::optional<QuotaFile> second;
  std::thread other([&] { second = open(); });
  while (waits_ == 0) std::this_thread::yield();
  {
    QuotaFileHeader header = first->header();
    header.flags = 77;
    Replacement replacement(volume_.get(), *first);
    const QuotaSlot slot = encodeQuotaHeader(header);
    const std::string bytes =
        std::string(slot.begin(), slot.end()) + fileBytes().substr(kQuotaSlotSize);
    ASSERT_EQ(::write(replacement.descriptor(), bytes.data(), bytes.size()),
              static_cast<ssize_t>(bytes.size()));
    replacement.putInPlace();
  }
  first.reset();
  other.join();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->header().flags, 77U);
}

TEST_F(QuotaFileOpening, AnotherOneInItsPlaceIsNoticed) {
  write(fileBytes());
  auto file = open();
  EXPECT_NO_THROW(file->checkUnchanged(volume_.get()));
  writeWholeFile(folder_.path("other"), fileBytes());
  std::filesystem::rename(folder_.path("other"), path());
  EXPECT_THROW(file->checkUnchanged(volume_.get()), Failure);
  std::filesystem::remove(path());
  EXPECT_THROW(file->checkUnchanged(volume_.get()), Failure);
}

TEST_F(QuotaFileOpening, DamageThatCameLaterIsNoticed) {
  write(fileBytes());
  auto file = open();
  std::filesystem::resize_file(path(), 100);
  EXPECT_THROW(file->checkUnchanged(volume_.get()), Failure);
}

}  // namespace
}  // namespace paddock::quotascan
