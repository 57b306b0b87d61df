#include "volumes/volume_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

class VolumeFilesTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return folder_.path(name); }
  int open(const std::string& name) { return openRegularFile(path(name), file_, owner_); }
  int create(const std::string& name) { return createFile(path(name), 0640, file_); }

  TestFolder folder_;
  FileDescriptor file_;
  uid_t owner_ = 12345;
};

TEST_F(VolumeFilesTest, ARegularFileIsOpenedWithItsOwner) {
  writeWholeFile(path("file"), "x");
  EXPECT_EQ(open("file"), 0);
  ASSERT_TRUE(file_);
  EXPECT_EQ(owner_, ::geteuid());
  EXPECT_NE(::fcntl(file_.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(VolumeFilesTest, NothingElseIsOpened) {
  writeWholeFile(path("file"), "x");
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink("file", path("link"));
  std::filesystem::create_symlink("missing", path("dangling"));
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(open("missing"), ENOENT);
  EXPECT_EQ(open("folder"), EISDIR);
  EXPECT_EQ(open("link"), ELOOP);
  EXPECT_EQ(open("dangling"), ELOOP);
  EXPECT_EQ(open("fifo"), EINVAL);
  EXPECT_EQ(openRegularFile("/dev/null", file_, owner_), EINVAL);
  EXPECT_FALSE(file_);
}

TEST_F(VolumeFilesTest, ANewFileIsEmptyAndMayBeWritten) {
  EXPECT_EQ(create("new"), 0);
  ASSERT_TRUE(file_);
  EXPECT_EQ(std::filesystem::file_size(path("new")), 0U);
  EXPECT_EQ(::write(file_.get(), "x", 1), 1);
  EXPECT_NE(::fcntl(file_.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(VolumeFilesTest, WhatHasTheNameStaysAsItIs) {
  writeWholeFile(path("file"), "contents");
  std::filesystem::create_directory(path("folder"));
  std::filesystem::create_symlink("elsewhere", path("dangling"));
  ASSERT_EQ(::mkfifo(path("fifo").c_str(), 0600), 0);
  for (const char* name : {"file", "folder", "dangling", "fifo"}) {
    EXPECT_EQ(create(name), EEXIST) << name;
  }
  EXPECT_EQ(readWholeFile(path("file")), "contents");
  EXPECT_FALSE(std::filesystem::exists(path("elsewhere")));
  EXPECT_EQ(createFile(path("missing/new"), 0640, file_), ENOENT);
}

TEST_F(VolumeFilesTest, ANameIsTakenByAnythingAtAll) {
  std::filesystem::create_symlink("elsewhere", path("dangling"));
  std::filesystem::create_directory(path("folder"));
  EXPECT_TRUE(isTaken(path("dangling")));
  EXPECT_TRUE(isTaken(path("folder")));
  EXPECT_FALSE(isTaken(path("missing")));
  writeWholeFile(path("file"), "");
  EXPECT_TRUE(isRegularFile(path("file")));
  EXPECT_FALSE(isRegularFile(path("folder")));
  EXPECT_FALSE(isRegularFile(path("dangling")));
}

TEST_F(VolumeFilesTest, APathWithANulNamesNothing) {
  writeWholeFile(path("file"), "");
  const std::string withNul = path("file") + std::string("\0x", 2);
  EXPECT_EQ(openRegularFile(withNul, file_, owner_), EINVAL);
  EXPECT_EQ(createFile(path("new") + std::string("\0x", 2), 0640, file_), EINVAL);
  EXPECT_FALSE(std::filesystem::exists(path("new")));
  EXPECT_FALSE(isTaken(withNul));
  EXPECT_FALSE(isRegularFile(withNul));
}

TEST_F(VolumeFilesTest, AReadOnlyVolumeTakesNoNewFile) {
  if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    bindMount(folder_.path(), folder_.path());
    ASSERT_EQ(::mount("", folder_.path().c_str(), "", MS_REMOUNT | MS_BIND | MS_RDONLY, ""), 0);
    EXPECT_EQ(create("new"), EROFS);
  });
}

}  // namespace
}  // namespace paddock
