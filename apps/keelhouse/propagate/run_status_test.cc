#include "keelhouse/propagate/run_status.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

TEST(RunStatusTest, isReadFromTheDictionary) {
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
  EXPECT_EQ(run.failed, 2U);
  EXPECT_EQ(run.seconds, 7U);
  ASSERT_EQ(run.errors.size(), 1U);
  EXPECT_EQ(run.errors[0].path, "/srv/a/x");
  EXPECT_EQ(run.errors[0].error, "why");
  ASSERT_EQ(run.examples.size(), 1U);
  EXPECT_EQ(run.examples[0].path, "/srv/a/y");
  EXPECT_EQ(run.examples[0].changes, (std::vector<std::string>{"owner", "acl"}));
}

TEST(RunStatusTest, whatIsMissingOrOfAnotherKindReadsAsNothing) {
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

TEST(RunStatusTest, entriesThatAreNoneAreLeftOut) {
  const RunStatus run =
      readRunStatus({{"errors", Array{1, "x", Dictionary{{"path", "/a"}}}},
                     {"examples", Array{Dictionary{{"changes", Array{1, "mode"}}}, Array{}}}});
  ASSERT_EQ(run.errors.size(), 1U);
  EXPECT_EQ(run.errors[0].error, "");
  ASSERT_EQ(run.examples.size(), 1U);
  EXPECT_EQ(run.examples[0].changes, std::vector<std::string>{"mode"});
}

TEST(RunStatusTest, onlyTheWordCompletedIsTheEnd) {
  EXPECT_FALSE(readRunStatus({{"status", "running"}}).completed);
  EXPECT_FALSE(readRunStatus({{"status", "Completed"}}).completed);
}

}  // namespace
}  // namespace paddock::keelhouse
