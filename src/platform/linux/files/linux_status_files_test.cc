#include "platform/linux/files/linux_status_files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <thread>

#include "base/file_access.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

// "KEY" is a dictionary with that one key; everything else is none.
std::optional<Dictionary> readKey(std::string_view text) {
  if (text.empty() || text.find(' ') != std::string_view::npos) return std::nullopt;
  return Dictionary{{std::string(text), true}};
}

class StatusFilesOnDisk : public testing::Test {
 protected:
  std::string file(const std::string& contents = "running") {
    const std::string path = folder_.path("status");
    writeWholeFile(path, contents);
    return path;
  }
  // Nothing is read, and nothing is removed.
  void expectLeftAlone(const std::string& path) {
    EXPECT_TRUE(files_.exists(path));
    EXPECT_EQ(files_.read(path), std::nullopt);
    EXPECT_EQ(files_.remove(path), EPERM);
    EXPECT_TRUE(files_.exists(path));
  }

  TestFolder folder_;
  LinuxStatusFiles files_{"", readKey};
};

TEST_F(StatusFilesOnDisk, NewFileIsEmptyAndOwnerOnly) {
  std::string path;
  ASSERT_EQ(files_.create(folder_.path("Copy.XXXXXX"), path), 0);
  EXPECT_EQ(path.size(), folder_.path("Copy.XXXXXX").size());
  EXPECT_EQ(path.rfind(folder_.path("Copy."), 0), 0U);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(status.st_size, 0);
  std::string other;
  ASSERT_EQ(files_.create(folder_.path("Copy.XXXXXX"), other), 0);
  EXPECT_NE(other, path);
}

TEST_F(StatusFilesOnDisk, MissingFolderOfTreeIsCreated) {
  LinuxStatusFiles files(folder_.path(), readKey);
  std::string path;
  ASSERT_EQ(files.create("/tmp/Copy.XXXXXX", path), 0);
  EXPECT_EQ(path.rfind(folder_.path("tmp/Copy."), 0), 0U);
  struct stat status {};
  ASSERT_EQ(::stat(folder_.path("tmp").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 01777U);
  EXPECT_TRUE(files.exists(path));
}

TEST_F(StatusFilesOnDisk, UncreatableFileReturnsErrno) {
  std::string path = "old";
  EXPECT_EQ(files_.create(folder_.path("missing/Copy.XXXXXX"), path), ENOENT);
  EXPECT_EQ(path, "");
}

TEST_F(StatusFilesOnDisk, AnOwnFileIsReadAndRemoved) {
  const std::string path = file();
  EXPECT_EQ(files_.read(path), (Dictionary{{"running", true}}));
  EXPECT_EQ(files_.remove(path), 0);
  EXPECT_FALSE(files_.exists(path));
  EXPECT_EQ(files_.read(path), std::nullopt);
  EXPECT_EQ(files_.remove(path), EPERM);
}

TEST_F(StatusFilesOnDisk, AFileWithoutADictionaryIsNone) {
  for (const char* text : {"no dictionary", ""}) expectLeftAlone(file(text));
}

TEST_F(StatusFilesOnDisk, ALinkIsLeftAlone) {
  const std::string link = folder_.path("link");
  ASSERT_EQ(::symlink(file().c_str(), link.c_str()), 0);
  expectLeftAlone(link);
}

TEST_F(StatusFilesOnDisk, ALinkThatLeadsNowhereIsThere) {
  const std::string link = folder_.path("link");
  ASSERT_EQ(::symlink("nowhere", link.c_str()), 0);
  expectLeftAlone(link);
}

TEST_F(StatusFilesOnDisk, HardLinkedFileIsLeftAlone) {
  const std::string path = file();
  ASSERT_EQ(::link(path.c_str(), folder_.path("second").c_str()), 0);
  expectLeftAlone(path);
}

TEST_F(StatusFilesOnDisk, AnotherUsersFileIsLeftAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  const std::string path = file();
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  expectLeftAlone(path);
}

TEST_F(StatusFilesOnDisk, FoldersFifosAndDevicesAreLeftAlone) {
  expectLeftAlone(folder_.path());
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  expectLeftAlone(folder_.path("fifo"));
  expectLeftAlone("/dev/null");
}

TEST_F(StatusFilesOnDisk, WhatIsNoFileIsNotOpened) {
  const std::string fifo = folder_.path("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const FileDescriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(::inotify_add_watch(watch.get(), fifo.c_str(), IN_OPEN), 0);
  const auto isOpened = [&watch] {
    std::array<char, 4096> events;
    return ::read(watch.get(), events.data(), events.size()) > 0;
  };
  expectLeftAlone(fifo);
  EXPECT_FALSE(isOpened());
  const FileDescriptor opened(::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  EXPECT_TRUE(isOpened());
}

// A link above the file that leads to and fro between two folders: one where the name is that of a
// status file, and one where it is not.
TEST_F(StatusFilesOnDisk, WhoeverSwapsFoldersLosesNothingElse) {
  const std::string own = folder_.path("own");
  const std::string others = folder_.path("others");
  ASSERT_EQ(::mkdir(own.c_str(), 0700) + ::mkdir(others.c_str(), 0700), 0);
  ASSERT_EQ(::link(file("precious").c_str(), (others + "/status").c_str()), 0);
  const std::string swapped = folder_.path("swapped");
  ASSERT_EQ(::symlink("own", swapped.c_str()), 0);
  std::atomic<bool> isEnough = false;
  std::thread swapper([&] {
    const std::string next = folder_.path("next");
    for (bool toOwn = false; !isEnough; toOwn = !toOwn) {
      if (::symlink(toOwn ? "own" : "others", next.c_str()) == 0) {
        ::rename(next.c_str(), swapped.c_str());
      }
    }
  });
  for (int removed = 0; removed < 2000;) {
    writeWholeFile(own + "/status", "completed");
    while (files_.remove(swapped + "/status") != 0) continue;
    ++removed;
    if (!files_.exists(others + "/status")) break;
  }
  isEnough = true;
  swapper.join();
  EXPECT_TRUE(files_.exists(others + "/status"));
}

TEST_F(StatusFilesOnDisk, ReadsFilesUpToOneMebibyte) {
  EXPECT_NE(files_.read(file(std::string(kMaximumStatusFile, 'x'))), std::nullopt);
  expectLeftAlone(file(std::string(kMaximumStatusFile + 1, 'x')));
}

TEST_F(StatusFilesOnDisk, APathWithANulIsNotThere) {
  const std::string path = file() + std::string("\0x", 2);
  EXPECT_FALSE(files_.exists(path));
  EXPECT_EQ(files_.read(path), std::nullopt);
  EXPECT_EQ(files_.remove(path), EPERM);
}

}  // namespace
}  // namespace paddock
