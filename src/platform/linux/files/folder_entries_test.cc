#include "platform/linux/files/folder_entries.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <set>
#include <string>

#include "base/file_access.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr std::size_t kBuffer = 4096;

class FolderEntriesOfAFolder : public ::testing::Test {
 protected:
  void open() {
    descriptor_ = FileDescriptor(::open(folder_.path().c_str(), O_RDONLY | O_DIRECTORY));
  }
  std::set<std::string> namesLeft(FolderEntries entries) {
    std::set<std::string> names;
    while (const dirent64* entry = entries.next()) names.insert(entry->d_name);
    return names;
  }
  int read(std::size_t size = kBuffer) {
    return readEntries(descriptor_.get(), std::span(buffer_).first(size), entries_, position_);
  }

  TestFolder folder_;
  FileDescriptor descriptor_;
  alignas(dirent64) std::array<char, kBuffer> buffer_{};
  std::span<const char> entries_;
  std::int64_t position_ = 0;
};

TEST_F(FolderEntriesOfAFolder, ExcludeFolderItselfAndParent) {
  writeWholeFile(folder_.path("a"), "");
  writeWholeFile(folder_.path("..b"), "");
  open();
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(namesLeft(FolderEntries(entries_)), UnorderedElementsAre("a", "..b"));
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(entries_, IsEmpty());
}

TEST_F(FolderEntriesOfAFolder, GoOnFromThePosition) {
  std::set<std::string> wanted;
  for (int number = 0; number < 100; ++number) {
    wanted.insert("file" + std::to_string(number));
    writeWholeFile(folder_.path("file" + std::to_string(number)), "");
  }
  std::set<std::string> names;
  for (open(); read(512) == 0 && !entries_.empty();) {
    for (const std::string& name : namesLeft(FolderEntries(entries_))) {
      EXPECT_TRUE(names.insert(name).second) << name;
    }
    open();
    ASSERT_GE(::lseek(descriptor_.get(), position_, SEEK_SET), 0);
  }
  EXPECT_EQ(names, wanted);
}

TEST_F(FolderEntriesOfAFolder, SplitIntoHalvesWithoutLossOrRepetition) {
  std::set<std::string> wanted;
  for (int number = 0; number < 40; ++number) {
    wanted.insert(std::string(static_cast<std::size_t>(number + 1), 'n'));
    writeWholeFile(folder_.path(*wanted.rbegin()), "");
  }
  open();
  ASSERT_EQ(read(), 0);
  FolderEntries entries(entries_);
  const std::vector<char> half = entries.cutHalf();
  const auto first = namesLeft(entries);
  const auto second = namesLeft(FolderEntries(half));
  EXPECT_EQ(first.size() + second.size(), wanted.size());
  EXPECT_GT(first.size(), 5U);
  EXPECT_GT(second.size(), 5U);
  std::set<std::string> all = first;
  all.insert(second.begin(), second.end());
  EXPECT_EQ(all, wanted);
}

TEST(FolderEntries, OfNothingAreNone) {
  FolderEntries entries({});
  EXPECT_EQ(entries.next(), nullptr);
  EXPECT_THAT(entries.cutHalf(), IsEmpty());
}

TEST(FolderEntries, WhatIsNoFolderHasNone) {
  std::array<char, kBuffer> buffer{};
  std::span<const char> entries(buffer);
  std::int64_t position = 5;
  EXPECT_EQ(readEntries(-1, buffer, entries, position), EBADF);
  EXPECT_THAT(entries, IsEmpty());
  EXPECT_EQ(position, 5);
}

}  // namespace
}  // namespace paddock
