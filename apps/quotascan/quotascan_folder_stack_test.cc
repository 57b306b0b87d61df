#include "quotascan/quotascan_folder_stack.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "support/temporary_folder.h"

namespace paddock::quotascan {
namespace {

class FolderStacks : public ::testing::Test {
 protected:
  static constexpr std::size_t kDescriptors = 3;

  static FileDescriptor open(int folder, const std::string& name) {
    return FileDescriptor(::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY));
  }
  // Makes the folder `name` in the lowest one, and enters it.
  void enter(const std::string& name) {
    const int above = stack_.top().folder.get();
    ASSERT_EQ(::mkdirat(above, name.c_str(), 0700), 0);
    push(open(above, name), name);
  }
  void push(FileDescriptor folder, const std::string& name) {
    ObjectStatus status;
    ASSERT_EQ(statusOf(folder.get(), status), 0);
    inodes_.push_back(status.inode);
    stack_.push(std::move(folder), status, name);
  }
  std::uint64_t inodeOfTop() {
    ObjectStatus status;
    EXPECT_EQ(statusOf(stack_.top().folder.get(), status), 0);
    return status.inode;
  }
  void SetUp() override { push(open(AT_FDCWD, folder_.path()), ""); }

  TestFolder folder_;
  FolderStack stack_{kDescriptors};
  std::vector<std::uint64_t> inodes_;
};

TEST_F(FolderStacks, TraversesAnyDepthWithFewDescriptors) {
  constexpr int kLevels = 100;
  const int before = ::dup(STDIN_FILENO);
  ::close(before);
  for (int level = 1; level < kLevels; ++level) enter("d");
  const int after = ::dup(STDIN_FILENO);
  ::close(after);
  EXPECT_LT(after, before + static_cast<int>(kDescriptors) + 1);
  for (int level = kLevels - 1; level > 0; --level) {
    EXPECT_EQ(inodeOfTop(), inodes_[static_cast<std::size_t>(level)]);
    ASSERT_EQ(stack_.pop(), 0);
  }
  EXPECT_EQ(inodeOfTop(), inodes_.front());
  EXPECT_EQ(stack_.pop(), 0);
  EXPECT_TRUE(stack_.empty());
}

TEST_F(FolderStacks, GoesDownAgainAfterItCameUp) {
  for (int round = 0; round < 3; ++round) {
    for (int level = 0; level < 10; ++level) enter("r" + std::to_string(round));
    for (int level = 0; level < 7; ++level) ASSERT_EQ(stack_.pop(), 0);
  }
  EXPECT_EQ(stack_.depth(), 10U);
  while (stack_.depth() > 1) {
    ASSERT_EQ(stack_.pop(), 0);
    EXPECT_TRUE(stack_.top().folder);
  }
}

TEST_F(FolderStacks, ReopenedFolderResumesAtReadingPosition) {
  stack_.top().isRead = true;
  enter("a");
  stack_.top().position = 1;
  for (int level = 0; level < 5; ++level) enter("b");
  while (stack_.depth() > 2) ASSERT_EQ(stack_.pop(), 0);
  EXPECT_EQ(::lseek(stack_.top().folder.get(), 0, SEEK_CUR), 1);
}

TEST_F(FolderStacks, FindsParentOfMovedFolder) {
  for (int level = 0; level < 6; ++level) enter("d");
  const std::string deepest = folder_.path("d/d/d/d/d/d");
  std::filesystem::rename(deepest, folder_.path("elsewhere"));
  std::filesystem::rename(folder_.path("d/d/d/d"), folder_.path("d/d/d/x"));
  std::filesystem::rename(folder_.path("d/d/d/x"), folder_.path("d/d/d/d"));
  while (stack_.depth() > 1) {
    ASSERT_EQ(stack_.pop(), 0);
    EXPECT_EQ(inodeOfTop(), inodes_[stack_.depth() - 1]);
  }
}

TEST_F(FolderStacks, ReportsMissingParentFolder) {
  for (int level = 0; level < 6; ++level) enter("d");
  std::filesystem::rename(folder_.path("d/d/d/d/d"), folder_.path("elsewhere"));
  std::filesystem::rename(folder_.path("d/d"), folder_.path("other"));
  int error = 0;
  while (error == 0 && stack_.depth() > 1) error = stack_.pop();
  EXPECT_EQ(error, ESTALE);
  EXPECT_EQ(stack_.top().name, "d");
}

TEST_F(FolderStacks, RejectsNewFolderWithFormerName) {
  for (int level = 0; level < 6; ++level) enter("d");
  std::filesystem::rename(folder_.path("d/d/d/d/d"), folder_.path("elsewhere"));
  std::filesystem::rename(folder_.path("d/d/d/d"), folder_.path("other"));
  std::filesystem::create_directory(folder_.path("d/d/d/d"));
  int error = 0;
  while (error == 0 && stack_.depth() > 1) error = stack_.pop();
  EXPECT_EQ(error, ESTALE);
}

TEST_F(FolderStacks, NamesWaitOnTheirLevels) {
  stack_.addPending(stack_.top(), "a");
  stack_.addPending(stack_.top(), "bb");
  enter("d");
  stack_.addPending(stack_.top(), "ccc");
  EXPECT_EQ(stack_.pendingBytes(), 2U + 3U + 4U);
  EXPECT_EQ(stack_.takePending(stack_.top()), "ccc");
  EXPECT_TRUE(stack_.top().pending.empty());
  ASSERT_EQ(stack_.pop(), 0);
  EXPECT_EQ(stack_.takePending(stack_.top()), "bb");
  EXPECT_EQ(stack_.takePending(stack_.top()), "a");
  EXPECT_EQ(stack_.pendingBytes(), 0U);
}

TEST_F(FolderStacks, SplittingNamesLosesAndRepeatsNone) {
  for (const char* name : {"a", "bb", "ccc", "dddd"}) stack_.addPending(stack_.top(), name);
  NameList cut = stack_.cutPending(stack_.top());
  EXPECT_EQ(cut.bytes(), 9U);
  EXPECT_EQ(stack_.pendingBytes(), 5U);
  EXPECT_EQ(stack_.cutPending(stack_.top()).take(), "dddd");
  EXPECT_EQ(stack_.pendingBytes(), 0U);
  EXPECT_TRUE(stack_.top().pending.empty());
  stack_.setPending(stack_.top(), std::move(cut));
  EXPECT_EQ(stack_.pendingBytes(), 9U);
  EXPECT_EQ(stack_.takePending(stack_.top()), "ccc");
}

TEST_F(FolderStacks, LeavingLevelDiscardsPendingNames) {
  enter("d");
  stack_.addPending(stack_.top(), "a");
  ASSERT_EQ(stack_.pop(), 0);
  EXPECT_EQ(stack_.pendingBytes(), 0U);
}

TEST_F(FolderStacks, HighestLevelWithNamesIsOpen) {
  EXPECT_EQ(stack_.highestPending(), nullptr);
  enter("closed");
  stack_.addPending(stack_.top(), "x");
  for (int level = 0; level < 5; ++level) enter("d");
  EXPECT_EQ(stack_.highestPending(), nullptr);
  stack_.addPending(stack_.top(), "y");
  EXPECT_EQ(stack_.highestPending(), &stack_.top());
  while (stack_.depth() > 2) ASSERT_EQ(stack_.pop(), 0);
  EXPECT_EQ(stack_.highestPending(), &stack_.top());
}

}  // namespace
}  // namespace paddock::quotascan
