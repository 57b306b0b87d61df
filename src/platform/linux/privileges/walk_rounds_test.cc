#include "platform/linux/privileges/walk_rounds.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "base/file_access.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr std::chrono::milliseconds kNoPause{0};

ObjectStatus folderOf(std::uint64_t inode, std::uint64_t device = 1) {
  ObjectStatus status;
  status.device = device;
  status.inode = inode;
  return status;
}

ObjectStatus statusAt(const std::string& path) {
  ObjectStatus status;
  EXPECT_EQ(statusOf(AT_FDCWD, path.c_str(), status), 0) << path;
  return status;
}

TEST(VisitedFolders, HasThoseThatWereAdded) {
  VisitedFolders folders;
  EXPECT_FALSE(folders.has(folderOf(7)));
  EXPECT_TRUE(folders.add(folderOf(7)));
  EXPECT_FALSE(folders.add(folderOf(7)));
  EXPECT_TRUE(folders.has(folderOf(7)));
  EXPECT_FALSE(folders.has(folderOf(7, 2)));
  EXPECT_TRUE(folders.isComplete());
}

TEST(VisitedFolders, BeyondTheirNumberTheyAreIncomplete) {
  VisitedFolders folders(2);
  EXPECT_TRUE(folders.add(folderOf(1)));
  EXPECT_TRUE(folders.add(folderOf(2)));
  EXPECT_FALSE(folders.add(folderOf(2)));
  EXPECT_TRUE(folders.isComplete());
  EXPECT_TRUE(folders.add(folderOf(3)));
  EXPECT_FALSE(folders.isComplete());
  EXPECT_FALSE(folders.has(folderOf(3)));
  EXPECT_TRUE(folders.has(folderOf(1)));
}

TEST(WalkRounds, AFolderThatChangesNowIsOfThisRound) {
  const TestFolder folder;
  WalkRounds rounds(kNoPause);
  rounds.begin();
  std::filesystem::create_directory(folder.path("new"));
  EXPECT_TRUE(rounds.isOfThisRound(statusAt(folder.path()).modified));
  EXPECT_TRUE(rounds.isOfThisRound(statusAt(folder.path()).changed));
}

TEST(WalkRounds, AFolderThatChangedBeforeIsNot) {
  const TestFolder folder;
  std::filesystem::create_directory(folder.path("old"));
  ::usleep(50'000);
  WalkRounds rounds(kNoPause);
  rounds.begin();
  EXPECT_FALSE(rounds.isOfThisRound(statusAt(folder.path()).modified));
  std::filesystem::create_directory(folder.path("new"));
  ::usleep(50'000);
  rounds.begin();
  EXPECT_FALSE(rounds.isOfThisRound(statusAt(folder.path()).modified));
  EXPECT_TRUE(rounds.isOfTheOneBefore(statusAt(folder.path()).modified));
}

TEST(WalkRounds, SettingPrivilegesChangesNoMtimeAndAMoveDoes) {
  const TestFolder folder;
  std::filesystem::create_directories(folder.path("from/moved"));
  std::filesystem::create_directory(folder.path("to"));
  const ObjectStatus before = statusAt(folder.path("to"));
  ::usleep(50'000);
  ASSERT_EQ(::chmod(folder.path("to").c_str(), 0700), 0);
  EXPECT_EQ(statusAt(folder.path("to")).modified, before.modified);
  EXPECT_GT(statusAt(folder.path("to")).changed, before.changed);
  std::filesystem::rename(folder.path("from/moved"), folder.path("to/moved"));
  EXPECT_GT(statusAt(folder.path("to")).modified, before.modified);
}

TEST(WalkRounds, AnMtimeThatIsSetBackLeavesACtime) {
  const TestFolder folder;
  WalkRounds rounds(kNoPause);
  rounds.begin();
  std::filesystem::create_directory(folder.path("new"));
  const timespec old[2] = {{1, 1}, {1, 1}};
  ASSERT_EQ(::utimensat(AT_FDCWD, folder.path().c_str(), old, 0), 0);
  EXPECT_FALSE(rounds.isOfThisRound(statusAt(folder.path()).modified));
  EXPECT_TRUE(rounds.isOfThisRound(statusAt(folder.path()).changed));
}

TEST(WalkRounds, TimesWithoutFractionsMayBeTwoSecondsOld) {
  const FileTime start{1001, 500};
  EXPECT_TRUE(WalkRounds::mayBeSince({1001, 0}, start));
  EXPECT_TRUE(WalkRounds::mayBeSince({1000, 0}, start));
  EXPECT_FALSE(WalkRounds::mayBeSince({999, 0}, start));
  EXPECT_FALSE(WalkRounds::mayBeSince({1001, 499}, start));
  EXPECT_TRUE(WalkRounds::mayBeSince({1001, 500}, start));
}

TEST(WalkRounds, GoOnOnlyWhileSomethingChanges) {
  const std::atomic<bool> stop = false;
  WalkRounds rounds(kNoPause);
  rounds.begin();
  EXPECT_TRUE(rounds.isFirst());
  EXPECT_FALSE(rounds.goOn(stop));
  rounds.noteChange({1, 1});
  EXPECT_TRUE(rounds.goOn(stop));
  rounds.begin();
  EXPECT_FALSE(rounds.isFirst());
  EXPECT_FALSE(rounds.isDisturbed());
  EXPECT_FALSE(rounds.goOn(stop));
}

TEST(WalkRounds, EndAfterTheLastOne) {
  const std::atomic<bool> stop = false;
  WalkRounds rounds(kNoPause);
  unsigned count = 0;
  do {
    rounds.begin();
    rounds.noteChange({1, 1});
    ++count;
  } while (rounds.goOn(stop));
  EXPECT_EQ(count, WalkRounds::kMost);
  EXPECT_TRUE(rounds.isLast());
}

TEST(WalkRounds, StopEndsThem) {
  const std::atomic<bool> stop = true;
  WalkRounds rounds(std::chrono::hours(1));
  rounds.begin();
  rounds.noteChange({1, 0});
  EXPECT_FALSE(rounds.goOn(stop));
}

}  // namespace
}  // namespace paddock
