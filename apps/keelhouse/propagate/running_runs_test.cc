#include "keelhouse/propagate/running_runs.h"

#include <gtest/gtest.h>
#include <unistd.h>

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

}  // namespace
}  // namespace paddock::keelhouse
