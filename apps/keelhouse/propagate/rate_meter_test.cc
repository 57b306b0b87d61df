#include "keelhouse/propagate/rate_meter.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class RateMeterTest : public ::testing::Test {
 protected:
  void note(milliseconds after, std::uint64_t done) { meter_.note(begin_ + after, done); }

  RateMeter::Time begin_{seconds(1000)};
  RateMeter meter_;
};

TEST_F(RateMeterTest, KnowsNothingBeforeHalfASecond) {
  EXPECT_EQ(meter_.rate(), std::nullopt);
  note(milliseconds(0), 0);
  EXPECT_EQ(meter_.rate(), std::nullopt);
  note(milliseconds(499), 100);
  EXPECT_EQ(meter_.rate(), std::nullopt);
  note(milliseconds(500), 100);
  EXPECT_EQ(meter_.rate(), 200.0);
}

TEST_F(RateMeterTest, BeginsWhereItWasFirstLookedAt) {
  note(milliseconds(0), 1000000);
  note(milliseconds(2000), 1000100);
  EXPECT_EQ(meter_.rate(), 50.0);
}

TEST_F(RateMeterTest, FollowsTheLastTenSeconds) {
  for (int second = 0; second <= 60; ++second)
    note(seconds(second), std::uint64_t{1000} * static_cast<unsigned>(second));
  for (int second = 61; second <= 71; ++second) note(seconds(second), 60000U);
  EXPECT_EQ(meter_.rate(), 0.0);
}

TEST_F(RateMeterTest, HasNoRateForWhatGoesBack) {
  note(seconds(0), 100);
  note(seconds(1), 50);
  EXPECT_EQ(meter_.rate(), std::nullopt);
}

}  // namespace
}  // namespace paddock::keelhouse
