#include "copyprivs/status_file.h"

#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <set>

#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock::copyprivs {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class StatusFileUpdates : public ::testing::Test {
 protected:
  std::vector<std::string> names() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
  // Leaves no room for the second text in the folder, which is a small disk of its own.
  void fillDiskAndReplace(StatusFile& file, bool isLast) {
    file.replace("first", false);
    writeWholeFile(folder_.path("filler"), std::string(100'000, 'x'));
    file.replace(std::string(8192, 'y'), isLast);
    EXPECT_EQ(readWholeFile(path_), "first");
  }

  const TestFolder folder_;
  const std::string path_ = folder_.path("status");
};

TEST_F(StatusFileUpdates, IsReplacedAsAWhole) {
  writeWholeFile(path_, "");
  StatusFile file(path_);
  file.replace("first", false);
  EXPECT_EQ(readWholeFile(path_), "first");
  file.replace("2", true);
  EXPECT_EQ(readWholeFile(path_), "2");
  EXPECT_EQ(file.failure(), "");
  EXPECT_THAT(names(), ElementsAre("status"));
}

TEST_F(StatusFileUpdates, IsMadeWhenItIsMissing) {
  StatusFile file(path_);
  file.replace("first", false);
  EXPECT_EQ(readWholeFile(path_), "first");
}

TEST_F(StatusFileUpdates, RemovedFileIsNotRecreated) {
  StatusFile file(path_);
  file.replace("first", false);
  std::filesystem::remove(path_);
  file.replace("second", false);
  file.replace("third", true);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_EQ(file.failure(), "");
}

TEST_F(StatusFileUpdates, ForeignFileIsLeftAlone) {
  const auto expectLeft = [this](const std::string& what) {
    StatusFile file(path_);
    file.replace("text", true);
    EXPECT_THAT(file.failure(), HasSubstr("no file of its own")) << what;
  };
  writeWholeFile(folder_.path("other"), "precious");
  std::filesystem::create_symlink(folder_.path("other"), path_);
  expectLeft("link");
  std::filesystem::remove(path_);
  std::filesystem::create_hard_link(folder_.path("other"), path_);
  expectLeft("second name");
  std::filesystem::remove(path_);
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  expectLeft("FIFO");
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  expectLeft("folder");
  EXPECT_EQ(readWholeFile(folder_.path("other")), "precious");
}

TEST_F(StatusFileUpdates, LaterSymlinkIsNotFollowed) {
  writeWholeFile(folder_.path("other"), "precious");
  StatusFile file(path_);
  file.replace("first", false);
  std::filesystem::remove(path_);
  std::filesystem::create_symlink(folder_.path("other"), path_);
  file.replace("second", true);
  EXPECT_EQ(readWholeFile(folder_.path("other")), "precious");
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_NE(file.failure(), "");
}

// Whoever knows the process may plant something where its new file would be, if the name could be
// known: a folder would keep it from writing for good, and what is removed may be somebody else's.
TEST_F(StatusFileUpdates, NothingPlantedIsOpenedOrRemoved) {
  const std::string known = folder_.path(".status." + std::to_string(::getpid()) + ".new");
  writeWholeFile(folder_.path("other"), "precious");
  const std::vector<std::pair<const char*, std::function<void()>>> plants = {
      {"folder", [&] { std::filesystem::create_directory(known); }},
      {"link", [&] { std::filesystem::create_symlink(folder_.path("other"), known); }},
      {"FIFO", [&] { ASSERT_EQ(::mkfifo(known.c_str(), 0666), 0); }},
      {"file", [&] { writeWholeFile(known, "somebody's"); }}};
  for (const auto& [what, plant] : plants) {
    plant();
    const auto before = std::filesystem::symlink_status(known).type();
    StatusFile file(path_);
    file.replace("first", false);
    file.replace(what, true);
    EXPECT_EQ(file.failure(), "") << what;
    EXPECT_EQ(readWholeFile(path_), what);
    EXPECT_EQ(std::filesystem::symlink_status(known).type(), before) << what;
    std::filesystem::remove(known);
  }
  EXPECT_EQ(readWholeFile(folder_.path("other")), "precious");
}

// What is written under, seen by somebody who watches the folder.
TEST_F(StatusFileUpdates, NameOfNewFileIsNeverTheSame) {
  const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(::inotify_add_watch(watch.get(), folder_.path().c_str(), IN_CREATE), 0);
  StatusFile file(path_);
  constexpr std::size_t kTimes = 20;
  for (std::size_t count = 0; count < kTimes; ++count) file.replace("text", false);
  std::string events(65536, '\0');
  const auto size = ::read(watch.get(), events.data(), events.size());
  ASSERT_GT(size, 0);
  std::set<std::string> made;
  for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
    inotify_event event{};
    std::memcpy(&event, &events[at], sizeof event);
    made.insert(&events[at + sizeof event]);
    at += sizeof event + event.len;
  }
  EXPECT_EQ(made.size(), kTimes);
}

TEST_F(StatusFileUpdates, AFolderThatIsMissingIsAFailure) {
  StatusFile file(folder_.path("missing/status"));
  EXPECT_THAT(file.failure(), HasSubstr("No such file or directory"));
  file.replace("text", true);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(StatusFileUpdates, AFolderIsNoStatusFile) {
  EXPECT_NE(StatusFile(folder_.path() + "/").failure(), "");
  EXPECT_NE(StatusFile(folder_.path("..")).failure(), "");
}

TEST_F(StatusFileUpdates, FullDiskKeepsOldFileUntilSpaceReturns) {
  const std::string why = whyNoOwnMounts();
  if (!why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    mountTmpfs(folder_.path(), "64k");
    StatusFile file(path_);
    fillDiskAndReplace(file, false);
    EXPECT_EQ(file.failure(), "");
    std::filesystem::remove(folder_.path("filler"));
    file.replace("last", true);
    EXPECT_EQ(readWholeFile(path_), "last");
    EXPECT_THAT(names(), ElementsAre("status"));
  });
}

TEST_F(StatusFileUpdates, PersistentlyFullDiskFailsFinalWrite) {
  const std::string why = whyNoOwnMounts();
  if (!why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([this] {
    mountTmpfs(folder_.path(), "64k");
    StatusFile file(path_);
    fillDiskAndReplace(file, true);
    EXPECT_THAT(file.failure(), HasSubstr("No space left on device"));
  });
}

}  // namespace
}  // namespace paddock::copyprivs
