// The program itself, on trees in which something moves while it runs, and where others have put
// what is not theirs to give away: mounts and links.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "base/file_access.h"
#include "support/copyprivs_tree.h"
#include "support/killed_program.h"
#include "support/own_mounts.h"
#include "support/restless_folder.h"

namespace paddock::copyprivs {
namespace {

using ::testing::HasSubstr;

constexpr std::uint32_t kAnna = 21001;
constexpr std::uint32_t kBert = 21002;
constexpr std::uint32_t kCara = 21003;
constexpr int kFolders = 12;
constexpr int kFiles = 300;
constexpr int kMovingFiles = 20;
constexpr const char* kOwner = "1";

std::string folderNamed(int number) { return "folder" + std::to_string(number); }

bool isSet(const std::string& path) { return lstatOf(path).st_uid == kAnna; }

std::int64_t notYetSet(const std::string& folder) {
  std::int64_t count = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!isSet(entry.path())) ++count;
  }
  return count;
}

class ProgramAndMoves : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "giving files away needs root";
    const std::string why = whyNoLists(data_.path());
    if (!why.empty()) GTEST_SKIP() << why;
    tree_.own("", 0755, kAnna, kBert);
  }

  // Folders of files, each with one more folder in it.
  void makeFolders() const {
    for (int number = 0; number < kFolders; ++number) {
      const std::string moving = folderNamed(number) + "/moving";
      tree_.makeFolder(moving);
      for (int file = 0; file < kFiles; ++file) {
        tree_.makeFile(folderNamed(number) + "/file" + std::to_string(file));
      }
      for (int file = 0; file < kMovingFiles; ++file) {
        tree_.makeFile(moving + "/file" + std::to_string(file));
      }
    }
  }
  std::string folder(int number, const std::string& name = "") const {
    return tree_.path(folderNamed(number)) + "/" + name;
  }
  bool isDone(int number) const {
    return isSet(folder(number)) && notYetSet(folder(number, "moving")) == 0 &&
           notYetSet(folder(number)) == 0;
  }
  // A folder that the program has been in, as far as that is seen without going through all of it.
  std::optional<int> findDone() const {
    for (int number = 0; number < kFolders; ++number) {
      if (isSet(folder(number, "moving/file0")) && isDone(number)) return number;
    }
    return std::nullopt;
  }
  std::optional<int> findUntouched() const {
    for (int number = 0; number < kFolders; ++number) {
      if (!isSet(folder(number)) && !isSet(folder(number, "file0"))) return number;
    }
    return std::nullopt;
  }
  // Stops the program when it has been in one folder and not yet come to another, calls `move` with
  // the two and lets it go on. False when it ended before.
  bool moveMeanwhile(const RunningProgram& program,
                     const std::function<void(int, int)>& move) const {
    while (program.isRunning()) {
      if (!findDone()) continue;
      if (!program.stop()) return false;
      const auto done = findDone();
      const auto untouched = findUntouched();
      if (done && untouched) move(*untouched, *done);
      program.goOn();
      return done && untouched;
    }
    return false;
  }

  const TestFolder data_;
  const TestTree tree_{data_.path()};
};

TEST_F(ProgramAndMoves, WhatMovesIntoTheVisitedPartIsSet) {
  constexpr int kAttempts = 20;
  makeFolders();
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(tree_.path())) {
      ASSERT_EQ(::lchown(entry.path().c_str(), 0, 0), 0);
    }
    RunningProgram program(tree_.program(), tree_.wordsFor(kOwner));
    const bool isMoved = moveMeanwhile(program, [&](int from, int to) {
      std::filesystem::rename(folder(from, "moving"), folder(to, "came"));
      std::filesystem::rename(folder(from, "file0"), folder(to, "file-came"));
    });
    EXPECT_EQ(program.end(), 0);
    if (!isMoved) continue;
    EXPECT_EQ(notYetSet(tree_.path()), 0);
    EXPECT_EQ(tree_.status().integer("errorCount"), 0);
    EXPECT_EQ(tree_.status().integer("itemsTotal"), kFolders * (1 + kFiles + 1 + kMovingFiles));
    EXPECT_EQ(tree_.status().integer("itemsChanged"), tree_.status().integer("itemsDone"));
    return;
  }
  FAIL() << "it was never stopped early enough";
}

TEST_F(ProgramAndMoves, FutureTimesOfFoldersAreNoChange) {
  makeFolders();
  constexpr std::array<timespec, 2> kFuture{timespec{4'000'000'000, 1}, timespec{4'000'000'000, 1}};
  for (int number = 0; number < kFolders; ++number) {
    ASSERT_EQ(::utimensat(AT_FDCWD, folder(number).c_str(), kFuture.data(), 0), 0);
  }
  // Their owner may have set them at any time before the run.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(tree_.run(kOwner).status, 0);
  EXPECT_EQ(tree_.status().integer("errorCount"), 0);
  EXPECT_EQ(notYetSet(tree_.path()), 0);
}

TEST_F(ProgramAndMoves, AFolderThatMovesAllTheTimeIsAnError) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  runInOwnMounts([&] {
    mountTmpfs(data_.path(), "64m");
    const TestTree tree(data_.path());
    tree.own("", 0755, kAnna, kBert);
    makeManyFolders(tree.path());
    tree.makeFolder("moving/inside");
    EndedProgram ended;
    {
      const RestlessFolder restless(tree.path("moving"), tree.path("elsewhere"));
      ended = tree.run(kOwner);
    }
    EXPECT_EQ(ended.status, 1);
    const Dictionary status = tree.status();
    EXPECT_GT(*status.integer("errorCount"), 0);
    for (const Value& error : *status.array("errors")) {
      EXPECT_THAT(*error.dictionary()->string("error"), HasSubstr("kept changing during the run"));
    }
    // At rest everything is set.
    EXPECT_EQ(tree.run(kOwner).status, 0);
    EXPECT_EQ(notYetSet(tree.path()), 0);
  });
}

// A file system of a user of this machine, whose server never answers.
class Mounted {
 public:
  Mounted(const std::string& path, const std::string& mode, const std::string& more = "")
      : server_(::open("/dev/fuse", O_RDWR | O_CLOEXEC)), path_(path) {
    const std::string options = "fd=" + std::to_string(server_.get()) + ",rootmode=" + mode +
                                ",user_id=21003,group_id=21003" + more;
    EXPECT_EQ(::mount("own", path_.c_str(), "fuse", 0, options.c_str()), 0) << path_;
  }
  Mounted(const Mounted&) = delete;
  Mounted& operator=(const Mounted&) = delete;
  ~Mounted() { ::umount2(path_.c_str(), MNT_DETACH); }

 private:
  const FileDescriptor server_;
  const std::string path_;
};

TEST_F(ProgramAndMoves, UsersMountsAreLeftOutWithoutAskingTheirServers) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  if (::access("/dev/fuse", R_OK | W_OK) != 0) GTEST_SKIP() << "there is no FUSE here";
  tree_.makeFolder("closed");
  tree_.makeFolder("open");
  tree_.makeFile("file");
  tree_.makeFile("other");
  runInOwnMounts([&] {
    const Mounted closed(tree_.path("closed"), "40000");
    const Mounted open(tree_.path("open"), "40000", ",allow_other");
    const Mounted file(tree_.path("file"), "100000", ",allow_other");
    // The second run expects that there is nothing to do.
    for (int run = 0; run < 2; ++run) {
      RunningProgram program(tree_.program(), tree_.wordsFor(kOwner));
      const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
      while (program.isRunning() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      ASSERT_FALSE(program.isRunning()) << "it waits for a server that never answers";
      EXPECT_EQ(program.end(), 0);
      EXPECT_EQ(tree_.status().integer("errorCount"), 0);
      EXPECT_EQ(tree_.status().integer("itemsTotal"), 1);
    }
    EXPECT_TRUE(isSet(tree_.path("other")));
  });
}

class ProgramAndLinks : public ProgramAndMoves {
 protected:
  void SetUp() override {
    ProgramAndMoves::SetUp();
    if (IsSkipped()) return;
    writeWholeFile(data_.path("secret"), "theirs");
    ASSERT_EQ(::chown(data_.path("secret").c_str(), kCara, kCara), 0);
    ASSERT_EQ(::chmod(data_.path("secret").c_str(), 0600), 0);
    std::filesystem::create_hard_link(data_.path("secret"), tree_.path("link"));
    tree_.makeFile("own", 0644, kAnna);
    std::filesystem::create_hard_link(tree_.path("own"), tree_.path("own-too"));
    tree_.makeFile("single", 0644, kCara);
  }
};

TEST_F(ProgramAndLinks, LinksToOtherPeoplesFilesAreLeftOutWithTheOption) {
  EXPECT_EQ(tree_.run("63", {"-l"}).status, 0);
  EXPECT_EQ(lstatOf(data_.path("secret")).st_uid, kCara);
  EXPECT_EQ(permissionsOf(data_.path("secret")), 0600U);
  // The rest is set: the folder owner's own, and what has one name.
  EXPECT_EQ(lstatOf(tree_.path("own")).st_gid, kBert);
  EXPECT_TRUE(isSet(tree_.path("single")));
  const Dictionary status = tree_.status();
  EXPECT_EQ(status.integer("itemsLeftOut"), 1);
  EXPECT_EQ(status.integer("itemsDone"), 4);
  EXPECT_EQ(status.integer("errorCount"), 0);
  // Also when nothing else is to be done.
  EXPECT_EQ(tree_.run("63", {"-l"}).status, 0);
  EXPECT_EQ(lstatOf(data_.path("secret")).st_uid, kCara);
  EXPECT_EQ(tree_.status().integer("itemsLeftOut"), 1);
}

TEST_F(ProgramAndLinks, TheConfigurationGivesTheOptionToEveryRun) {
  tree_.configure("[propagation]\nleave_links = true\n");
  EXPECT_EQ(tree_.run("63").status, 0);
  EXPECT_EQ(lstatOf(data_.path("secret")).st_uid, kCara);
  EXPECT_EQ(tree_.status().integer("itemsLeftOut"), 1);
}

TEST_F(ProgramAndLinks, WithoutTheOptionLinksAreSetAsEverything) {
  EXPECT_EQ(tree_.run("63").status, 0);
  EXPECT_EQ(lstatOf(data_.path("secret")).st_uid, kAnna);
  EXPECT_EQ(tree_.status().find("itemsLeftOut"), nullptr);
}

}  // namespace
}  // namespace paddock::copyprivs
