#include "keelhouse/propagate/progress_display.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace paddock::keelhouse {
namespace {

using std::chrono::seconds;
using ::testing::EndsWith;
using ::testing::StartsWith;

class ProgressDisplayTest : public ::testing::Test {
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

TEST_F(ProgressDisplayTest, printsALineAtOnceAndThenEveryTenSeconds) {
  ProgressDisplay display(session_);
  for (int second = 0; second <= 20; ++second) {
    display.show(at(static_cast<std::uint64_t>(second)), begin_ + seconds(second));
  }
  EXPECT_EQ(out_.str(),
            "0 of 100 objects (0%), 0 errors\n"
            "10 of 100 objects (10%), 1/s, 1 min 30 s left, 0 errors\n"
            "20 of 100 objects (20%), 1/s, 1 min 20 s left, 0 errors\n");
}

TEST_F(ProgressDisplayTest, leavesOutWhatSaysNothing) {
  ProgressDisplay display(session_);
  display.show({}, begin_);
  RunStatus end = at(100);
  end.completed = true;
  display.show(end, begin_ + seconds(1));
  EXPECT_EQ(out_.str(), "");
}

TEST_F(ProgressDisplayTest, drawsOneLineOfATerminalAgainAndTakesItAway) {
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

TEST_F(ProgressDisplayTest, isNotBetweenWhatIsPrintedAsJson) {
  session_.json = true;
  session_.terminal = true;
  { ProgressDisplay(session_).show(at(1), begin_); }
  EXPECT_EQ(out_.str(), "");
}

}  // namespace
}  // namespace paddock::keelhouse
