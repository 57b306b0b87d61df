// What text_file.h promises.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "text_file_subject.h"

namespace paddock::contract {
namespace {

using Kind = InMemoryTextFiles::Kind;

class TextFilesContract : public ::testing::TestWithParam<bool> {
 protected:
  TextFilesContract() {
    if (GetParam()) {
      subject_ = std::make_unique<LinuxTextFilesSubject>();
    } else {
      subject_ = std::make_unique<InMemoryTextFilesSubject>();
    }
  }

  std::string path(const std::string& name) const { return subject_->path(name); }
  void makeFile(const std::string& name, const std::string& contents) {
    subject_->make(name, {Kind::file, contents});
  }
  void makeLink(const std::string& name, const std::string& target) {
    subject_->make(name, {Kind::link, target});
  }
  int read(const std::string& name) { return files().read(path(name), read_); }
  int replace(const std::string& name, const std::string& contents) {
    return files().replace(path(name), contents);
  }
  int copyOnce(const std::string& from, const std::string& to) {
    return files().copyOnce(path(from), path(to));
  }
  std::string contentsOf(const std::string& name) const {
    const auto object = subject_->find(name);
    return object && object->kind == Kind::file ? object->contents : "(no file)";
  }
  TextFiles& files() { return subject_->service(); }

  std::unique_ptr<TextFilesSubject> subject_;
  std::string read_ = "what was here before";
};

INSTANTIATE_TEST_SUITE_P(TextFiles, TextFilesContract, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Linux" : "InMemory"; });

TEST_P(TextFilesContract, ReadsAllBytes) {
  const std::string bytes = std::string("a\0b\r\n\xFF", 6) + std::string(200'000, 'x');
  makeFile("a", bytes);
  EXPECT_EQ(read("a"), 0);
  EXPECT_EQ(read_, bytes);
}

TEST_P(TextFilesContract, ReadsAnEmptyFileAsNothing) {
  makeFile("a", "");
  EXPECT_EQ(read("a"), 0);
  EXPECT_EQ(read_, "");
}

TEST_P(TextFilesContract, MissingFileIsReportedAndReadsEmpty) {
  EXPECT_EQ(read("a"), ENOENT);
  EXPECT_EQ(read_, "");
  EXPECT_EQ(read("nofolder/a"), ENOENT);
  EXPECT_EQ(files().read("", read_), ENOENT);
}

TEST_P(TextFilesContract, WhatIsNoRegularFileIsNotRead) {
  subject_->make("folder", {Kind::folder, "", 0755});
  subject_->make("pipe", {Kind::other, ""});
  EXPECT_EQ(read("folder"), EISDIR);
  EXPECT_EQ(read("pipe"), EINVAL);
}

TEST_P(TextFilesContract, FileAboveLimitIsNotRead) {
  makeFile("limit", std::string(std::size_t{64} << 20U, 'x'));
  makeFile("more", std::string((std::size_t{64} << 20U) + 1, 'x'));
  EXPECT_EQ(read("limit"), 0);
  EXPECT_EQ(read("more"), EFBIG);
  EXPECT_EQ(read_, "");
}

TEST_P(TextFilesContract, ReadsThroughLinks) {
  makeFile("a", "text");
  makeLink("relative", "a");
  makeLink("absolute", path("relative"));
  EXPECT_EQ(read("absolute"), 0);
  EXPECT_EQ(read_, "text");
  makeLink("dangling", "nothing");
  EXPECT_EQ(read("dangling"), ENOENT);
  makeLink("circle", "circle");
  EXPECT_EQ(read("circle"), ELOOP);
}

TEST_P(TextFilesContract, ReplacesTheContents) {
  makeFile("a", "old and longer");
  EXPECT_EQ(replace("a", "new"), 0);
  EXPECT_EQ(contentsOf("a"), "new");
  EXPECT_EQ(replace("a", ""), 0);
  EXPECT_EQ(contentsOf("a"), "");
  EXPECT_EQ(subject_->objectCount(), 1U);
}

TEST_P(TextFilesContract, CreatesAMissingFileReadableByAll) {
  const mode_t before = ::umask(077);
  EXPECT_EQ(replace("a", "new"), 0);
  ::umask(before);
  ASSERT_TRUE(subject_->find("a"));
  EXPECT_EQ(subject_->find("a")->contents, "new");
  EXPECT_EQ(subject_->find("a")->mode, 0644U);
}

TEST_P(TextFilesContract, KeepsOwnerGroupAndMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  subject_->make("a", {Kind::file, "old", 02640, 12, 34});
  EXPECT_EQ(replace("a", "new"), 0);
  EXPECT_EQ(subject_->find("a"), (TextObject{Kind::file, "new", 02640, 12, 34}));
}

TEST_P(TextFilesContract, ALinkStaysAndItsTargetIsReplaced) {
  subject_->make("inner", {Kind::folder, "", 0755});
  subject_->make("inner/a", {Kind::file, "old", 0600});
  makeLink("inner/next", "a");
  makeLink("link", "inner/next");
  EXPECT_EQ(replace("link", "new"), 0);
  EXPECT_EQ(subject_->find("link")->kind, Kind::link);
  EXPECT_EQ(subject_->find("inner/next")->kind, Kind::link);
  EXPECT_EQ(contentsOf("inner/a"), "new");
  EXPECT_EQ(subject_->find("inner/a")->mode, 0600U);
}

TEST_P(TextFilesContract, ADanglingLinksTargetIsCreated) {
  makeLink("link", path("target"));
  EXPECT_EQ(replace("link", "new"), 0);
  EXPECT_EQ(subject_->find("link")->kind, Kind::link);
  EXPECT_EQ(contentsOf("target"), "new");
}

TEST_P(TextFilesContract, OnlyARegularFileIsReplaced) {
  subject_->make("folder", {Kind::folder, "", 0755});
  subject_->make("pipe", {Kind::other, ""});
  makeLink("circle", "circle");
  EXPECT_EQ(replace("folder", "new"), EISDIR);
  EXPECT_EQ(replace("pipe", "new"), EINVAL);
  EXPECT_EQ(replace("circle", "new"), ELOOP);
  EXPECT_EQ(replace("nofolder/a", "new"), ENOENT);
  EXPECT_EQ(subject_->find("pipe")->kind, Kind::other);
  EXPECT_EQ(subject_->objectCount(), 3U);
}

TEST_P(TextFilesContract, CopiesContentsOwnerGroupAndMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  subject_->make("a", {Kind::file, "text", 0640, 12, 34});
  EXPECT_EQ(copyOnce("a", "b"), 0);
  EXPECT_EQ(subject_->find("b"), (TextObject{Kind::file, "text", 0640, 12, 34}));
  EXPECT_EQ(subject_->objectCount(), 2U);
}

TEST_P(TextFilesContract, ACopyNeverReplacesAnything) {
  makeFile("a", "text");
  makeFile("b", "earlier");
  makeLink("dangling", "nothing");
  EXPECT_EQ(copyOnce("a", "b"), EEXIST);
  EXPECT_EQ(copyOnce("a", "dangling"), EEXIST);
  EXPECT_EQ(contentsOf("b"), "earlier");
  EXPECT_EQ(subject_->objectCount(), 3U);
}

TEST_P(TextFilesContract, ACopyThatFailsLeavesNothing) {
  EXPECT_EQ(copyOnce("missing", "b"), ENOENT);
  makeFile("a", "text");
  EXPECT_EQ(copyOnce("a", "nofolder/b"), ENOENT);
  subject_->make("folder", {Kind::folder, "", 0755});
  EXPECT_EQ(copyOnce("folder", "b"), EISDIR);
  EXPECT_FALSE(subject_->find("b"));
  EXPECT_EQ(subject_->objectCount(), 2U);
}

TEST_P(TextFilesContract, ACopyFollowsLinksToWhatItCopies) {
  makeFile("a", "text");
  makeLink("link", "a");
  EXPECT_EQ(copyOnce("link", "b"), 0);
  EXPECT_EQ(contentsOf("b"), "text");
}

TEST_P(TextFilesContract, RemovesOnlyNamedFileInFolder) {
  subject_->make("folder", {Kind::folder, "", 0755});
  makeFile("folder/a", "x");
  makeFile("folder/b", "x");
  makeFile("a", "x");
  EXPECT_EQ(files().removeFile(path("folder"), "a"), 0);
  EXPECT_FALSE(subject_->find("folder/a"));
  EXPECT_TRUE(subject_->find("folder/b"));
  EXPECT_TRUE(subject_->find("a"));
}

TEST_P(TextFilesContract, RemovesSymlinkAndKeepsTarget) {
  makeFile("a", "x");
  makeLink("link", "a");
  makeLink("dangling", "nothing");
  subject_->make("folder", {Kind::folder, "", 0755});
  makeLink("folderlink", "folder");
  for (const char* name : {"link", "dangling", "folderlink"}) {
    EXPECT_EQ(files().removeFile(path(""), name), 0) << name;
    EXPECT_FALSE(subject_->find(name)) << name;
  }
  EXPECT_EQ(contentsOf("a"), "x");
  EXPECT_TRUE(subject_->find("folder"));
}

TEST_P(TextFilesContract, RemovesWhateverIsNoFolder) {
  subject_->make("fifo", {Kind::other, "", 0600});
  makeFile("unreadable", "x");
  EXPECT_EQ(files().removeFile(path(""), "fifo"), 0);
  EXPECT_EQ(subject_->objectCount(), 1U);
}

TEST_P(TextFilesContract, DoesNotRemoveAFolder) {
  subject_->make("empty", {Kind::folder, "", 0755});
  subject_->make("full", {Kind::folder, "", 0755});
  makeFile("full/a", "x");
  EXPECT_EQ(files().removeFile(path(""), "empty"), EISDIR);
  EXPECT_EQ(files().removeFile(path(""), "full"), EISDIR);
  EXPECT_EQ(contentsOf("full/a"), "x");
  EXPECT_TRUE(subject_->find("empty"));
}

TEST_P(TextFilesContract, RemovesNothingWhereNothingIs) {
  makeFile("file", "x");
  makeLink("loop", "loop");
  makeLink("dangling", "nothing");
  EXPECT_EQ(files().removeFile(path(""), "missing"), ENOENT);
  EXPECT_EQ(files().removeFile(path("nofolder"), "file"), ENOENT);
  EXPECT_EQ(files().removeFile(path("dangling"), "file"), ENOENT);
  EXPECT_EQ(files().removeFile("", "file"), ENOENT);
  EXPECT_EQ(files().removeFile(path("file"), "file"), ENOTDIR);
  EXPECT_EQ(files().removeFile(path("loop"), "file"), ELOOP);
  EXPECT_EQ(contentsOf("file"), "x");
}

TEST_P(TextFilesContract, RemovalFollowsSymlinkedFolderPath) {
  subject_->make("folder", {Kind::folder, "", 0755});
  makeFile("folder/a", "x");
  makeFile("folder/b", "x");
  makeLink("link", "folder");
  EXPECT_EQ(files().removeFile(path("link"), "a"), 0);
  EXPECT_EQ(files().removeFile(path("folder") + "//", "b"), 0);
  EXPECT_FALSE(subject_->find("folder/a"));
  EXPECT_FALSE(subject_->find("folder/b"));
}

TEST_P(TextFilesContract, RemovesNothingByImpossibleName) {
  subject_->make("folder", {Kind::folder, "", 0755});
  makeFile("a", "x");
  for (const std::string& name :
       {std::string(), std::string("."), std::string(".."), std::string("../a"), std::string("/a"),
        path("a"), std::string("a\0", 2)}) {
    EXPECT_EQ(files().removeFile(path("folder"), name), EINVAL) << name;
    EXPECT_EQ(files().removeFile(path(""), name), EINVAL) << name;
  }
  EXPECT_EQ(files().removeFile(std::string(path("")) + std::string("\0x", 2), "a"), EINVAL);
  EXPECT_EQ(contentsOf("a"), "x");
}

// As another user than root, whom no mode stops.
TEST_P(TextFilesContract, RemovesFromSearchableUnreadableFolder) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
  subject_->make("folder", {Kind::folder, "", 0333});
  makeFile("folder/a", "x");
  std::error_code inMemory;
  std::filesystem::permissions(path(""), std::filesystem::perms(0711), inMemory);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0) ::_exit(1);
    const int missing = files().removeFile(path("folder"), "missing");
    const int removed = files().removeFile(path("folder"), "a");
    ::_exit(missing == ENOENT && removed == 0 ? 0 : 2);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_P(TextFilesContract, AFileThatIsChangedHasAnotherIdentity) {
  makeFile("a", "one");
  FileIdentity before;
  ASSERT_EQ(files().read(path("a"), read_, before), 0);
  EXPECT_EQ(before.size, 3U);
  FileIdentity same;
  ASSERT_EQ(files().identify(path("a"), same), 0);
  EXPECT_TRUE(same.isSameState(before));
  makeFile("a", "longer");
  FileIdentity after;
  ASSERT_EQ(files().identify(path("a"), after), 0);
  EXPECT_FALSE(after.isSameState(before));
  ASSERT_EQ(replace("a", "other!"), 0);
  FileIdentity replaced;
  ASSERT_EQ(files().identify(path("a"), replaced), 0);
  EXPECT_FALSE(replaced.isSameState(after)) << "the size is the same, the file is not";
  EXPECT_EQ(files().identify(path("missing"), after), ENOENT);
}

TEST_P(TextFilesContract, IdentityFollowsSymlinkToFile) {
  makeFile("a", "one");
  makeLink("link", "a");
  FileIdentity file;
  FileIdentity link;
  ASSERT_EQ(files().identify(path("a"), file), 0);
  ASSERT_EQ(files().identify(path("link"), link), 0);
  EXPECT_TRUE(link.isSameState(file));
}

TEST_P(TextFilesContract, HandsOverTheFileThatGaveWay) {
  makeFile("a", "old");
  {
    TextFiles::Replacement replacement;
    ASSERT_EQ(files().replaceKeeping(path("a"), "new", nullptr, replacement), 0);
    ASSERT_TRUE(replacement.gaveWay);
    EXPECT_EQ(replacement.gaveWay->contents(), "old");
    EXPECT_FALSE(replacement.gaveWay->isOpenForWriting());
    FileIdentity present;
    ASSERT_EQ(files().identify(path("a"), present), 0);
    EXPECT_TRUE(present.isSameState(replacement.written));
  }
  EXPECT_EQ(contentsOf("a"), "new");
  EXPECT_EQ(subject_->objectCount(), 1U) << "it goes when it is not kept";
}

TEST_P(TextFilesContract, ReplacedFileIsKeptOnlyUnderFreeName) {
  makeFile("a", "old");
  makeFile("taken", "mine");
  {
    TextFiles::Replacement replacement;
    ASSERT_EQ(files().replaceKeeping(path("a"), "new", nullptr, replacement), 0);
    EXPECT_EQ(replacement.gaveWay->keepAs(path("taken")), EEXIST);
    EXPECT_EQ(replacement.gaveWay->keepAs(path("kept")), 0);
  }
  EXPECT_EQ(contentsOf("kept"), "old");
  EXPECT_EQ(contentsOf("taken"), "mine");
  EXPECT_EQ(subject_->objectCount(), 3U);
}

TEST_P(TextFilesContract, NewFileReplacesNoPreviousFile) {
  TextFiles::Replacement replacement;
  ASSERT_EQ(files().replaceKeeping(path("a"), "new", nullptr, replacement), 0);
  EXPECT_FALSE(replacement.gaveWay);
  EXPECT_EQ(contentsOf("a"), "new");
  EXPECT_EQ(subject_->find("a")->mode, 0644U);
}

TEST_P(TextFilesContract, UnexpectedFileIsPreserved) {
  makeFile("a", "old");
  FileIdentity expected;
  ASSERT_EQ(files().identify(path("a"), expected), 0);
  makeFile("a", "changed");
  TextFiles::Replacement replacement;
  EXPECT_EQ(files().replaceKeeping(path("a"), "new", &expected, replacement), ESTALE);
  EXPECT_FALSE(replacement.gaveWay);
  EXPECT_EQ(contentsOf("a"), "changed");
  EXPECT_EQ(subject_->objectCount(), 1U);
  ASSERT_EQ(files().identify(path("a"), expected), 0);
  EXPECT_EQ(files().replaceKeeping(path("a"), "new", &expected, replacement), 0);
  EXPECT_EQ(contentsOf("a"), "new");
}

TEST_P(TextFilesContract, ExistingFileStaysWhenNoneIsExpected) {
  const FileIdentity none;
  makeFile("a", "theirs");
  TextFiles::Replacement replacement;
  EXPECT_EQ(files().replaceKeeping(path("a"), "new", &none, replacement), ESTALE);
  EXPECT_EQ(contentsOf("a"), "theirs");
  EXPECT_EQ(subject_->objectCount(), 1U);
  EXPECT_EQ(files().replaceKeeping(path("b"), "new", &none, replacement), 0);
  EXPECT_FALSE(replacement.gaveWay);
  EXPECT_EQ(contentsOf("b"), "new");
  FileIdentity expected;
  ASSERT_EQ(files().identify(path("a"), expected), 0);
  EXPECT_EQ(files().replaceKeeping(path("c"), "new", &expected, replacement), ESTALE);
  EXPECT_EQ(subject_->objectCount(), 2U) << "a file that is gone is not the expected one";
}

TEST_P(TextFilesContract, ListsTheNamesThatBeginSo) {
  subject_->make("folder", {Kind::folder, "", 0755});
  for (const char* name : {"folder/b2", "folder/b1", "folder/a", "b3"}) makeFile(name, "x");
  std::vector<std::string> names = {"earlier"};
  EXPECT_EQ(files().namesBeginningWith(path("folder"), "b", names), 0);
  EXPECT_EQ(names, (std::vector<std::string>{"b1", "b2"}));
  EXPECT_EQ(files().namesBeginningWith(path("folder"), "c", names), 0);
  EXPECT_TRUE(names.empty());
  EXPECT_EQ(files().namesBeginningWith(path("missing"), "b", names), ENOENT);
}

TEST_P(TextFilesContract, SaysWhetherSomethingExists) {
  makeFile("a", "");
  makeLink("link", "a");
  makeLink("dangling", "nothing");
  EXPECT_TRUE(files().exists(path("a")));
  EXPECT_TRUE(files().exists(path("link")));
  EXPECT_FALSE(files().exists(path("dangling")));
  EXPECT_FALSE(files().exists(path("missing")));
  EXPECT_FALSE(files().exists(""));
}

}  // namespace
}  // namespace paddock::contract
