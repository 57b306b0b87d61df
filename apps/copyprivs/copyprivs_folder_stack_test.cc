#include "copyprivs/copyprivs_folder_stack.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <set>

#include "copyprivs/folder.h"
#include "platform/linux/files/folder_entries.h"
#include "support/open_descriptors.h"
#include "support/temporary_folder.h"

namespace paddock::copyprivs {
namespace {

class FolderStacks : public ::testing::Test {
 protected:
  // Makes the folder in the lowest one, and pushes it.
  void enter(const std::string& name) {
    const int above = stack_.empty() ? AT_FDCWD : stack_.top().descriptor.get();
    const std::string path = stack_.empty() ? folder_.path() : name;
    if (!stack_.empty()) {
      ASSERT_EQ(::mkdirat(above, name.c_str(), 0755), 0);
    }
    FileDescriptor held;
    FileDescriptor descriptor;
    ObjectStatus status;
    ASSERT_EQ(hold(above, path.c_str(), held, status), 0);
    ASSERT_EQ(openFolder(held.get(), descriptor), 0);
    if (stack_.empty()) mount_ = status;
    const Folder::Pointer parent = stack_.empty() ? nullptr : stack_.top().folder;
    stack_.push(std::make_shared<const Folder>(parent, path, status, nullptr),
                std::move(descriptor));
  }
  bool standsIn(const std::string& path) {
    FileDescriptor held;
    ObjectStatus status;
    return hold(AT_FDCWD, path.c_str(), held, status) == 0 && stack_.top().folder->is(status);
  }

  // Adds a few names of the lowest folder's; how many those were.
  std::size_t readSome(std::multiset<std::string>& names) {
    std::vector<char> buffer(256);
    std::span<const char> bytes;
    FolderStack::Level& level = stack_.top();
    EXPECT_EQ(readEntries(level.descriptor.get(), buffer, bytes, level.position), 0);
    const std::size_t before = names.size();
    FolderEntries entries(bytes);
    while (const dirent64* entry = entries.next()) names.insert(entry->d_name);
    return names.size() - before;
  }

  const TestFolder folder_;
  ObjectStatus mount_;
  FolderStack stack_{4, mount_};
};

TEST_F(FolderStacks, FolderPathIncludesAncestors) {
  enter("");
  enter("a");
  enter("b");
  EXPECT_EQ(stack_.top().folder->path(), folder_.path("a/b"));
  EXPECT_EQ(stack_.top().folder->pathOf("file"), folder_.path("a/b/file"));
}

TEST_F(FolderStacks, FewFoldersAreOpenHoweverDeepItIs) {
  const std::size_t before = openDescriptors().size();
  enter("");
  for (int level = 0; level < 200; ++level) enter("d");
  EXPECT_EQ(stack_.depth(), 201U);
  EXPECT_LE(openDescriptors().size(), before + 4);
  for (std::size_t level = 200; level > 0; --level) {
    stack_.pop();
    ASSERT_EQ(stack_.openTop(), 0) << level;
    ASSERT_LE(openDescriptors().size(), before + 4);
    FileDescriptor held;
    ObjectStatus status;
    ASSERT_EQ(hold(stack_.top().descriptor.get(), ".", held, status), 0);
    ASSERT_TRUE(stack_.top().folder->is(status));
  }
  EXPECT_TRUE(standsIn(folder_.path()));
}

TEST_F(FolderStacks, ReadingGoesOnWhereItStood) {
  enter("");
  enter("a");
  constexpr std::size_t kFiles = 40;
  for (std::size_t file = 0; file < kFiles; ++file) {
    writeWholeFile(folder_.path("a/file" + std::to_string(file)), "");
  }
  std::multiset<std::string> names;
  EXPECT_GT(readSome(names), 0U);
  for (int level = 0; level < 30; ++level) enter("d");
  while (stack_.depth() > 2) stack_.pop();
  EXPECT_FALSE(stack_.top().descriptor);
  ASSERT_EQ(stack_.openTop(), 0);
  while (readSome(names) > 0) {
  }
  names.erase("d");
  EXPECT_EQ(names.size(), kFiles);
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), kFiles);
}

TEST_F(FolderStacks, RejectsReplacementFolder) {
  enter("");
  for (int level = 0; level < 8; ++level) enter("d");
  std::filesystem::rename(folder_.path("d/d"), folder_.path("away"));
  std::filesystem::create_directories(folder_.path("d/d/d/d/d"));
  int error = 0;
  while (stack_.depth() > 2 && error == 0) {
    stack_.pop();
    error = stack_.openTop();
  }
  EXPECT_EQ(error, ESTALE);
  while (stack_.depth() > 1) stack_.pop();
  EXPECT_EQ(stack_.openTop(), 0);
}

TEST_F(FolderStacks, ALinkInItsPlaceIsNotFollowed) {
  enter("");
  for (int level = 0; level < 8; ++level) enter("d");
  std::filesystem::rename(folder_.path("d/d"), folder_.path("away"));
  std::filesystem::create_directory_symlink(folder_.path("away"), folder_.path("d/d"));
  int error = 0;
  while (stack_.depth() > 2 && error == 0) {
    stack_.pop();
    error = stack_.openTop();
  }
  EXPECT_EQ(error, ESTALE);
}

}  // namespace
}  // namespace paddock::copyprivs
