#include "keelhouse/core/tree_program.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;

class TreePrograms : public ::testing::Test {
 protected:
  TreePrograms() {
    std::filesystem::create_directory(folder_.path("bin"));
    write(program_, "checked");
  }

  // A program that says the word in the file "said".
  void write(const std::string& path, const std::string& word) {
    writeWholeFile(path, "#!/bin/sh\necho " + word + " \"$1\" > " + folder_.path("said") + "\n");
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  }
  std::string said(const TreeProgram& program) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const pid_t process = program.spawn({"name", "word"}, actions, environ);
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_EQ(::waitpid(process, nullptr, 0), process);
    return readWholeFile(folder_.path("said"));
  }
  std::string refusal() {
    try {
      const TreeProgram program(program_);
      return "";
    } catch (const Failure& failed) {
      return failed.what();
    }
  }

  const TestFolder folder_;
  const std::string program_ = folder_.path("bin/program");
};

TEST_F(TreePrograms, ReplacedProgramRunsAsChecked) {
  const TreeProgram program(program_);
  write(folder_.path("bin/other"), "planted");
  std::filesystem::rename(folder_.path("bin/other"), program_);
  EXPECT_EQ(said(program), "checked word\n");
  std::filesystem::rename(folder_.path("bin"), folder_.path("moved"));
  EXPECT_EQ(said(program), "checked word\n");
}

TEST_F(TreePrograms, FoldersBehindLinksAreChecked) {
  std::filesystem::create_directory_symlink("bin", folder_.path("link"));
  EXPECT_EQ(said(TreeProgram(folder_.path("link/program"))), "checked word\n");
  ASSERT_EQ(::chmod(folder_.path("bin").c_str(), 0777), 0);
  EXPECT_THROW(TreeProgram(folder_.path("link/program")), Failure);
}

TEST_F(TreePrograms, FolderThatOthersCanWriteIsRefused) {
  const std::string bin = folder_.path("bin");
  ASSERT_EQ(::chmod(bin.c_str(), 0777), 0);
  EXPECT_EQ(refusal(), "cannot run " + program_ + ": others can change " + bin +
                           " (mode 0777): chmod go-w " + bin);
  ASSERT_EQ(::chmod(bin.c_str(), 01777), 0);
  EXPECT_EQ(refusal(), "") << "nobody can replace the program";
}

TEST_F(TreePrograms, FoldersAndMissingFilesAreNoPrograms) {
  std::filesystem::remove(program_);
  EXPECT_EQ(refusal(), "cannot run " + program_ + ": No such file or directory");
  std::filesystem::create_directory(program_);
  EXPECT_EQ(refusal(), "cannot run " + program_ + ": it is no file");
}

TEST_F(TreePrograms, FileThatOthersCanWriteIsRefused) {
  ASSERT_EQ(::chmod(program_.c_str(), 0757), 0);
  EXPECT_THAT(refusal(), HasSubstr(": others can change " + program_));
}

}  // namespace
}  // namespace paddock::keelhouse
