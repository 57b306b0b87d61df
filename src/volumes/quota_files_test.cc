#include "volumes/quota_files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "base/file_access.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"
#include "support/volume_fixture.h"

namespace paddock {

namespace {

class VolumeFiles : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return folder_.path(name); }
  int open(const std::string& name) { return openRegularFile(path(name), file_, owner_); }
  int create(const std::string& name) { return createFile(path(name), 0640, file_); }

  TestFolder folder_;
  FileDescriptor file_;
  uid_t owner_ = 12345;
};

TEST_F(VolumeFiles, ARegularFileIsOpenedWithItsOwner) {
  writeWholeFile(path("file"), "x");
  EXPECT_EQ(open("file"), 0);
  ASSERT_TRUE(file_);
  EXPECT_EQ(owner_, ::geteuid());
  EXPECT_NE(::fcntl(file_.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(VolumeFiles, NothingElseIsOpened) {
  writeWholeFile(path("file"), "x");
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink("file", path("link"));
  std::filesystem::create_symlink("missing", path("dangling"));
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(open("missing"), ENOENT);
  EXPECT_EQ(open("folder"), EISDIR);
  EXPECT_EQ(open("link"), ELOOP);
  EXPECT_EQ(open("dangling"), ELOOP);
  EXPECT_EQ(open("fifo"), EINVAL);
  EXPECT_EQ(openRegularFile("/dev/null", file_, owner_), EINVAL);
  EXPECT_FALSE(file_);
}

TEST_F(VolumeFiles, NewFileIsEmptyAndWritable) {
  EXPECT_EQ(create("new"), 0);
  ASSERT_TRUE(file_);
  EXPECT_EQ(std::filesystem::file_size(path("new")), 0U);
  EXPECT_EQ(::write(file_.get(), "x", 1), 1);
  EXPECT_NE(::fcntl(file_.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(VolumeFiles, WhatHasTheNameStaysAsItIs) {
  writeWholeFile(path("file"), "contents");
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink("elsewhere", path("dangling"));
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  for (const char* name : {"file", "folder", "dangling", "fifo"}) {
    EXPECT_EQ(create(name), EEXIST) << name;
  }
  EXPECT_EQ(readWholeFile(path("file")), "contents");
  EXPECT_FALSE(std::filesystem::exists(path("elsewhere")));
  EXPECT_EQ(createFile(path("missing/new"), 0640, file_), ENOENT);
}

TEST_F(VolumeFiles, ANameIsTakenByAnythingAtAll) {
  std::filesystem::create_symlink("elsewhere", path("dangling"));
  std::filesystem::create_directory(path("folder"));
  EXPECT_TRUE(isTaken(path("dangling")));
  EXPECT_TRUE(isTaken(path("folder")));
  EXPECT_FALSE(isTaken(path("missing")));
  writeWholeFile(path("file"), "");
  EXPECT_TRUE(isRegularFile(path("file")));
  EXPECT_FALSE(isRegularFile(path("folder")));
  EXPECT_FALSE(isRegularFile(path("dangling")));
}

TEST_F(VolumeFiles, APathWithANulNamesNothing) {
  writeWholeFile(path("file"), "");
  const std::string withNul = path("file") + std::string("\0x", 2);
  EXPECT_EQ(openRegularFile(withNul, file_, owner_), EINVAL);
  EXPECT_EQ(createFile(path("new") + std::string("\0x", 2), 0640, file_), EINVAL);
  EXPECT_FALSE(std::filesystem::exists(path("new")));
  EXPECT_FALSE(isTaken(withNul));
  EXPECT_FALSE(isRegularFile(withNul));
}

TEST_F(VolumeFiles, AReadOnlyVolumeTakesNoNewFile) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    bindMount(folder_.path(), folder_.path());
    ASSERT_EQ(::mount("", folder_.path().c_str(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, ""), 0);
    EXPECT_EQ(create("new"), EROFS);
  });
}

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// What a call wrote to standard error.
template <typename Call>
std::string errorOutputOf(Call call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

class QuotaFileCreation : public VolumeFixture {
 protected:
  int create(QuotaType type = kUserQuota) const { return qfcreate(root(), type); }
  LeftOpen leftOpen_;
};

// The header of a table of 2048 slots, hand-encoded.
const unsigned char kFreshUserHeader[] = {
    0xFF, 0x31, 0xFF, 0x35, 0,   0,   0,   1,   0,   0,   0x08, 0,    0,   0,   0,    0,  //
    0,    0,    0,    0,    0,   0,   0,   0,   0,   9,   0x3A, 0x80, 0,   9,   0x3A, 0x80,
    'Q',  'U',  'O',  'T',  'A', ' ', 'H', 'A', 'S', 'H', ' ',  'F',  'I', 'L', 'E',  0,
    0,    0,    0,    0,    0,   0,   0,   0,   0,   0,   0,    0,    0,   0,   0,    0};

std::string freshUserFile() {
  std::string bytes(reinterpret_cast<const char*>(kFreshUserHeader), sizeof kFreshUserHeader);
  return bytes + std::string(std::size_t{2048} * 64, '\0');
}

TEST_F(QuotaFileCreation, VolumeOfOneGibibyteGetsExactSmallestTable) {
  EXPECT_EQ(create(), 0);
  EXPECT_EQ(std::filesystem::file_size(userFile()), 131'136U);
  EXPECT_EQ(readWholeFile(userFile()), freshUserFile());
}

TEST_F(QuotaFileCreation, FileBelongsToProcessUserAndGroupEighty) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file to another group needs root";
  const mode_t before = ::umask(0077);
  EXPECT_EQ(create(), 0);
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(userFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, ::getuid());
  EXPECT_EQ(status.st_gid, 80U);
  EXPECT_EQ(status.st_mode, S_IFREG | 0640U);
}

TEST_F(QuotaFileCreation, LargerVolumesGetLargerTables) {
  setSize(12);
  EXPECT_EQ(create(), 0);
  EXPECT_EQ(std::filesystem::file_size(userFile()), 4097U * 64U);
  EXPECT_EQ(create(kGroupQuota), 0);
  EXPECT_EQ(std::filesystem::file_size(groupFile()), 2049U * 64U);
  std::filesystem::remove(userFile());
  setSize(10'000);
  EXPECT_EQ(create(), 0);
  EXPECT_EQ(std::filesystem::file_size(userFile()), 2'097'153U * 64U);
}

TEST_F(QuotaFileCreation, AGroupFileHasItsOwnMagic) {
  EXPECT_EQ(create(kGroupQuota), 0);
  EXPECT_EQ(readWholeFile(groupFile()).substr(0, 4), "\xFF\x31\xFF\x27");
}

TEST_F(QuotaFileCreation, AnotherTypeGetsAFileWithoutSlots) {
  EXPECT_EQ(create(2), 0);
  EXPECT_EQ(std::filesystem::file_size(path(".quota.undefined")), 64U);
}

TEST_F(QuotaFileCreation, PathOtherThanMountPointIsSkipped) {
  std::filesystem::create_directory(path("folder"));
  EXPECT_EQ(qfcreate(path("folder"), kUserQuota), 0);
  EXPECT_EQ(qfcreate(root() + "/", kUserQuota), 0);
  EXPECT_EQ(qfcreate("", kUserQuota), 0);
  EXPECT_EQ(qfcreate("relative", kUserQuota), 0);
  EXPECT_TRUE(std::filesystem::is_empty(path("folder")));
  EXPECT_FALSE(std::filesystem::exists(userFile()));
  EXPECT_THAT(leftOpen_.numbers(), IsEmpty());
}

TEST_F(QuotaFileCreation, AFileThatIsThereIsLeftUntouched) {
  writeWholeFile(userFile(), "limits that somebody set");
  ASSERT_EQ(::chmod(userFile().c_str(), 0604), 0);
  EXPECT_EQ(create(), 0);
  EXPECT_EQ(readWholeFile(userFile()), "limits that somebody set");
  struct stat status {};
  ASSERT_EQ(::stat(userFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0604U);
}

TEST_F(QuotaFileCreation, DescriptorStaysOpenUntilExec) {
  create();
  EXPECT_THAT(leftOpen_.paths(), ElementsAre(userFile()));
  create();
  EXPECT_THAT(leftOpen_.paths(), ElementsAre(userFile(), userFile()));
}

TEST_F(QuotaFileCreation, WithoutVolumesItFails) {
  volumes.setTableError(EMFILE);
  EXPECT_EQ(create(), -1);
  volumes.setTableError(0);
  volumes.unmount(root());
  volumes.unmount("/");
  EXPECT_EQ(create(), -1);
  EXPECT_FALSE(std::filesystem::exists(userFile()));
}

TEST_F(QuotaFileCreation, CreationFailureIsReportedWithItsPath) {
  std::filesystem::create_directory(userFile());
  EXPECT_EQ(errorOutputOf([this] { EXPECT_EQ(create(), 0); }),
            userFile() + ": " + std::strerror(EEXIST) + "\n");
  EXPECT_TRUE(std::filesystem::is_empty(userFile()));
  EXPECT_THAT(leftOpen_.numbers(), IsEmpty());
}

TEST_F(QuotaFileCreation, EachVolumeThatIsMountedThereIsTried) {
  std::filesystem::create_directory(userFile());
  volumes.mount({root(), "/dev/sdz2", "ext4"});
  const std::string line = userFile() + ": " + std::strerror(EEXIST) + "\n";
  EXPECT_EQ(errorOutputOf([this] { EXPECT_EQ(create(), 0); }), line + line);
}

TEST_F(QuotaFileCreation, ALinkIsNotFollowedWhereverItLeads) {
  writeWholeFile(path("precious"), "contents");
  for (const char* target : {"precious", "new"}) {
    std::filesystem::remove(userFile());
    std::filesystem::create_symlink(target, userFile());
    EXPECT_THAT(errorOutputOf([this] { EXPECT_EQ(create(), 0); }), HasSubstr(userFile()));
  }
  EXPECT_EQ(readWholeFile(path("precious")), "contents");
  EXPECT_FALSE(std::filesystem::exists(path("new")));
}

TEST_F(QuotaFileCreation, APipeIsNeitherWaitedForNorChanged) {
  ASSERT_EQ(::mkfifo(userFile().c_str(), 0606), 0);
  ASSERT_EQ(::chmod(userFile().c_str(), 0606), 0);
  EXPECT_THAT(errorOutputOf([this] { EXPECT_EQ(create(), 0); }), HasSubstr(userFile()));
  struct stat status {};
  ASSERT_EQ(::lstat(userFile().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFIFO | 0606U);
  EXPECT_THAT(leftOpen_.numbers(), IsEmpty());
}

TEST_F(QuotaFileCreation, VolumeOfUnknownSizeGetsNone) {
  volumes.setError(root(), EIO);
  EXPECT_EQ(errorOutputOf([this] { EXPECT_EQ(create(), 0); }),
            userFile() + ": " + std::strerror(EIO) + "\n");
  EXPECT_FALSE(std::filesystem::exists(userFile()));
}

TEST_F(QuotaFileCreation, VanishedFolderIsSkippedSilently) {
  volumes.mount({path("gone"), "/dev/sdz2", "ext4"});
  EXPECT_EQ(errorOutputOf([this] { EXPECT_EQ(qfcreate(path("gone"), kUserQuota), 0); }), "");
  EXPECT_THAT(leftOpen_.numbers(), IsEmpty());
}

TEST_F(QuotaFileCreation, PathExceedingBufferIsRefusedNotTruncated) {
  // With "/.quota.user" 512 bytes, which leaves no room for the end; the folder above is there.
  std::string longPath = root();
  while (longPath.size() + 101 < 500) longPath += "/" + std::string(100, 'd');
  longPath += "/" + std::string(500 - longPath.size() - 1, 'e');
  ASSERT_EQ(longPath.size(), 500U);
  std::filesystem::create_directories(longPath);
  volumes.mount({longPath, "/dev/sdz2", "ext4"});
  EXPECT_THAT(errorOutputOf([&] { EXPECT_EQ(qfcreate(longPath, kUserQuota), 0); }),
              HasSubstr(std::strerror(ENAMETOOLONG)));
  EXPECT_TRUE(std::filesystem::is_empty(longPath));
}

// An open file of this host's order, as qflookup and qfupdate read it.
class QuotaFileSearch : public testing::Test {
 protected:
  static constexpr std::uint32_t kSlots = 16;

  QuotaFileSearch() {
    writeWholeFile(path(), std::string((kSlots + 1) * kQuotaSlotSize, '\0'));
    file_ = FileDescriptor(::open(path().c_str(), O_RDWR | O_CLOEXEC));
    writeHeader(0xFF31FF35, 1, kSlots);
  }

  std::string path() const { return folder_.path("quota"); }
  void writeWord(std::uint64_t offset, std::uint32_t word) const {
    ASSERT_EQ(::pwrite(file_.get(), &word, sizeof word, static_cast<off_t>(offset)), 4);
  }
  void writeHeader(std::uint32_t magic, std::uint32_t version, std::uint32_t maxentries) const {
    writeWord(0, magic);
    writeWord(4, version);
    writeWord(8, maxentries);
  }
  void putId(std::uint32_t slot, std::uint32_t id) const {
    writeWord(quotaSlotOffset(slot) + kQuotaIdOffset, id);
  }
  std::uint32_t idAt(std::uint32_t slot) const {
    std::uint32_t id = 0;
    const auto offset = static_cast<off_t>(quotaSlotOffset(slot) + kQuotaIdOffset);
    EXPECT_EQ(::pread(file_.get(), &id, sizeof id, offset), 4);
    return id;
  }
  static std::uint32_t idOf(const QuotaSlot& slot) {
    std::uint32_t id = 0;
    std::memcpy(&id, slot.data() + kQuotaIdOffset, sizeof id);
    return id;
  }
  int lookup(std::uint32_t id, QuotaType type = kUserQuota) {
    return qflookup(file_.get(), id, type, entry_);
  }
  int update(std::uint32_t id, QuotaType type = kUserQuota) {
    return qfupdate(file_.get(), id, type, entry_);
  }
  // The slots that id 1 tries: 9, 0, 7, 14, 5, 12, 3, 10, 1, 8, 15, 6, 13, 4, 11; never 2.
  void fillAll() const {
    for (std::uint32_t slot = 0; slot < kSlots; ++slot) putId(slot, 1000 + slot);
  }

  TestFolder folder_;
  FileDescriptor file_;
  QuotaSlot entry_{};
};

TEST_F(QuotaFileSearch, AnEntryIsFoundWhereTheHashSays) {
  putId(9, 1);
  EXPECT_EQ(lookup(1), 0);
  EXPECT_EQ(idOf(entry_), 1U);
}

TEST_F(QuotaFileSearch, AnEntryIsFoundBehindOthers) {
  putId(9, 17);
  putId(0, 18);
  putId(7, 1);
  ASSERT_EQ(::pwrite(file_.get(), "bytes", 5, static_cast<off_t>(quotaSlotOffset(7))), 5);
  EXPECT_EQ(lookup(1), 0);
  EXPECT_EQ(idOf(entry_), 1U);
  EXPECT_EQ(std::memcmp(entry_.data(), "bytes", 5), 0) << "as it stands in the file";
}

TEST_F(QuotaFileSearch, AFreeSlotEndsTheSearch) {
  putId(9, 17);
  putId(7, 1);
  EXPECT_EQ(lookup(1), 0);
  EXPECT_EQ(entry_, QuotaSlot{});
}

TEST_F(QuotaFileSearch, TheStopSlotIsNeverExamined) {
  fillAll();
  putId(2, 1);
  EXPECT_EQ(lookup(1), 0);
  EXPECT_EQ(idOf(entry_), 1011U) << "the last slot that was read";
  putId(2, 0);
  EXPECT_EQ(update(1), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(idAt(2), 0U);
}

TEST_F(QuotaFileSearch, IdZeroIsNeverLookedUpOrStored) {
  entry_.fill(7);
  const std::string before = readWholeFile(path());
  EXPECT_EQ(update(0), 0);
  EXPECT_EQ(readWholeFile(path()), before);
  EXPECT_EQ(lookup(0), 0);
  EXPECT_EQ(entry_, QuotaSlot{});
  // Not even a header is read.
  writeHeader(0, 0, 0);
  EXPECT_EQ(lookup(0), 0);
  EXPECT_EQ(update(0), 0);
}

TEST_F(QuotaFileSearch, UpdateWritesOwnSlotWithItsId) {
  putId(9, 17);
  putId(0, 1);
  entry_.fill(7);
  EXPECT_EQ(update(1), 0);
  EXPECT_EQ(idOf(entry_), 1U) << "the caller's entry gets the id";
  EXPECT_EQ(idAt(0), 1U);
  EXPECT_EQ(idAt(9), 17U);
  EXPECT_EQ(readWholeFile(path()).substr(quotaSlotOffset(0), 3), "\7\7\7");
}

TEST_F(QuotaFileSearch, UpdateOfNewIdTakesFreeSlot) {
  putId(9, 17);
  EXPECT_EQ(update(0x80000001), 0);
  EXPECT_EQ(update(0xFFFFFFFF), 0);
  EXPECT_EQ(update(1), 0);
  for (const std::uint32_t id : {0x80000001U, 0xFFFFFFFFU, 1U}) {
    EXPECT_EQ(lookup(id), 0);
    EXPECT_EQ(idOf(entry_), id);
  }
}

TEST_F(QuotaFileSearch, FullTableIsSearchedToEndAndReported) {
  fillAll();
  errno = 0;
  const std::string before = readWholeFile(path());
  EXPECT_EQ(update(1), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(readWholeFile(path()), before);
  EXPECT_EQ(lookup(1), 0);
}

TEST_F(QuotaFileSearch, InvalidHeaderIsRefusedWithBothCodes) {
  const struct {
    std::uint32_t magic, version, maxentries;
    QuotaType type;
  } headers[] = {{0xFF31FF27, 1, kSlots, kUserQuota},  {0xFF31FF35, 2, kSlots, kUserQuota},
                 {0xFF31FF35, 1, 0, kUserQuota},       {0xFF31FF35, 1, 15, kUserQuota},
                 {0xFF31FF35, 1, kSlots, kGroupQuota}, {0xFF31FF35, 1, kSlots, 2}};
  for (const auto& header : headers) {
    writeHeader(header.magic, header.version, header.maxentries);
    EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(lookup(1, header.type), -1); }),
              "quota: invalid quota file header\n");
    EXPECT_EQ(errorOutputOf([&] { EXPECT_EQ(update(1, header.type), 22); }),
              "quota: invalid quota file header\n");
  }
}

TEST_F(QuotaFileSearch, VersionZeroIsAccepted) {
  writeHeader(0xFF31FF35, 0, kSlots);
  EXPECT_EQ(lookup(1), 0);
}

TEST_F(QuotaFileSearch, InitialisedFileIsRefusedOnLittleEndianHost) {
  const std::uint16_t one = 1;
  if (*reinterpret_cast<const std::uint8_t*>(&one) == 0) GTEST_SKIP() << "a big-endian host";
  ASSERT_EQ(qfinit(file_.get(), {"ufs", 4096, 1, 1}, kUserQuota), 0);
  EXPECT_EQ(errorOutputOf([this] { EXPECT_EQ(lookup(1), -1); }),
            "quota: invalid quota file header\n");
  EXPECT_EQ(errorOutputOf([this] { EXPECT_EQ(update(1), 22); }),
            "quota: invalid quota file header\n");
}

TEST_F(QuotaFileSearch, TruncatedFileIsNeverReadBeyondItsEnd) {
  fillAll();
  putId(11, 1);  // the last slot that is tried
  for (off_t length = (kSlots + 1) * kQuotaSlotSize; length > 0; --length) {
    ASSERT_EQ(::ftruncate(file_.get(), length), 0);
    const bool whole = length == static_cast<off_t>((kSlots + 1) * kQuotaSlotSize);
    EXPECT_EQ(lookup(1), whole ? 0 : -1) << length;
    entry_ = {};
    EXPECT_EQ(update(1), whole ? 0 : -1) << length;
  }
  ASSERT_EQ(::ftruncate(file_.get(), 0), 0);
  EXPECT_EQ(errorOutputOf([this] { EXPECT_EQ(lookup(1), -1); }), "");
}

TEST_F(QuotaFileSearch, LargestTableInSmallFileEndsAtOnce) {
  writeHeader(0xFF31FF35, 1, 0x80000000);
  EXPECT_EQ(lookup(0xFFFFFFF1), -1);
  EXPECT_EQ(update(0xFFFFFFF1), -1);
}

TEST_F(QuotaFileSearch, ATableOfOneSlotIsFull) {
  writeHeader(0xFF31FF35, 1, 1);
  EXPECT_EQ(lookup(1), 0);
  EXPECT_EQ(entry_, QuotaSlot{});
  EXPECT_EQ(update(1), -1);
  EXPECT_EQ(errno, ENOSPC);
}

TEST_F(QuotaFileSearch, UnreadableOrUnwritableDescriptorFails) {
  EXPECT_EQ(qflookup(-1, 1, kUserQuota, entry_), -1);
  EXPECT_EQ(qfupdate(-1, 1, kUserQuota, entry_), -1);
  const FileDescriptor readOnly(::open(path().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(qfupdate(readOnly.get(), 1, kUserQuota, entry_), -1);
  const FileDescriptor writeOnly(::open(path().c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(qflookup(writeOnly.get(), 1, kUserQuota, entry_), -1);
  EXPECT_EQ(qfupdate(writeOnly.get(), 1, kUserQuota, entry_), -1);
}

TEST(QuotaFileInitialising, FailuresAreIgnored) {
  EXPECT_EQ(qfinit(-1, {"ufs", 4096, 1000, 1000}, kUserQuota), 0);
  const FileDescriptor full(::open("/dev/full", O_RDWR | O_CLOEXEC));
  EXPECT_EQ(qfinit(full.get(), {"ufs", 4096, 1000, 1000}, kUserQuota), 0);
}

TEST(QuotaFileInitialising, AFileThatIsLongerIsCut) {
  const TestFolder folder;
  writeWholeFile(folder.path("quota"), std::string(200'000, 'x'));
  const FileDescriptor file(::open(folder.path("quota").c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_EQ(qfinit(file.get(), {"ufs", 4096, 1000, 1000}, kUserQuota), 0);
  EXPECT_EQ(std::filesystem::file_size(folder.path("quota")), 131'136U);
  EXPECT_EQ(readWholeFile(folder.path("quota")).substr(0, 64), freshUserFile().substr(0, 64));
}

}  // namespace

}  // namespace paddock
