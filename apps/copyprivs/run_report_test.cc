#include "copyprivs/run_report.h"

#include <gtest/gtest.h>

#include "copyprivs/planner.h"

namespace paddock::copyprivs {
namespace {

Dictionary filled(const RunReport& report, bool isEnded = false, bool dryRun = false) {
  Dictionary status;
  report.fill(status, isEnded, dryRun);
  return status;
}

RunReport::Counts countsOf(std::uint64_t found, std::uint64_t done, double share) {
  RunReport::Counts counts;
  counts.found = found;
  counts.done = done;
  counts.share = share;
  return counts;
}

TEST(RunReport, AddsTheCountsOfAThreadOnce) {
  RunReport report;
  RunReport::Counts counts = countsOf(3, 2, 0);
  counts.changed = 1;
  report.add(counts);
  report.add(counts);
  EXPECT_EQ(filled(report).integer("itemsDone"), 2);
  EXPECT_EQ(filled(report).integer("itemsChanged"), 1);
}

TEST(RunReport, TheTotalIsWhatThePartThatIsDoneMakesOfTheWhole) {
  RunReport report;
  RunReport::Counts counts = countsOf(110, 100, 0.25);
  report.add(counts);
  EXPECT_EQ(filled(report).integer("itemsTotal"), 400);
}

TEST(RunReport, TheTotalIsNeverLessThanWhatWasFound) {
  RunReport report;
  RunReport::Counts counts = countsOf(200, 100, 1);
  report.add(counts);
  EXPECT_EQ(filled(report).integer("itemsTotal"), 200);
}

TEST(RunReport, TooSmallAPartTellsNothing) {
  RunReport report;
  RunReport::Counts counts = countsOf(20, 10, 0.00001);
  report.add(counts);
  EXPECT_EQ(filled(report).integer("itemsTotal"), 20);
}

TEST(RunReport, AtTheEndTheTotalIsWhatWasDone) {
  RunReport report;
  RunReport::Counts counts = countsOf(110, 100, 0.25);
  report.add(counts);
  EXPECT_EQ(filled(report, true).integer("itemsTotal"), 100);
}

TEST(RunReport, AnObjectThatTurnsOutNotToBeThereIsNotFound) {
  RunReport report;
  RunReport::Counts counts = countsOf(10, 0, 0);
  report.add(counts);
  --counts.found;
  report.add(counts);
  EXPECT_EQ(filled(report).integer("itemsTotal"), 9);
}

TEST(RunReport, TheFirstErrorsAndExamplesAreKept) {
  RunReport report;
  for (std::size_t number = 0; number < RunReport::kKept + 5; ++number) {
    report.addError("/" + std::to_string(number), "broken");
    report.addExample("/" + std::to_string(number), Plan::kOwner | Plan::kAcl);
  }
  EXPECT_FALSE(report.wantsExamples());
  const Dictionary status = filled(report, true, true);
  EXPECT_EQ(status.integer("errorCount"), 105);
  ASSERT_EQ(status.array("errors")->size(), RunReport::kKept);
  ASSERT_EQ(status.array("examples")->size(), RunReport::kKept);
  EXPECT_EQ(status.array("errors")->front(),
            Value(Dictionary{{"path", "/0"}, {"error", "broken"}}));
  EXPECT_EQ(status.array("examples")->back(),
            Value(Dictionary{{"path", "/99"}, {"changes", Array{"owner", "acl"}}}));
}

TEST(RunReport, ExamplesAreOfDryRunsAlone) {
  EXPECT_EQ(filled(RunReport()).find("examples"), nullptr);
}

}  // namespace
}  // namespace paddock::copyprivs
