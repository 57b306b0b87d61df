#include "keelhouse/propagate/progress_display.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace paddock::keelhouse {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class RateMetering : public ::testing::Test {
 protected:
  void note(milliseconds after, std::uint64_t done) { meter_.note(begin_ + after, done); }

  RateMeter::Time begin_{seconds(1000)};
  RateMeter meter_;
};

TEST_F(RateMetering, KnowsNothingBeforeHalfASecond) {
  EXPECT_EQ(meter_.rate(), std::nullopt);
  note(milliseconds(0), 0);
  EXPECT_EQ(meter_.rate(), std::nullopt);
  note(milliseconds(499), 100);
  EXPECT_EQ(meter_.rate(), std::nullopt);
  note(milliseconds(500), 100);
  EXPECT_EQ(meter_.rate(), 200.0);
}

TEST_F(RateMetering, BeginsWhereItWasFirstLookedAt) {
  note(milliseconds(0), 1000000);
  note(milliseconds(2000), 1000100);
  EXPECT_EQ(meter_.rate(), 50.0);
}

TEST_F(RateMetering, FollowsTheLastTenSeconds) {
  for (int second = 0; second <= 60; ++second)
    note(seconds(second), std::uint64_t{1000} * static_cast<unsigned>(second));
  for (int second = 61; second <= 71; ++second) note(seconds(second), 60000U);
  EXPECT_EQ(meter_.rate(), 0.0);
}

TEST_F(RateMetering, HasNoRateForWhatGoesBack) {
  note(seconds(0), 100);
  note(seconds(1), 50);
  EXPECT_EQ(meter_.rate(), std::nullopt);
}

using std::chrono::seconds;
using ::testing::EndsWith;
using ::testing::StartsWith;

class ProgressOutput : public ::testing::Test {
 protected:
  static RunStatus at(std::uint64_t done) {
    RunStatus run;
    run.done = done;
    run.total = 100;
    return run;
  }

  DaemonClient daemon_{"/nonexistent"};
  std::ostringstream out_;
  Session session_{daemon_, out_, out_};
  RateMeter::Time begin_{seconds(1000)};
};

TEST_F(ProgressOutput, PrintsLineImmediatelyThenEveryTenSeconds) {
  ProgressDisplay display(session_);
  for (int second = 0; second <= 20; ++second) {
    display.show(at(static_cast<std::uint64_t>(second)), begin_ + seconds(second));
  }
  EXPECT_EQ(out_.str(),
            "0 of 100 objects (0%), 0 errors\n"
            "10 of 100 objects (10%), 1/s, 1 min 30 s left, 0 errors\n"
            "20 of 100 objects (20%), 1/s, 1 min 20 s left, 0 errors\n");
}

TEST_F(ProgressOutput, OmitsUninformativeProgress) {
  ProgressDisplay display(session_);
  display.show({}, begin_);
  RunStatus end = at(100);
  end.completed = true;
  display.show(end, begin_ + seconds(1));
  EXPECT_EQ(out_.str(), "");
}

TEST_F(ProgressOutput, RedrawsSingleTerminalLineAndErasesIt) {
  session_.terminal = true;
  {
    ProgressDisplay display(session_);
    display.show(at(1), begin_);
    display.show(at(2), begin_ + seconds(1));
    EXPECT_THAT(out_.str(), StartsWith("\r\x1B[K["));
    EXPECT_THAT(out_.str(), EndsWith("errors"));
    EXPECT_EQ(out_.str().find('\n'), std::string::npos);
  }
  EXPECT_THAT(out_.str(), EndsWith("errors\r\x1B[K"));
}

TEST_F(ProgressOutput, PrintsNothingInJsonMode) {
  session_.json = true;
  session_.terminal = true;
  { ProgressDisplay(session_).show(at(1), begin_); }
  EXPECT_EQ(out_.str(), "");
}

}  // namespace

}  // namespace paddock::keelhouse
