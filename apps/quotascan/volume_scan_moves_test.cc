// Counting while folders move.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "base/file_access.h"
#include "quotascan/volume_scan.h"
#include "support/own_mounts.h"
#include "support/restless_folder.h"
#include "support/temporary_folder.h"

namespace paddock::quotascan {
namespace {

constexpr std::uint32_t kAnna = 21001;
constexpr int kFolders = 8;
constexpr int kFiles = 500;
constexpr int kMovingFiles = 30;

void makeFiles(const std::string& path, int count, std::uint32_t owner) {
  std::filesystem::create_directories(path);
  ASSERT_EQ(::lchown(path.c_str(), owner, 0), 0);
  for (int number = 0; number < count; ++number) {
    const std::string file = path + "/file" + std::to_string(number);
    writeWholeFile(file, "");
    ASSERT_EQ(::lchown(file.c_str(), owner, 0), 0);
  }
}

// Sees which folders are opened and closed.
class FolderWatch {
 public:
  void add(const std::string& path, int number) {
    const int watch = ::inotify_add_watch(events_.get(), path.c_str(), IN_OPEN | IN_CLOSE_NOWRITE);
    ASSERT_GE(watch, 0) << path;
    numbers_[watch] = number;
  }
  // Waits until one of them was left, or `isEnded`. Which one; -1 for none.
  int awaitLeft(const std::atomic<bool>& isEnded) {
    while (!isEnded) {
      pollfd waiting{events_.get(), POLLIN, 0};
      if (::poll(&waiting, 1, 10) <= 0) continue;
      if (const int left = readEvents(); left >= 0) return left;
    }
    return -1;
  }
  // One that was not opened so far; -1 for none.
  int unopened(int count) const {
    for (int number = 0; number < count; ++number) {
      if (!opened_.contains(number)) return number;
    }
    return -1;
  }
  bool isUnopened(int number) {
    readEvents();
    return !opened_.contains(number);
  }

 private:
  int readEvents() {
    int left = -1;
    alignas(inotify_event) std::array<char, 4096> buffer;
    const ssize_t size = ::read(events_.get(), buffer.data(), buffer.size());
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      // Of the watched folder itself.
      if (event->len != 0 || (event->mask & IN_ISDIR) == 0) continue;
      const int number = numbers_[event->wd];
      if ((event->mask & IN_OPEN) != 0) opened_.insert(number);
      if ((event->mask & IN_CLOSE_NOWRITE) != 0) left = number;
    }
    return left;
  }

  const FileDescriptor events_{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
  std::map<int, int> numbers_;
  std::set<int> opened_;
};

class FolderMoves : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
    for (int number = 0; number < kFolders; ++number) {
      makeFiles(folder(number), kFiles, 0);
      makeFiles(folder(number) + "/moving", kMovingFiles, kAnna);
    }
  }
  std::string folder(int number) const { return folder_.path("folder" + std::to_string(number)); }

  // Changes of what was made just before are not those of the walk.
  static Counts countIn(const std::string& path, WalkOptions options = {}) {
    ::usleep(50'000);
    const FileDescriptor root(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    options.threads = 1;
    std::atomic<std::uint64_t> objects = 0;
    return countUsage(root.get(), options, objects);
  }
  // Counts, and calls `move` with a folder that was counted and one that was not come to.
  Counts countMoving(const std::function<void(int, int)>& move, const WalkOptions& options = {}) {
    FolderWatch watch;
    for (int number = 0; number < kFolders; ++number) watch.add(folder(number), number);
    std::atomic<bool> isEnded = false;
    bool isMoved = false;
    std::thread mover([&] {
      const int left = watch.awaitLeft(isEnded);
      const int other = watch.unopened(kFolders);
      if (left < 0 || other < 0) return;
      move(left, other);
      isMoved = true;
      wasInTime_ = watch.isUnopened(other);
    });
    Counts counts = countIn(folder_.path(), options);
    isEnded = true;
    mover.join();
    EXPECT_TRUE(isMoved);
    return counts;
  }
  static void expectAll(const Counts& counts) {
    const auto found = counts.users.map().find(kAnna);
    ASSERT_NE(found, counts.users.map().end());
    EXPECT_EQ(found->second.files, std::uint64_t{kFolders} * (1 + kMovingFiles));
    EXPECT_EQ(counts.objects, 1 + std::uint64_t{kFolders} * (2 + kFiles + kMovingFiles));
    EXPECT_EQ(counts.unsettled, "");
  }

  const TestFolder folder_;
  // Whether the last move came before the walk was in the second of the two folders.
  bool wasInTime_ = false;
};

TEST_F(FolderMoves, OneThatMovesIntoTheCountedPartIsCounted) {
  expectAll(countMoving([&](int counted, int other) {
    std::filesystem::rename(folder(other) + "/moving", folder(counted) + "/came");
  }));
}

TEST_F(FolderMoves, OneThatMovesOutOfTheCountedPartIsCountedOnce) {
  expectAll(countMoving([&](int counted, int other) {
    std::filesystem::rename(folder(counted) + "/moving", folder(other) + "/came");
  }));
}

TEST_F(FolderMoves, OneThatCannotBeRecognisedIsNamed) {
  constexpr int kAttempts = 20;
  WalkOptions options;
  options.knownFolders = 1;
  for (int attempt = 0; attempt < kAttempts && !wasInTime_; ++attempt) {
    std::string from;
    std::string to;
    const Counts counts = countMoving(
        [&](int counted, int other) {
          from = folder(other);
          to = folder(counted);
          std::filesystem::rename(from + "/moving", to + "/came");
        },
        options);
    if (wasInTime_) {
      EXPECT_TRUE(counts.unsettled.starts_with(to + "/")) << counts.unsettled;
    }
    std::filesystem::rename(to + "/came", from + "/moving");
  }
  EXPECT_TRUE(wasInTime_);
}

TEST_F(FolderMoves, AWholeOtherFolderThatMovesIsCounted) {
  expectAll(countMoving([&](int counted, int other) {
    std::filesystem::rename(folder(other), folder(counted) + "/came");
  }));
}

TEST_F(FolderMoves, OneThatNeverRestsIsNamed) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  const TestFolder volume;
  runInOwnMounts([&] {
    mountTmpfs(volume.path(), "64m");
    const int others = makeManyFolders(volume.path());
    std::filesystem::create_directory(volume.path("moving"));
    Counts counts;
    {
      const RestlessFolder restless(volume.path("moving"), volume.path("elsewhere"));
      counts.add(countIn(volume.path()));
    }
    EXPECT_TRUE(counts.unsettled.starts_with(volume.path())) << counts.unsettled;
    const Counts atRest = countIn(volume.path());
    EXPECT_EQ(atRest.unsettled, "");
    EXPECT_EQ(atRest.objects, static_cast<std::uint64_t>(2 + others));
  });
}

}  // namespace
}  // namespace paddock::quotascan
