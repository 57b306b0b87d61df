#include "quotascan/replacement.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <optional>

#include "quotascan/quotascan_failure.h"
#include "support/temporary_folder.h"

namespace paddock::quotascan {
namespace {

using ::testing::StartsWith;

class QuotaFileReplacement : public ::testing::Test {
 protected:
  void SetUp() override {
    QuotaFileHeader header;
    header.magic = quotamagic[kUserQuota];
    header.maxentries = 1;
    const QuotaSlot slot = encodeQuotaHeader(header);
    old_ = std::string(slot.begin(), slot.end()) + std::string(kQuotaSlotSize, '\0');
    writeWholeFile(path(), old_);
    file_ = QuotaFile::open(volume_.get(), folder_.path(), kUserQuota, {});
  }
  std::string path() const { return folder_.path(".quota.user"); }
  std::string newPath() const { return folder_.path(".quota.user.quotascan"); }
  static void write(const Replacement& replacement, const std::string& text) {
    ASSERT_EQ(::write(replacement.descriptor(), text.data(), text.size()),
              static_cast<ssize_t>(text.size()));
  }

  TestFolder folder_;
  FileDescriptor volume_{::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY)};
  std::string old_;
  std::optional<QuotaFile> file_;
};

TEST_F(QuotaFileReplacement, TakesThePlaceOfTheFile) {
  {
    Replacement replacement(volume_.get(), *file_);
    write(replacement, "new");
    EXPECT_EQ(readWholeFile(path()), old_);
    replacement.putInPlace();
  }
  EXPECT_EQ(readWholeFile(path()), "new");
  EXPECT_FALSE(std::filesystem::exists(newPath()));
}

TEST_F(QuotaFileReplacement, IsRemovedUnlessPutInPlace) {
  {
    const Replacement replacement(volume_.get(), *file_);
    write(replacement, "new");
    EXPECT_TRUE(std::filesystem::exists(newPath()));
  }
  EXPECT_FALSE(std::filesystem::exists(newPath()));
  EXPECT_EQ(readWholeFile(path()), old_);
}

TEST_F(QuotaFileReplacement, KeepsOwnerModeAndAttributesOfFile) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
  ASSERT_EQ(::chown(path().c_str(), 0, 80), 0);
  ASSERT_EQ(::chmod(path().c_str(), 0640), 0);
  const std::string name = "user.paddock.browserinfo";
  const bool hasAttributes = ::setxattr(path().c_str(), name.c_str(), "hidden", 6, 0) == 0;
  ASSERT_TRUE(hasAttributes || errno == EOPNOTSUPP);
  {
    Replacement replacement(volume_.get(), *file_);
    replacement.putInPlace();
  }
  struct stat status {};
  ASSERT_EQ(::stat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 0U);
  EXPECT_EQ(status.st_gid, 80U);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  if (!hasAttributes) GTEST_SKIP() << "the test's file system keeps no extended attributes";
  std::array<char, 16> value{};
  EXPECT_EQ(::getxattr(path().c_str(), name.c_str(), value.data(), value.size()), 6);
  EXPECT_STREQ(value.data(), "hidden");
}

TEST_F(QuotaFileReplacement, RemovesLeftoverOfKilledRun) {
  writeWholeFile(newPath(), "left over");
  const Replacement replacement(volume_.get(), *file_);
  EXPECT_EQ(readWholeFile(newPath()), "");
}

TEST_F(QuotaFileReplacement, SaysWhatIsInItsWay) {
  std::filesystem::create_directory(newPath());
  try {
    const Replacement replacement(volume_.get(), *file_);
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), StartsWith("cannot write " + newPath() + ": File exists"));
  }
  EXPECT_TRUE(std::filesystem::is_directory(newPath()));
}

volatile std::sig_atomic_t gSignals = 0;

TEST_F(QuotaFileReplacement, TerminationSignalsAreHeldUntilEnd) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { gSignals = gSignals + 1; };
  ASSERT_EQ(::sigaction(SIGTERM, &action, &before), 0);
  {
    const Replacement replacement(volume_.get(), *file_);
    ::raise(SIGTERM);
    EXPECT_EQ(gSignals, 0);
  }
  EXPECT_EQ(gSignals, 1);
  ASSERT_EQ(::sigaction(SIGTERM, &before, nullptr), 0);
}

}  // namespace
}  // namespace paddock::quotascan
