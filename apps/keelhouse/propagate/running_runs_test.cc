#include "keelhouse/propagate/running_runs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "support/scripted_propagation.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

using testing::ScriptedPropagation;
using testing::StartedProcess;
using testing::waitUntil;

std::string vectorOf(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += word + '\0';
  return text;
}

TEST(RunArguments, ParsesArgumentsOfDaemon) {
  EXPECT_EQ(
      parseRunArguments(7, vectorOf({"CopyPrivs", "-p", "/srv/a b\n", "-f", "33", "-s", "/tmp/x"})),
      (RunningRun{7, "/srv/a b\n", 33, "/tmp/x"}));
}

TEST(RunArguments, RejectsArgumentsOfOtherProcesses) {
  const std::vector<std::string> good = {"CopyPrivs", "-p", "/srv", "-f", "33", "-s", "/tmp/x"};
  EXPECT_EQ(parseRunArguments(7, ""), std::nullopt);
  EXPECT_EQ(parseRunArguments(7, "CopyPrivs"), std::nullopt);
  const std::vector<std::pair<std::size_t, std::string>> changes = {
      {0, "copyprivs"}, {0, "/bin/CopyPrivs"}, {1, "-P"}, {3, "-F"}, {4, "x"},
      {4, "-1"},        {4, "4294967296"},     {5, "-S"}};
  for (const auto& [place, word] : changes) {
    auto words = good;
    words[place] = word;
    EXPECT_EQ(parseRunArguments(7, vectorOf(words)), std::nullopt) << place << " " << word;
  }
  auto longer = good;
  longer.emplace_back("-n");
  EXPECT_EQ(parseRunArguments(7, vectorOf(longer)), std::nullopt);
  // The kernel returns no more than was requested.
  const std::string cut = vectorOf(good);
  EXPECT_EQ(parseRunArguments(7, cut.substr(0, cut.size() - 1)), std::nullopt);
}

class RunningRuns : public ::testing::Test {
 protected:
  std::vector<std::string> words(const std::string& path = "/srv/a") const {
    return {"CopyPrivs", "-p", path, "-f", "32", "-s", statusFile_};
  }
  void waitForStart() {
    waitUntil([this] { return !program_.arguments().empty(); });
  }

  TestFolder folder_;
  ScriptedPropagation program_{folder_.path()};
  std::string statusFile_ = folder_.path("tmp/CopyPrivsTemp.abcdef");
};

TEST_F(RunningRuns, AreFoundWhileRunning) {
  EXPECT_TRUE(runningRuns(folder_.path()).empty());
  program_.waits();
  StartedProcess process(program_.program(), words());
  waitForStart();
  EXPECT_EQ(runningRuns(folder_.path()),
            (std::vector<RunningRun>{{process.process(), "/srv/a", 32, statusFile_}}));
  program_.finish();
  process.wait();
  EXPECT_TRUE(runningRuns(folder_.path()).empty());
}

TEST_F(RunningRuns, ExcludeRunsOfOtherTrees) {
  const TestFolder other;
  program_.waits();
  const StartedProcess process(program_.program(), words());
  waitForStart();
  EXPECT_TRUE(runningRuns(other.path()).empty());
  EXPECT_TRUE(runningRuns("").empty());
}

TEST_F(RunningRuns, AreFoundThroughSymlinkToTree) {
  const TestFolder other;
  std::filesystem::create_directory_symlink(folder_.path(), other.path("link"));
  program_.waits();
  const StartedProcess process(program_.program(), words());
  waitForStart();
  EXPECT_EQ(runningRuns(other.path("link")).size(), 1U);
}

TEST_F(RunningRuns, AreFoundAfterProgramReplacement) {
  program_.waits();
  const StartedProcess process(program_.program(), words());
  waitForStart();
  std::filesystem::remove(program_.program());
  std::filesystem::copy_file(SCRIPTED_COPYPRIVS, program_.program());
  EXPECT_EQ(runningRuns(folder_.path()).size(), 1U);
}

TEST_F(RunningRuns, ExcludeOtherProgramsWithSameArguments) {
  const std::string other = folder_.path("copyprivs");
  std::filesystem::copy_file(SCRIPTED_COPYPRIVS, other);
  writeWholeFile(other + ".wait", "");
  const StartedProcess process(other, words());
  waitUntil([&] { return std::filesystem::exists(other + ".arguments"); });
  EXPECT_TRUE(runningRuns(folder_.path()).empty());
  EXPECT_FALSE(holdRun(folder_.path(), {process.process(), "/srv/a", 32, statusFile_}));
}

TEST_F(RunningRuns, AreHeldOnlyWhileUnchanged) {
  program_.waits();
  StartedProcess process(program_.program(), words());
  waitForStart();
  const RunningRun run{process.process(), "/srv/a", 32, statusFile_};
  EXPECT_TRUE(holdRun(folder_.path(), run));
  for (const RunningRun& other : {RunningRun{run.process, "/srv/b", 32, statusFile_},
                                  RunningRun{run.process, "/srv/a", 33, statusFile_},
                                  RunningRun{run.process, "/srv/a", 32, statusFile_ + "x"},
                                  RunningRun{::getpid(), "/srv/a", 32, statusFile_}}) {
    EXPECT_FALSE(holdRun(folder_.path(), other));
  }
  program_.finish();
  process.wait();
  EXPECT_FALSE(holdRun(folder_.path(), run));
}

// Somebody starts processes that look like runs, to have them taken for the daemon's.
class RunsOfOthers : public RunningRuns {
 protected:
  static constexpr uid_t kSomebody = 4711;

  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can start programs as others";
    // Whoever runs the program may write beside it. It cannot be read, so that the kernel gives
    // what it says of the process to root, whose the process seems to be.
    const std::filesystem::path program(program_.program());
    ASSERT_EQ(::chmod(program.c_str(), 0711), 0);
    ASSERT_EQ(::chmod(program.parent_path().c_str(), 0777), 0);
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  }
  // A program with these arguments. A set-user-ID program of root's that somebody runs has another
  // effective uid than his real one.
  pid_t startAs(uid_t real, uid_t effective, const std::vector<std::string>& arguments) {
    program_.waits();
    std::filesystem::remove(program_.program() + ".arguments");
    std::vector<std::string> copies = arguments;
    std::vector<char*> pointers;
    for (std::string& word : copies) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const pid_t process = ::fork();
    if (process == 0) {
      if (::setresuid(real, effective, effective) == 0)
        ::execv(program_.program().c_str(), pointers.data());
      ::_exit(1);
    }
    waitForStart();
    return process;
  }
  void endAll(pid_t process) {
    program_.finish();
    EXPECT_EQ(::waitpid(process, nullptr, 0), process);
  }
  // Whether somebody without rights finds a run of that process.
  static bool isFoundBySomebodyElse(pid_t process) {
    const pid_t child = ::fork();
    if (child == 0) {
      if (::setresuid(kSomebody + 1, kSomebody + 1, kSomebody + 1) != 0) ::_exit(2);
      const auto runs = runningRuns("");
      ::_exit(std::any_of(runs.begin(), runs.end(),
                          [process](const RunningRun& run) { return run.process == process; }));
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2);
    return WEXITSTATUS(status) == 1;
  }
};

TEST_F(RunsOfOthers, AreNeitherFoundNorStopped) {
  for (const uid_t effective : {0U, kSomebody}) {
    const pid_t process = startAs(kSomebody, effective, words());
    const RunningRun run{process, "/srv/a", 32, statusFile_};
    EXPECT_TRUE(runningRuns(folder_.path()).empty()) << effective;
    EXPECT_FALSE(holdRun(folder_.path(), run)) << effective;
    stopRun(folder_.path(), run);
    EXPECT_EQ(::waitpid(process, nullptr, WNOHANG), 0) << "it was told to end";
    endAll(process);
  }
}

TEST_F(RunsOfOthers, UsersWithoutRightsSeeNoneEither) {
  auto arguments = words();
  arguments.back() = "/tmp/CopyPrivsTemp.abcdef";
  const pid_t real = startAs(0, 0, arguments);
  EXPECT_TRUE(isFoundBySomebodyElse(real));
  endAll(real);
  for (const uid_t effective : {0U, kSomebody}) {
    const pid_t process = startAs(kSomebody, effective, arguments);
    EXPECT_FALSE(isFoundBySomebodyElse(process)) << effective;
    endAll(process);
  }
}

}  // namespace
}  // namespace paddock::keelhouse
