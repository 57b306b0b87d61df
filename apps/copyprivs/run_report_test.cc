#include "copyprivs/run_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "copyprivs/planner.h"
#include "wire/xml_text.h"

namespace paddock::copyprivs {

namespace {

std::size_t sizeInXml(const std::string& path) {
  std::string text;
  wire::appendXmlText(text, path);
  return text.size();
}

TEST(ShortPath, MostPathsStayAsTheyAre) {
  EXPECT_EQ(shortPath("/srv/\xC3\xA4/a&b"), "/srv/\xC3\xA4/a&b");
  const std::string longest(kLongestPath, 'a');
  EXPECT_EQ(shortPath(longest), longest);
}

TEST(ShortPath, LongPathKeepsBeginningAndEnd) {
  const std::string path = "/begin" + std::string(100000, 'a') + "/end";
  const std::string shortened = shortPath(path);
  EXPECT_THAT(shortened, ::testing::StartsWith("/begina"));
  EXPECT_THAT(shortened, ::testing::EndsWith("a/end"));
  EXPECT_THAT(shortened, ::testing::HasSubstr("a...a"));
  EXPECT_GT(shortened.size(), kLongestPath - 10);
}

TEST(ShortPath, EscapedSizeInPropertyListCounts) {
  for (const char* name : {"&", "<", "\xFF", "\x01", "\r", "\xE2\x82\xAC", "\xC3\xA4", "a"}) {
    std::string path;
    while (path.size() < 3 * kLongestPath) path += name;
    EXPECT_LE(sizeInXml(shortPath(path)), kLongestPath) << name;
    EXPECT_GT(sizeInXml(shortPath(path)), kLongestPath / 5) << name;
  }
}

TEST(ShortPath, NoCharacterIsCutInTwo) {
  std::string path;
  while (path.size() < 2 * kLongestPath) path += "\xE2\x82\xAC";
  EXPECT_THAT(shortPath("/" + path), ::testing::Not(::testing::HasSubstr("\\x")));
  EXPECT_EQ(wire::findNonXmlByte(shortPath("/" + path)), std::nullopt);
}

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

TEST(RunReport, TotalIsExtrapolatedFromFinishedPart) {
  RunReport report;
  RunReport::Counts counts = countsOf(110, 100, 0.25);
  report.add(counts);
  EXPECT_EQ(filled(report).integer("itemsTotal"), 400);
}

TEST(RunReport, TotalIsAtLeastFoundCount) {
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

TEST(RunReport, FinalTotalEqualsDoneCount) {
  RunReport report;
  RunReport::Counts counts = countsOf(110, 100, 0.25);
  report.add(counts);
  EXPECT_EQ(filled(report, true).integer("itemsTotal"), 100);
}

TEST(RunReport, VanishedObjectIsSubtractedFromFound) {
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

TEST(RunReport, AnObjectThatFailsAgainIsCountedOnce) {
  RunReport report;
  EXPECT_TRUE(report.addError("/a", "broken"));
  EXPECT_TRUE(report.addError("/b", "broken"));
  report.beginRepetition();
  EXPECT_FALSE(report.addError("/a", "broken in another way"));
  EXPECT_TRUE(report.addError("/c", "broken"));
  EXPECT_EQ(report.errorCount(), 3U);
  EXPECT_EQ(filled(report, true).array("errors")->size(), 3U);
}

TEST(RunReport, BeyondTheKnownOnesTheFirstRoundAloneCounts) {
  RunReport report;
  for (std::size_t number = 0; number < RunReport::kKnown + 2; ++number) {
    EXPECT_TRUE(report.addError("/" + std::to_string(number), "broken"));
  }
  report.beginRepetition();
  EXPECT_FALSE(report.addError("/more", "broken"));
  EXPECT_EQ(report.errorCount(), RunReport::kKnown + 2);
}

TEST(RunReport, CountsWhatIsLeftOut) {
  RunReport report;
  RunReport::Counts counts = countsOf(2, 2, 0);
  counts.leftOut = 1;
  report.add(counts);
  report.add(counts);
  EXPECT_EQ(report.leftOut(), 1U);
}

TEST(RunReport, ExamplesAreOfDryRunsAlone) {
  EXPECT_EQ(filled(RunReport()).find("examples"), nullptr);
}

}  // namespace

}  // namespace paddock::copyprivs
