// What shared_folders.h promises.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/linux/directory/linux_shared_folders.h"
#include "platform/testing/in_memory_shared_folders.h"
#include "support/temporary_folder.h"

namespace paddock::contract {
namespace {

class SharedFoldersSubject {
 public:
  virtual ~SharedFoldersSubject() = default;
  virtual SharedFolders& folders() = 0;
  virtual std::string path(const std::string& name) const = 0;
  virtual void makeFolder(const std::string& path) = 0;
  virtual void makeFile(const std::string& path) = 0;
  virtual void remove(const std::string& path) = 0;
};

class InMemorySharedFoldersSubject final : public SharedFoldersSubject {
 public:
  SharedFolders& folders() override { return folders_; }
  std::string path(const std::string& name) const override { return "/srv/" + name; }
  void makeFolder(const std::string& path) override { folders_.place(path); }
  void makeFile(const std::string& path) override { folders_.take(path); }
  void remove(const std::string& path) override { folders_.take(path); }

 private:
  InMemorySharedFolders folders_;
};

class LinuxSharedFoldersSubject final : public SharedFoldersSubject {
 public:
  SharedFolders& folders() override { return folders_; }
  std::string path(const std::string& name) const override { return folder_.path(name); }
  void makeFolder(const std::string& path) override {
    // One that is removed first may leave its number to the next.
    std::filesystem::create_directory(path + ".new");
    std::filesystem::rename(path + ".new", path);
  }
  void makeFile(const std::string& path) override { writeWholeFile(path, ""); }
  void remove(const std::string& path) override { std::filesystem::rename(path, path + ".was"); }

 private:
  TestFolder folder_;
  LinuxSharedFolders folders_{folder_.path("state/shared-folders.sqlite"), nullptr};
};

struct Kind {
  const char* name;
  std::unique_ptr<SharedFoldersSubject> (*make)();
};

class SharedFoldersContract : public ::testing::TestWithParam<Kind> {
 protected:
  SharedFolder compare(const std::string& name = "a") { return folders().compare(path_, name); }
  SharedFolders& folders() { return subject_->folders(); }

  std::unique_ptr<SharedFoldersSubject> subject_ = GetParam().make();
  const std::string path_ = subject_->path("shared");
};
INSTANTIATE_TEST_SUITE_P(SharedFolders, SharedFoldersContract,
                         ::testing::Values(Kind{"InMemory",
                                                [] {
                                                  return std::unique_ptr<SharedFoldersSubject>(
                                                      new InMemorySharedFoldersSubject);
                                                }},
                                           Kind{"Linux",
                                                [] {
                                                  return std::unique_ptr<SharedFoldersSubject>(
                                                      new LinuxSharedFoldersSubject);
                                                }}),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(SharedFoldersContract, NothingIsKnownAtFirst) {
  subject_->makeFolder(path_);
  EXPECT_EQ(compare(), SharedFolder::unknown);
  EXPECT_EQ(folders().forget(path_), 0);
}

TEST_P(SharedFoldersContract, FolderStaysSameUntilReplacedByAnother) {
  subject_->makeFolder(path_);
  EXPECT_EQ(folders().remember(path_, "a"), 0);
  EXPECT_EQ(compare(), SharedFolder::same);
  subject_->remove(path_);
  EXPECT_EQ(compare(), SharedFolder::unreachable) << "nothing is there";
  subject_->makeFolder(path_);
  EXPECT_EQ(compare(), SharedFolder::other);
  EXPECT_EQ(folders().remember(path_, "a"), 0);
  EXPECT_EQ(compare(), SharedFolder::same);
}

TEST_P(SharedFoldersContract, WhatIsForgottenOrAnotherNamesIsUnknown) {
  subject_->makeFolder(path_);
  EXPECT_EQ(folders().remember(path_, "a"), 0);
  EXPECT_EQ(compare("b"), SharedFolder::unknown);
  EXPECT_EQ(folders().remember(path_, "b"), 0);
  EXPECT_EQ(compare("b"), SharedFolder::same);
  EXPECT_EQ(compare("a"), SharedFolder::unknown);
  EXPECT_EQ(folders().forget(path_), 0);
  EXPECT_EQ(compare("b"), SharedFolder::unknown);
}

TEST_P(SharedFoldersContract, WhatIsNoFolderIsNotRemembered) {
  subject_->makeFolder(path_);
  EXPECT_EQ(folders().remember(path_, "a"), 0);
  subject_->remove(path_);
  EXPECT_EQ(folders().remember(path_, "a"), 0) << "and what was is forgotten";
  subject_->makeFolder(path_);
  EXPECT_EQ(compare(), SharedFolder::unknown);
  subject_->remove(path_);
  subject_->makeFile(path_);
  EXPECT_EQ(folders().remember(path_, "a"), 0);
  EXPECT_EQ(compare(), SharedFolder::unknown);
}

TEST_P(SharedFoldersContract, PathsAreTakenByTheByte) {
  const std::string odd = subject_->path("o'\"; --\xC3\xA4");
  subject_->makeFolder(odd);
  EXPECT_EQ(folders().remember(odd, "n'"), 0);
  EXPECT_EQ(folders().compare(odd, "n'"), SharedFolder::same);
}

// Another process, or the same one after a restart, reads what was written.
TEST(LinuxSharedFolders, OutliveWhoRememberedThem) {
  const TestFolder folder;
  const std::string database = folder.path("shared-folders.sqlite");
  std::filesystem::create_directory(folder.path("shared"));
  EXPECT_EQ(LinuxSharedFolders(database, nullptr).remember(folder.path("shared"), "a"), 0);
  LinuxSharedFolders again(database, nullptr);
  EXPECT_EQ(again.compare(folder.path("shared"), "a"), SharedFolder::same);
  std::filesystem::remove(database);
  EXPECT_EQ(again.compare(folder.path("shared"), "a"), SharedFolder::unknown);
  EXPECT_FALSE(std::filesystem::exists(database)) << "reading makes no file";
}

TEST(LinuxSharedFolders, InvalidDatabaseIsUndeterminedAndLeftUntouched) {
  const TestFolder folder;
  const std::string database = folder.path("shared-folders.sqlite");
  writeWholeFile(database, "no database at all, but long enough to be looked at as one");
  std::filesystem::create_directory(folder.path("shared"));
  LinuxSharedFolders folders(database, nullptr);
  EXPECT_NE(folders.remember(folder.path("shared"), "a"), 0);
  EXPECT_EQ(folders.compare(folder.path("shared"), "a"), SharedFolder::unreachable);
  EXPECT_EQ(readWholeFile(database), "no database at all, but long enough to be looked at as one");
}

}  // namespace
}  // namespace paddock::contract
