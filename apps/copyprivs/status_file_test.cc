#include "copyprivs/status_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

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
