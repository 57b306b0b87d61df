#include "base/file_access.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <system_error>

#include "base/system_call.h"
#include "support/temporary_folder.h"

namespace paddock {

namespace {

bool isOpen(int number) { return ::fcntl(number, F_GETFD) != -1; }

TEST(FileDescriptor, ClosesAtTheEndOfItsScope) {
  int number = -1;
  {
    const FileDescriptor descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    number = descriptor.get();
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptor, MovingHandsTheDescriptorOn) {
  FileDescriptor first(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int number = first.get();
  FileDescriptor second(std::move(first));
  EXPECT_EQ(second.get(), number);
  FileDescriptor third(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const int replaced = third.get();
  third = std::move(second);
  EXPECT_FALSE(isOpen(replaced));
  EXPECT_EQ(third.get(), number);
}

TEST(FileDescriptor, ClosingKeepsErrno) {
  FileDescriptor descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  ASSERT_TRUE(descriptor);
  ASSERT_EQ(::close(descriptor.get()), 0);
  errno = ENOENT;
  descriptor.reset();
  EXPECT_EQ(errno, ENOENT);
}

TEST(SystemCall, OnlyInterruptedCallsAreRetried) {
  int calls = 0;
  EXPECT_EQ(retryOnInterrupt([&calls] {
              errno = EINTR;
              return ++calls < 3 ? -1 : 7;
            }),
            7);
  calls = 0;
  EXPECT_EQ(retryOnInterrupt([&calls] {
              ++calls;
              errno = EIO;
              return -1;
            }),
            -1);
  EXPECT_EQ(calls, 1);
}

TEST(SystemCall, ErrorsCarryOperationPathAndErrno) {
  const auto error = systemError(ENOENT, "open", "/no/such/file");
  EXPECT_EQ(error.code().value(), ENOENT);
  EXPECT_STREQ(error.what(), "open /no/such/file: No such file or directory");
}

class FileAccess : public testing::Test {
 protected:
  template <typename Action>
  static int errorOf(Action action) {
    try {
      action();
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }
  FileDescriptor open() const {
    return FileDescriptor(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }

  TestFolder folder_;
};

TEST_F(FileAccess, ReadsAFileWholeUpToALimit) {
  const std::string text(200000, 'x');
  writeWholeFile(folder_.path("file"), text);
  EXPECT_EQ(readSmallFile(folder_.path("file"), 200000), text);
  EXPECT_EQ(errorOf([this] { readSmallFile(folder_.path("file"), 199999); }), EFBIG);
}

TEST_F(FileAccess, MissingFileReturnsNothingButFolderFails) {
  EXPECT_EQ(readSmallFile(folder_.path("missing"), 10), std::nullopt);
  EXPECT_EQ(readSmallFile(folder_.path("missing/file"), 10), std::nullopt);
  EXPECT_EQ(errorOf([this] { readSmallFile(folder_.path(), 10); }), EINVAL);
}

TEST_F(FileAccess, AFifoIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo((folder_.path("fifo")).c_str(), 0600), 0);
  EXPECT_EQ(errorOf([this] { readSmallFile(folder_.path("fifo"), 10); }), EINVAL);
}

TEST_F(FileAccess, ReplacingLeavesOneCompleteFileOfTheMode) {
  writeWholeFile(folder_.path("file"), "old");
  writeWholeFile(folder_.path(".file.new"), "left behind by a killed process");
  const auto folder = open();
  replaceFile(folder.get(), "file", "new", 0600);
  EXPECT_EQ(readWholeFile(folder_.path("file")), "new");
  EXPECT_EQ(modeOf(folder_.path("file")), 0600U);
  EXPECT_FALSE(std::filesystem::exists(folder_.path(".file.new")));
}

TEST_F(FileAccess, AFailedReplacementLeavesTheOldFile) {
  std::filesystem::create_directories(folder_.path("file/in/the/way"));
  const auto folder = open();
  EXPECT_NE(errorOf([&] { replaceFile(folder.get(), "file", "new", 0600); }), 0);
  EXPECT_TRUE(std::filesystem::exists(folder_.path("file/in/the/way")));
  EXPECT_FALSE(std::filesystem::exists(folder_.path(".file.new")));
}

TEST_F(FileAccess, AFullDiskLeavesTheOldFile) {
  writeWholeFile(folder_.path("file"), "old");
  const auto folder = open();
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto previous = ::signal(SIGXFSZ, SIG_IGN);
  rlimit tight = before;
  tight.rlim_cur = 1000;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  const int error =
      errorOf([&] { replaceFile(folder.get(), "file", std::string(5000, 'x'), 0600); });
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, previous);
  EXPECT_EQ(error, EFBIG);
  EXPECT_EQ(readWholeFile(folder_.path("file")), "old");
  EXPECT_FALSE(std::filesystem::exists(folder_.path(".file.new")));
}

TEST_F(FileAccess, OwnFolderIsCreatedWithMissingParents) {
  EXPECT_TRUE(openOwnFolder(folder_.path("var/lib/own"), 0700));
  EXPECT_EQ(modeOf(folder_.path("var/lib/own")), 0700U);
  EXPECT_EQ(modeOf(folder_.path("var/lib")), 0755U);
  EXPECT_TRUE(openOwnFolder(folder_.path("var/lib/own"), 0700));
}

TEST_F(FileAccess, SymlinkedOrOpenFolderIsRefused) {
  std::filesystem::create_directory(folder_.path("real"));
  std::filesystem::create_directory_symlink(folder_.path("real"), folder_.path("link"));
  EXPECT_NE(errorOf([this] { openOwnFolder(folder_.path("link"), 0700); }), 0);
  std::filesystem::permissions(folder_.path("real"), std::filesystem::perms::all);
  EXPECT_EQ(errorOf([this] { openOwnFolder(folder_.path("real"), 0700); }), EPERM);
  writeWholeFile(folder_.path("file"), "");
  EXPECT_EQ(errorOf([this] { openOwnFolder(folder_.path("file"), 0700); }), ENOTDIR);
}

}  // namespace

}  // namespace paddock
