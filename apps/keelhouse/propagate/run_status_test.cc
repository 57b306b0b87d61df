#include "keelhouse/propagate/run_status.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "support/scripted_propagation.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {

namespace {

TEST(RunStatusDictionary, ReadsFieldsFromDictionary) {
  const RunStatus run = readRunStatus(
      {{"status", "completed"},
       {"stopped", true},
       {"dryRun", true},
       {"path", "/srv/a"},
       {"error", "no folder"},
       {"pid", 4711},
       {"itemsDone", 5},
       {"itemsTotal", 6},
       {"itemsChanged", 4},
       {"itemsLeftOut", 3},
       {"errorCount", 2},
       {"elapsedSeconds", 7},
       {"errors", Array{Dictionary{{"path", "/srv/a/x"}, {"error", "why"}}}},
       {"examples", Array{Dictionary{{"path", "/srv/a/y"}, {"changes", Array{"owner", "acl"}}}}}});
  EXPECT_TRUE(run.completed && run.stopped && run.dryRun);
  EXPECT_EQ(run.path, "/srv/a");
  EXPECT_EQ(run.error, "no folder");
  EXPECT_EQ(run.process, 4711);
  EXPECT_EQ(run.done, 5U);
  EXPECT_EQ(run.total, 6U);
  EXPECT_EQ(run.changed, 4U);
  EXPECT_EQ(run.leftOut, 3U);
  EXPECT_EQ(run.failed, 2U);
  EXPECT_EQ(run.seconds, 7U);
  ASSERT_EQ(run.errors.size(), 1U);
  EXPECT_EQ(run.errors[0].path, "/srv/a/x");
  EXPECT_EQ(run.errors[0].error, "why");
  ASSERT_EQ(run.examples.size(), 1U);
  EXPECT_EQ(run.examples[0].path, "/srv/a/y");
  EXPECT_EQ(run.examples[0].changes, (std::vector<std::string>{"owner", "acl"}));
}

TEST(RunStatusDictionary, MissingOrMistypedFieldsReadAsEmpty) {
  for (const Dictionary& status : {Dictionary{}, Dictionary{{"status", 1},
                                                            {"itemsDone", -5},
                                                            {"itemsTotal", "many"},
                                                            {"errors", "none"},
                                                            {"examples", Dictionary{}},
                                                            {"path", Array{}},
                                                            {"stopped", "perhaps"}}}) {
    const RunStatus run = readRunStatus(status);
    EXPECT_FALSE(run.completed || run.stopped || run.dryRun);
    EXPECT_EQ(run.path + run.error, "");
    EXPECT_EQ(run.done + run.total + run.changed + run.failed + run.seconds, 0U);
    EXPECT_TRUE(run.errors.empty() && run.examples.empty());
  }
}

TEST(RunStatusDictionary, SkipsMalformedEntries) {
  const RunStatus run =
      readRunStatus({{"errors", Array{1, "x", Dictionary{{"path", "/a"}}}},
                     {"examples", Array{Dictionary{{"changes", Array{1, "mode"}}}, Array{}}}});
  ASSERT_EQ(run.errors.size(), 1U);
  EXPECT_EQ(run.errors[0].error, "");
  ASSERT_EQ(run.examples.size(), 1U);
  EXPECT_EQ(run.examples[0].changes, std::vector<std::string>{"mode"});
}

TEST(RunStatusDictionary, OnlyCompletedStateEndsRun) {
  EXPECT_FALSE(readRunStatus({{"status", "running"}}).completed);
  EXPECT_FALSE(readRunStatus({{"status", "Completed"}}).completed);
}

using testing::ScriptedPropagation;

class RunStatusFiles : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directory(folder_.path("tmp")); }

  std::string write(const std::string& name, const std::string& elements) const {
    const std::string path = folder_.path("tmp/CopyPrivsTemp." + name);
    writeWholeFile(path, ScriptedPropagation::status(elements));
    return path;
  }
  static std::string completed(const std::string& path, int done = 1) {
    return ScriptedPropagation::text("status", "completed") +
           ScriptedPropagation::text("path", path) + ScriptedPropagation::number("itemsDone", done);
  }

  TestFolder folder_;
};

TEST_F(RunStatusFiles, ReadsDictionary) {
  EXPECT_EQ(readStatusFile(write("a", ScriptedPropagation::number("itemsDone", 5))),
            (Dictionary{{"itemsDone", 5}}));
}

TEST_F(RunStatusFiles, FileWithoutDictionaryReturnsNothing) {
  const std::string path = folder_.path("file");
  for (const std::string& text :
       {std::string(), std::string("no list"), std::string("<plist><array></array></plist>"),
        ScriptedPropagation::status(
            ScriptedPropagation::text("path", std::string(1U << 20U, 'x')))}) {
    writeWholeFile(path, text);
    EXPECT_EQ(readStatusFile(path), std::nullopt) << text.substr(0, 80);
  }
  EXPECT_EQ(readStatusFile(folder_.path("missing")), std::nullopt);
  EXPECT_EQ(readStatusFile(folder_.path()), std::nullopt);
}

TEST_F(RunStatusFiles, RefusesSymlinksFifosAndHardLinkedFiles) {
  const std::string path = write("a", completed("/srv"));
  std::filesystem::create_symlink(path, folder_.path("link"));
  EXPECT_EQ(readStatusFile(folder_.path("link")), std::nullopt);
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0600), 0);
  EXPECT_EQ(readStatusFile(folder_.path("fifo")), std::nullopt);
  std::filesystem::create_hard_link(path, folder_.path("other"));
  EXPECT_EQ(readStatusFile(path), std::nullopt);
}

TEST_F(RunStatusFiles, RefusesFileOfAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file another user's";
  const std::string path = write("a", completed("/srv"));
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  EXPECT_EQ(readStatusFile(path), std::nullopt);
}

TEST_F(RunStatusFiles, FindsLastEndedRunOfFolder) {
  const std::string older = write("older", completed("/srv", 1));
  const std::string newer = write("newer", completed("/srv", 2));
  const auto now = std::filesystem::last_write_time(newer);
  std::filesystem::last_write_time(older, now - std::chrono::hours(1));
  write("other", completed("/srv/b", 3));
  write("running",
        ScriptedPropagation::text("status", "running") + ScriptedPropagation::text("path", "/srv"));
  writeWholeFile(folder_.path("tmp/unrelated"), ScriptedPropagation::status(completed("/srv", 9)));
  const auto found = endedRun(folder_.path(), "/srv");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->statusFile, newer);
  EXPECT_EQ(found->status.integer("itemsDone"), 2);
  EXPECT_FALSE(endedRun(folder_.path(), "/srv/c"));
}

TEST_F(RunStatusFiles, TreeWithoutStatusFolderHasNoRuns) {
  EXPECT_FALSE(endedRun(folder_.path("missing"), "/srv"));
}

}  // namespace

}  // namespace paddock::keelhouse
