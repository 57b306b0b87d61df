#include "copyprivs/folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>

#include "support/temporary_folder.h"

namespace paddock::copyprivs {

namespace {

InheritableACL* entryOf(std::uint32_t flags) {
  InheritableACL* entry = AllocInheritableACL();
  entry->flags = flags;
  return entry;
}

TEST(Levels, TheNearestFolderComesFirst) {
  const auto top = std::make_shared<const Levels>(entryOf(32), nullptr);
  const auto below = std::make_shared<const Levels>(entryOf(64), top);
  const InheritedACLComposite* first = below->composite();
  EXPECT_EQ(first->entries->flags, 64U);
  EXPECT_EQ(first->next->entries->flags, 32U);
  EXPECT_EQ(first->next->next, nullptr);
}

TEST(Levels, ThoseAboveStayAsLongAsThoseBelow) {
  auto top = std::make_shared<const Levels>(entryOf(32), nullptr);
  const auto below = std::make_shared<const Levels>(nullptr, top);
  top = nullptr;
  EXPECT_EQ(below->composite()->next->entries->flags, 32U);
}

int emptyOnesOf(const Levels::Pointer& levels) {
  int count = 0;
  for (const InheritedACLComposite* level = levels->composite();
       level != nullptr && level->entries == nullptr; level = level->next) {
    ++count;
  }
  return count;
}

TEST(Levels, AThirdEmptyOneIsLeftOut) {
  Levels::Pointer levels = std::make_shared<const Levels>(entryOf(32), nullptr);
  levels = Levels::withEmptyBelow(levels);
  EXPECT_EQ(emptyOnesOf(levels), 1);
  levels = Levels::withEmptyBelow(levels);
  EXPECT_EQ(emptyOnesOf(levels), 2);
  EXPECT_EQ(Levels::withEmptyBelow(levels), levels);
  levels = Levels::withEmptyBelow(std::make_shared<const Levels>(entryOf(64), levels));
  EXPECT_EQ(emptyOnesOf(levels), 1);
}

TEST(Levels, ReleasingMillionLevelsDoesNotOverflowStack) {
  Levels::Pointer lowest;
  for (int level = 0; level < 1'000'000; ++level) {
    lowest = std::make_shared<const Levels>(nullptr, lowest);
  }
  lowest = nullptr;
}

// DIR/start/a/b, with b open, and DIR/elsewhere.
class HasItsAncestors : public ::testing::Test {
 protected:
  HasItsAncestors() {
    std::filesystem::create_directories(dir_.path("start/a/b"));
    std::filesystem::create_directories(dir_.path("elsewhere"));
    auto start = met(nullptr, "start");
    auto a = met(std::move(start), "start/a");
    folder_ = met(std::move(a), "start/a/b");
    open_ = FileDescriptor(::open(dir_.path("start/a/b").c_str(), O_RDONLY | O_CLOEXEC));
  }
  Folder::Pointer met(Folder::Pointer above, const std::string& path) const {
    ObjectStatus status;
    EXPECT_EQ(statusOf(AT_FDCWD, dir_.path(path).c_str(), status), 0);
    return std::make_shared<const Folder>(std::move(above), path, status, nullptr);
  }
  void rename(const std::string& from, const std::string& to) const {
    std::filesystem::rename(dir_.path(from), dir_.path(to));
  }
  bool has() const { return hasItsAncestors(open_.get(), *folder_); }

  TestFolder dir_;
  Folder::Pointer folder_;
  FileDescriptor open_;
};

constexpr FileTime kLongAgo{1, 1};

ObjectStatus folderOf(std::uint64_t inode, FileTime modified = kLongAgo) {
  ObjectStatus status;
  status.inode = inode;
  status.modified = modified;
  return status;
}

FileTime presentTime() {
  timespec time{};
  ::clock_gettime(CLOCK_REALTIME, &time);
  return {time.tv_sec, static_cast<std::uint32_t>(time.tv_nsec) | 1U};
}

TEST(FolderVisits, FirstRoundGoesThroughEverythingOnce) {
  WalkRounds rounds;
  rounds.begin();
  EXPECT_EQ(visitOf(folderOf(1), Visit::whole, rounds), Visit::whole);
  // It moved, and is met again.
  EXPECT_EQ(visitOf(folderOf(1), Visit::whole, rounds), Visit::again);
}

TEST(FolderVisits, LaterRoundsTellWhatCameAndWhatChanged) {
  WalkRounds rounds;
  rounds.begin();
  EXPECT_EQ(visitOf(folderOf(1), Visit::whole, rounds), Visit::whole);
  EXPECT_EQ(visitOf(folderOf(2), Visit::whole, rounds), Visit::whole);
  const FileTime meanwhile = presentTime();
  ::usleep(20'000);
  rounds.begin();
  EXPECT_EQ(visitOf(folderOf(1), Visit::folders, rounds), Visit::folders);
  EXPECT_EQ(visitOf(folderOf(2, meanwhile), Visit::folders, rounds), Visit::again);
  EXPECT_EQ(visitOf(folderOf(3), Visit::folders, rounds), Visit::whole);
}

TEST(FolderVisits, BeyondTheKnownOnesEverythingBelowAChangeIsSetAgain) {
  WalkRounds rounds(WalkRounds::kPause, 1);
  rounds.begin();
  for (const std::uint64_t inode : {1U, 2U, 3U}) visitOf(folderOf(inode), Visit::whole, rounds);
  rounds.begin();
  EXPECT_EQ(visitOf(folderOf(1), Visit::again, rounds), Visit::folders);
  EXPECT_EQ(visitOf(folderOf(2), Visit::again, rounds), Visit::again);
  EXPECT_EQ(visitOf(folderOf(2), Visit::folders, rounds), Visit::folders);
}

class FolderTimes : public HasItsAncestors {
 protected:
  ObjectStatus now() const {
    ObjectStatus status;
    EXPECT_EQ(statusOf(open_.get(), status), 0);
    return status;
  }
  bool isAsEncountered(bool isSet) const {
    return Folder(nullptr, "b", before_, nullptr, Visit::whole, isSet).isAsEncountered(now());
  }

  const ObjectStatus before_ = now();
};

TEST_F(FolderTimes, AreThoseItWasEncounteredWithWhileNothingMoves) {
  EXPECT_TRUE(isAsEncountered(false));
  EXPECT_TRUE(isAsEncountered(true));
}

TEST_F(FolderTimes, AreOthersWhenAnEntryComes) {
  ::usleep(20'000);
  std::filesystem::create_directory(dir_.path("start/a/b/new"));
  EXPECT_FALSE(isAsEncountered(false));
  EXPECT_FALSE(isAsEncountered(true));
}

TEST_F(FolderTimes, TellPrivilegesThatTheWalkSetFromMoves) {
  ::usleep(20'000);
  ASSERT_EQ(::fchmod(open_.get(), 0700), 0);
  EXPECT_FALSE(isAsEncountered(false));
  EXPECT_TRUE(isAsEncountered(true));
}

TEST_F(HasItsAncestors, AsLongAsNothingMoves) { EXPECT_TRUE(has()); }

TEST_F(HasItsAncestors, WhenItHasAnotherName) {
  rename("start/a/b", "start/a/c");
  EXPECT_TRUE(has());
}

TEST_F(HasItsAncestors, WhenStartingFolderMovesAsWhole) {
  rename("start", "elsewhere/start");
  EXPECT_TRUE(has());
}

TEST_F(HasItsAncestors, NoMoreWhenItMoves) {
  rename("start/a/b", "elsewhere/b");
  EXPECT_FALSE(has());
}

TEST_F(HasItsAncestors, NoMoreWhenOneAboveItMoves) {
  rename("start/a", "elsewhere/a");
  EXPECT_FALSE(has());
}

TEST_F(HasItsAncestors, NoMoreWhenAncestorIsReplaced) {
  rename("start/a", "elsewhere/a");
  std::filesystem::create_directories(dir_.path("start/a"));
  rename("elsewhere/a/b", "start/a/b");
  EXPECT_FALSE(has());
}

TEST_F(HasItsAncestors, NoMoreWhenItIsRemoved) {
  std::filesystem::remove(dir_.path("start/a/b"));
  rename("start/a", "elsewhere/a");
  EXPECT_FALSE(has());
}

}  // namespace

}  // namespace paddock::copyprivs
