#include "quotascan/volume_scan.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <thread>

#include "base/file_access.h"
#include "quotascan/quotascan_failure.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock::quotascan {
namespace {

using ::testing::HasSubstr;

constexpr std::uint32_t kAnna = 21001;
constexpr std::uint32_t kBert = 21002;
constexpr std::uint32_t kStaff = 22001;

FileDescriptor openFolder(const std::string& path) {
  return FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

Counts countOf(const std::string& path, const WalkOptions& options = {}) {
  std::atomic<std::uint64_t> objects = 0;
  const FileDescriptor folder = openFolder(path);
  Counts counts = countUsage(folder.get(), options, objects);
  EXPECT_EQ(objects, counts.objects);
  return counts;
}

Usage usageOf(const UsageTable& table, std::uint32_t id) {
  const auto found = table.map().find(id);
  return found == table.map().end() ? Usage() : found->second;
}

std::uint64_t allocated(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return static_cast<std::uint64_t>(status.st_blocks) * 512;
}

void give(const std::string& path, std::uint32_t owner, std::uint32_t group = 0) {
  ASSERT_EQ(::lchown(path.c_str(), owner, group), 0) << path;
}

// A file of so many bytes.
void makeFile(const std::string& path, std::size_t size, std::uint32_t owner,
              std::uint32_t group = 0) {
  writeWholeFile(path, std::string(size, 'x'));
  give(path, owner, group);
}

void makeFolder(const std::string& path, std::uint32_t owner, std::uint32_t group = 0) {
  std::filesystem::create_directory(path);
  give(path, owner, group);
}

class TreeWalk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
  }
  TestFolder folder_;
};

TEST_F(TreeWalk, CountsEachObjectForOwnerAndGroup) {
  makeFolder(folder_.path("a"), kAnna, kStaff);
  makeFile(folder_.path("a/f"), 100'000, kAnna, kStaff);
  makeFile(folder_.path("b"), 5'000, kBert, kStaff);
  const Counts counts = countOf(folder_.path());
  EXPECT_EQ(counts.objects, 4U);
  EXPECT_EQ(usageOf(counts.users, kAnna),
            (Usage{allocated(folder_.path("a")) + allocated(folder_.path("a/f")), 2}));
  EXPECT_EQ(usageOf(counts.users, kBert), (Usage{allocated(folder_.path("b")), 1}));
  EXPECT_EQ(usageOf(counts.groups, kStaff).files, 3U);
  EXPECT_GE(usageOf(counts.groups, kStaff).bytes, 105'000U);
}

TEST_F(TreeWalk, CountsTheHighestFolderToo) {
  give(folder_.path(), kAnna);
  const Counts counts = countOf(folder_.path());
  EXPECT_EQ(counts.objects, 1U);
  EXPECT_EQ(usageOf(counts.users, kAnna), (Usage{allocated(folder_.path()), 1}));
}

TEST_F(TreeWalk, CountsWhatIsAllocatedAndNotTheLength) {
  makeFile(folder_.path("sparse"), 1, kAnna);
  std::filesystem::resize_file(folder_.path("sparse"), 1U << 30U);
  const Usage usage = usageOf(countOf(folder_.path()).users, kAnna);
  EXPECT_EQ(usage.bytes, allocated(folder_.path("sparse")));
  EXPECT_LT(usage.bytes, 1U << 20U);
}

TEST_F(TreeWalk, CountsAnInodeWithSeveralLinksOnce) {
  for (int number = 0; number < 50; ++number) {
    makeFolder(folder_.path("d" + std::to_string(number)), kBert);
  }
  makeFile(folder_.path("f"), 5'000, kAnna);
  for (int number = 0; number < 50; ++number) {
    const std::string link = folder_.path("d" + std::to_string(number) + "/link");
    std::filesystem::create_hard_link(folder_.path("f"), link);
  }
  const Counts counts = countOf(folder_.path());
  EXPECT_EQ(usageOf(counts.users, kAnna), (Usage{allocated(folder_.path("f")), 1}));
  EXPECT_EQ(counts.objects, 52U);
}

TEST_F(TreeWalk, CountsInodeWithOutsideLinksOnce) {
  const TestFolder outside;
  makeFile(folder_.path("f"), 5'000, kAnna);
  std::filesystem::create_hard_link(folder_.path("f"), outside.path("f"));
  EXPECT_EQ(usageOf(countOf(folder_.path()).users, kAnna).files, 1U);
}

TEST_F(TreeWalk, CountsSymlinkRatherThanItsTarget) {
  const TestFolder outside;
  makeFile(outside.path("f"), 5'000, kBert);
  std::filesystem::create_directory_symlink(outside.path(), folder_.path("away"));
  std::filesystem::create_directory_symlink("..", folder_.path("up"));
  std::filesystem::create_symlink(outside.path("f"), folder_.path("file"));
  for (const char* name : {"away", "up", "file"}) give(folder_.path(name), kAnna);
  const Counts counts = countOf(folder_.path());
  EXPECT_EQ(usageOf(counts.users, kAnna).files, 3U);
  EXPECT_EQ(usageOf(counts.users, kBert), Usage());
  EXPECT_EQ(counts.objects, 4U);
}

TEST_F(TreeWalk, CountsObjectsOfEveryType) {
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(::mknod(folder_.path("device").c_str(), S_IFCHR | 0600, makedev(1, 3)), 0);
  ASSERT_EQ(::mknod(folder_.path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
  for (const char* name : {"fifo", "device", "socket"}) give(folder_.path(name), kAnna);
  EXPECT_EQ(usageOf(countOf(folder_.path()).users, kAnna).files, 3U);
}

TEST_F(TreeWalk, IgnoresNamesOnlyInTopFolder) {
  makeFolder(folder_.path("d"), kBert);
  makeFile(folder_.path(".quota.user"), 5'000, kAnna);
  makeFile(folder_.path("d/.quota.user"), 5'000, kAnna);
  WalkOptions options;
  options.ignored = {".quota.user"};
  const Counts counts = countOf(folder_.path(), options);
  EXPECT_EQ(usageOf(counts.users, kAnna), (Usage{allocated(folder_.path("d/.quota.user")), 1}));
}

TEST_F(TreeWalk, CountsTheSameWithAnyNumberOfThreads) {
  for (int number = 0; number < 300; ++number) {
    const std::string path = folder_.path("d" + std::to_string(number % 20));
    std::filesystem::create_directories(path + "/e");
    makeFile(path + "/e/f" + std::to_string(number), 100,
             kAnna + static_cast<unsigned>(number % 7));
  }
  WalkOptions options;
  options.threads = 1;
  const Counts alone = countOf(folder_.path(), options);
  EXPECT_EQ(alone.objects, 1U + 20U + 20U + 300U);
  for (const unsigned threads : {2U, 3U, 12U}) {
    options.threads = threads;
    const Counts counts = countOf(folder_.path(), options);
    EXPECT_EQ(counts.objects, alone.objects) << threads;
    EXPECT_EQ(counts.users.map(), alone.users.map()) << threads;
    EXPECT_EQ(counts.groups.map(), alone.groups.map()) << threads;
  }
}

TEST_F(TreeWalk, IdsAboveTheSignedOnesAreIds) {
  makeFile(folder_.path("f"), 10, 0x80000001);
  makeFile(folder_.path("g"), 10, 0xFFFFFFFE, 0xFFFFFFFE);
  const Counts counts = countOf(folder_.path());
  EXPECT_EQ(usageOf(counts.users, 0x80000001).files, 1U);
  EXPECT_EQ(usageOf(counts.users, 0xFFFFFFFE).files, 1U);
  EXPECT_EQ(usageOf(counts.groups, 0xFFFFFFFE).files, 1U);
}

TEST_F(TreeWalk, NamesOfAnyBytesAreNames) {
  makeFile(folder_.path("\xFF\n\x1B"), 10, kAnna);
  makeFolder(folder_.path(std::string(255, '\xFE')), kAnna);
  makeFile(folder_.path(std::string(255, '\xFE') + "/" + std::string(255, 'n')), 10, kAnna);
  EXPECT_EQ(usageOf(countOf(folder_.path()).users, kAnna).files, 3U);
}

TEST_F(TreeWalk, SaysWhichFolderCannotBeRead) {
  std::filesystem::create_directories(folder_.path("a/closed"));
  ASSERT_EQ(::chmod(folder_.path("a/closed").c_str(), 0), 0);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  std::string text;
  ASSERT_EQ(::seteuid(kAnna), 0);
  try {
    countOf(folder_.path());
  } catch (const Failure& failure) {
    text = failure.what();
  }
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_THAT(text, HasSubstr("cannot read " + folder_.path("a/closed") + ": Permission denied"));
}

TEST_F(TreeWalk, ContinuesDespiteConcurrentMovesAndRemovals) {
  constexpr int kFolders = 40;
  const auto name = [&](int number) { return folder_.path("d" + std::to_string(number)); };
  for (int number = 0; number < kFolders; ++number) {
    std::filesystem::create_directories(name(number) + "/e/f/g");
    makeFile(name(number) + "/e/f/g/h", 100, kAnna);
  }
  // What stays in its place is always encountered.
  makeFolder(folder_.path("still"), kBert);
  for (int number = 0; number < 20; ++number) {
    makeFile(folder_.path("still/" + std::to_string(number)), 100, kBert);
  }
  std::atomic<bool> isEnding = false;
  std::thread mover([&] {
    for (int round = 0; !isEnding; ++round) {
      std::error_code ignored;
      const std::string from = name(round % kFolders) + "/e/f";
      const std::string to = name((round + 7) % kFolders) + "/x" + std::to_string(round % 3);
      std::filesystem::rename(from, to, ignored);
      std::filesystem::rename(to, from, ignored);
      writeWholeFile(folder_.path("new"), "x");
      std::filesystem::remove(folder_.path("new"), ignored);
    }
  });
  WalkOptions options;
  options.pause = std::chrono::milliseconds(1);
  for (int round = 0; round < 50; ++round) {
    EXPECT_EQ(usageOf(countOf(folder_.path(), options).users, kBert).files, 21U);
  }
  isEnding = true;
  mover.join();
  EXPECT_EQ(usageOf(countOf(folder_.path()).users, kAnna).files,
            static_cast<std::uint64_t>(kFolders));
}

// Those that need mounts.
class TreeWalkOfMounts : public TreeWalk {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  }
};

TEST_F(TreeWalkOfMounts, StaysOnTheVolume) {
  runInOwnMounts([&] {
    mountTmpfs(folder_.path(), "1m");
    makeFolder(folder_.path("d"), kAnna);
    makeFile(folder_.path("d/f"), 5'000, kAnna);
    makeFolder(folder_.path("other"), kBert);
    mountTmpfs(folder_.path("other"), "1m");
    makeFile(folder_.path("other/f"), 5'000, kBert);
    makeFolder(folder_.path("again"), kBert);
    bindMount(folder_.path("d"), folder_.path("again"));
    makeFile(folder_.path("file"), 5'000, kBert);
    bindMount(folder_.path("d/f"), folder_.path("file"));
    const Counts counts = countOf(folder_.path());
    EXPECT_EQ(usageOf(counts.users, kAnna), (Usage{allocated(folder_.path("d/f")), 2}));
    EXPECT_EQ(usageOf(counts.users, kBert), Usage());
    EXPECT_EQ(counts.objects, 3U);
  });
}

// A user's own file system, which root may not access, and whose server never answers.
TEST_F(TreeWalkOfMounts, SkipsInaccessibleMount) {
  const FileDescriptor server(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
  if (!server) GTEST_SKIP() << "there is no FUSE here";
  runInOwnMounts([&] {
    makeFolder(folder_.path("own"), kAnna);
    const std::string options =
        "fd=" + std::to_string(server.get()) + ",rootmode=40000,user_id=21001,group_id=21001";
    ASSERT_EQ(::mount("own", folder_.path("own").c_str(), "fuse", 0, options.c_str()), 0);
    struct stat status {};
    ASSERT_EQ(::stat(folder_.path("own").c_str(), &status), -1);
    ASSERT_EQ(errno, EACCES);
    EXPECT_EQ(countOf(folder_.path()).objects, 1U);
    ASSERT_EQ(::umount2(folder_.path("own").c_str(), MNT_DETACH), 0);
  });
}

// The same on a file, and one that lets everybody in, which root would wait for.
TEST_F(TreeWalkOfMounts, SkipsMountsWhoseServerNeverAnswers) {
  const FileDescriptor server(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
  const FileDescriptor other(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
  if (!server || !other) GTEST_SKIP() << "there is no FUSE here";
  runInOwnMounts([&] {
    // Ends the child, and fails the test, when it waits.
    ::alarm(30);
    makeFolder(folder_.path("folder"), kAnna);
    makeFile(folder_.path("file"), 10, kAnna);
    const auto mountOwn = [](int descriptor, const std::string& path, const std::string& mode) {
      const std::string options = "fd=" + std::to_string(descriptor) + ",rootmode=" + mode +
                                  ",user_id=21001,group_id=21001,allow_other";
      ASSERT_EQ(::mount("own", path.c_str(), "fuse", 0, options.c_str()), 0) << path;
    };
    mountOwn(server.get(), folder_.path("folder"), "40000");
    mountOwn(other.get(), folder_.path("file"), "100000");
    EXPECT_EQ(countOf(folder_.path()).objects, 1U);
    for (const char* name : {"folder", "file"}) {
      ASSERT_EQ(::umount2(folder_.path(name).c_str(), MNT_DETACH), 0);
    }
  });
}

// Goes down so many levels, each with a file in it.
void makeDeepTree(const std::string& path, int levels) {
  FileDescriptor folder = openFolder(path);
  for (int level = 0; level < levels; ++level) {
    ASSERT_EQ(::mkdirat(folder.get(), "folder", 0700), 0);
    FileDescriptor file(::openat(folder.get(), "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::fchown(file.get(), kAnna, 0), 0);
    folder = FileDescriptor(::openat(folder.get(), "folder", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }
}

void limitDescriptors(rlim_t number) {
  const rlimit limit{number, number};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST_F(TreeWalkOfMounts, TenThousandLevelsNeedFewDescriptors) {
  runInOwnMounts([&] {
    mountTmpfs(folder_.path(), "64m");
    makeDeepTree(folder_.path(), 10'000);
    limitDescriptors(64);
    for (const unsigned threads : {2U, 12U}) {
      WalkOptions options;
      options.threads = threads;
      const Counts counts = countOf(folder_.path(), options);
      EXPECT_EQ(counts.objects, 20'001U);
      EXPECT_EQ(usageOf(counts.users, kAnna).files, 10'000U);
    }
  });
}

TEST_F(TreeWalkOfMounts, LargeFoldersNeedFewDescriptors) {
  runInOwnMounts([&] {
    constexpr int kFolders = 20'000;
    mountTmpfs(folder_.path(), "256m");
    const FileDescriptor folder = openFolder(folder_.path());
    for (int number = 0; number < kFolders; ++number) {
      const std::string name = "folder" + std::to_string(number);
      ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0700), 0);
      const std::string file = "file" + std::to_string(number);
      FileDescriptor(::openat(folder.get(), file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    limitDescriptors(64);
    for (const unsigned threads : {2U, 12U}) {
      WalkOptions options;
      options.threads = threads;
      EXPECT_EQ(countOf(folder_.path(), options).objects, 2U * kFolders + 1U);
    }
  });
}

}  // namespace
}  // namespace paddock::quotascan
