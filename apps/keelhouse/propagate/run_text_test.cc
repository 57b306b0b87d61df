#include "keelhouse/propagate/run_text.h"

#include <gtest/gtest.h>

#include <limits>

namespace paddock::keelhouse {

namespace {

TEST(PushedParts, AreNamedInBitOrder) {
  EXPECT_EQ(pushedWords(63), "owner, group, owner-perm, group-perm, world-perm, acl");
  EXPECT_EQ(pushedWords(33), "owner, acl");
}

TEST(PushedParts, EmptyMaskNamesNothing) {
  EXPECT_EQ(pushedWords(0), "nothing");
  EXPECT_EQ(pushedWords(64), "nothing");
}

RunStatus halfway() {
  RunStatus run;
  run.done = 450000;
  run.total = 1000000;
  run.failed = 3;
  return run;
}

TEST(RunText, FormatsDurationsBriefly) {
  EXPECT_EQ(durationText(0), "0 s");
  EXPECT_EQ(durationText(59), "59 s");
  EXPECT_EQ(durationText(60), "1 min 00 s");
  EXPECT_EQ(durationText(3599), "59 min 59 s");
  EXPECT_EQ(durationText(3600), "1 h 00 min");
  EXPECT_EQ(durationText(7625), "2 h 07 min");
}

TEST(RunText, ProgressShowsCountsRateRemainingTimeAndErrors) {
  EXPECT_EQ(progressText(halfway(), 21300.4),
            "450000 of 1000000 objects (45%), 21300/s, 26 s left, 3 errors");
}

TEST(RunText, OmitsUnknownFigures) {
  EXPECT_EQ(progressText(halfway(), std::nullopt), "450000 of 1000000 objects (45%), 3 errors");
  EXPECT_EQ(progressText({}, std::nullopt), "0 objects, 0 errors");
  EXPECT_EQ(progressText(halfway(), 0.0), "450000 of 1000000 objects (45%), 0/s, 3 errors");
}

TEST(RunText, ExceededEstimateDoesNotEndRun) {
  RunStatus run;
  run.done = 120;
  run.total = 100;
  run.failed = 1;
  EXPECT_EQ(progressText(run, 10.0), "120 of 120 objects (99%), 10/s, 1 error");
  run.completed = true;
  EXPECT_EQ(progressText(run, 10.0), "120 of 120 objects (100%), 10/s, 1 error");
}

TEST(RunText, FormatsHugeNumbers) {
  RunStatus run;
  run.total = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(progressText(run, 0.001),
            "0 of 9223372036854775807 objects (0%), 0/s, 277777 h 46 min left, 0 errors");
}

TEST(RunText, BarFillsAvailableWidth) {
  RunStatus run;
  run.done = 50;
  run.total = 100;
  const std::string text = "50 of 100 objects (50%), 0 errors";
  EXPECT_EQ(progressBar(run, std::nullopt, 200),
            "[" + std::string(20, '#') + std::string(20, '-') + "] " + text);
  EXPECT_EQ(progressBar(run, std::nullopt, text.size() + 13), "[#####-----] " + text);
  EXPECT_EQ(progressBar(run, std::nullopt, text.size() + 12), text);
  EXPECT_EQ(progressBar(run, std::nullopt, 10), text.substr(0, 10));
  EXPECT_EQ(progressBar(run, std::nullopt, 0), "");
}

TEST(RunText, MissingTotalOmitsBar) {
  RunStatus run;
  run.done = 7;
  EXPECT_EQ(progressBar(run, std::nullopt, 200), "7 objects, 0 errors");
}

TEST(RunText, ResultCountsCompletedObjects) {
  RunStatus run;
  run.completed = true;
  run.done = 1;
  run.changed = 1;
  run.seconds = 61;
  EXPECT_EQ(resultText("/srv/a", run), "/srv/a: 1 object, 1 changed, 0 errors, in 1 min 01 s\n");
  run.dryRun = true;
  EXPECT_EQ(resultText("/srv/a", run),
            "/srv/a: 1 object, 1 would change, 0 errors, in 1 min 01 s\n");
}

TEST(RunText, ResultCountsLinksThatWereLeftOut) {
  RunStatus run;
  run.completed = true;
  run.done = 3;
  run.leftOut = 2;
  EXPECT_EQ(resultText("/srv/a", run),
            "/srv/a: 3 objects, 0 changed, 2 left out (links), 0 errors, in 0 s\n");
}

TEST(RunText, ResultReportsStoppedRun) {
  RunStatus run = halfway();
  run.stopped = run.completed = true;
  EXPECT_EQ(resultText("/srv/\x1B", run),
            "/srv/\\x1B: stopped after 450000 objects of 1000000, 0 changed, 3 errors, in 0 s\n");
}

TEST(RunText, EscapesControlCharactersInNames) {
  RunStatus run;
  run.failed = 1;
  run.errors = {{"/srv/a\n\x1B[2J", "why\r"}};
  EXPECT_EQ(errorLines(run), "  /srv/a\\x0A\\x1B[2J: why\\x0D\n");
  run.changed = 1;
  run.examples = {{"/srv/\xFF", {"owner", "\x07"}}};
  EXPECT_EQ(exampleTable(run), "CHANGES     OBJECT\nowner,\\x07  /srv/\\xFF\n");
}

TEST(RunText, ListsOnlyFirstErrorsAndExamples) {
  RunStatus run;
  run.failed = 1000;
  run.changed = 21;
  for (int at = 0; at < 100; ++at) run.errors.push_back({"/srv/" + std::to_string(at), "why"});
  for (int at = 0; at < 21; ++at) run.examples.push_back({"/srv/" + std::to_string(at), {"mode"}});
  const std::string errors = errorLines(run);
  EXPECT_NE(errors.find("  /srv/19: why\n  and 980 more\n"), std::string::npos) << errors;
  EXPECT_EQ(errors.find("/srv/20"), std::string::npos);
  const std::string examples = exampleTable(run);
  EXPECT_NE(examples.find("mode     /srv/19\n  and 1 more\n"), std::string::npos) << examples;
}

TEST(RunText, MissingExamplesOmitTable) { EXPECT_EQ(exampleTable({}), ""); }

}  // namespace

}  // namespace paddock::keelhouse
