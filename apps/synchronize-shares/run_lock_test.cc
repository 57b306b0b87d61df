#include "synchronize-shares/run_lock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <optional>
#include <system_error>

#include "base/file_access.h"
#include "support/temporary_folder.h"

namespace paddock::synchronizer {

namespace {

using namespace std::chrono_literals;

class RunLocking : public ::testing::Test {
 protected:
  std::string folder() const { return folder_.path("run/paddock"); }
  std::string file() const { return folder() + "/synchronize-shares.lock"; }

  int errorOf(std::chrono::milliseconds patience) const {
    try {
      const RunLock lock(folder(), patience);
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  TestFolder folder_;
};

TEST_F(RunLocking, MakesAFileThatNobodyElseCanOpen) {
  const RunLock lock(folder());
  EXPECT_EQ(std::filesystem::status(file()).permissions(), std::filesystem::perms(0600));
}

TEST_F(RunLocking, IsFreeAgainAtItsEnd) {
  { const RunLock lock(folder()); }
  EXPECT_EQ(errorOf(0ms), 0);
}

TEST_F(RunLocking, ASecondWaitsUntilTheFirstEnds) {
  std::optional<RunLock> first(std::in_place, folder());
  auto second = std::async(std::launch::async, [this] { return errorOf(60s); });
  EXPECT_EQ(second.wait_for(100ms), std::future_status::timeout);
  first.reset();
  EXPECT_EQ(second.get(), 0);
}

TEST_F(RunLocking, ASecondGivesUpAfterItsPatience) {
  const RunLock first(folder());
  EXPECT_EQ(errorOf(50ms), ETIMEDOUT);
}

TEST_F(RunLocking, ALinkAtItsPlaceIsNotFollowed) {
  { const RunLock lock(folder()); }
  std::filesystem::remove(file());
  std::filesystem::create_symlink(folder_.path("elsewhere"), file());
  EXPECT_EQ(errorOf(0ms), ELOOP);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("elsewhere")));
}

TEST_F(RunLocking, FolderWritableByOthersIsRefused) {
  std::filesystem::create_directories(folder());
  std::filesystem::permissions(folder(), std::filesystem::perms(0777));
  EXPECT_NE(errorOf(0ms), 0);
}

class AnnouncedChanges : public ::testing::Test {
 protected:
  void fill(const std::string& text) const { writeWholeFile(path(), text); }
  std::string path() const { return folder_.path("lock"); }

  TestFolder folder_;
  FileDescriptor file_{::open(path().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
  ToldChanges changes_{file_.get()};
};

TEST_F(AnnouncedChanges, AnEmptyFileHasNoChange) { EXPECT_EQ(changes_.untold(), 0U); }

TEST_F(AnnouncedChanges, AChangeIsUntoldUntilItIsTold) {
  changes_.add();
  EXPECT_EQ(changes_.untold(), 1U);
  changes_.told(1);
  EXPECT_EQ(changes_.untold(), 0U);
}

TEST_F(AnnouncedChanges, ChangeDuringEarlierAnnouncementStaysPending) {
  changes_.add();
  changes_.add();
  changes_.told(1);
  EXPECT_EQ(changes_.untold(), 2U);
}

TEST_F(AnnouncedChanges, LateReportOfEarlierChangeRevertsNothing) {
  changes_.add();
  changes_.add();
  changes_.told(2);
  changes_.told(1);
  EXPECT_EQ(changes_.untold(), 0U);
}

TEST_F(AnnouncedChanges, AnotherOpenFileSeesTheSame) {
  changes_.add();
  const FileDescriptor again(::open(path().c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_EQ(ToldChanges(again.get()).untold(), 1U);
}

TEST_F(AnnouncedChanges, WhatCannotBeReadCountsAsUntold) {
  for (const char* text : {"x", "1", "1 1", "1 1\nx", "-1 0\n", "99999999999999999999999 0\n"}) {
    fill(text);
    EXPECT_EQ(changes_.untold(), 1U) << text;
  }
}

TEST_F(AnnouncedChanges, UnwritableFileIsAnError) {
  const FileDescriptor reading(::open(path().c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_THROW(ToldChanges(reading.get()).add(), std::system_error);
}

}  // namespace

}  // namespace paddock::synchronizer
