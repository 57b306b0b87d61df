#include "daemon/audit/password_delays.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

using std::chrono::milliseconds;

class PasswordThrottling : public ::testing::Test {
 protected:
  // The wait of the next attempt, which fails after it.
  milliseconds fail(const std::string& name = "root", uid_t user = 1000) {
    const auto wait = delays_.takeTurn(user, {name}, now_);
    if (!wait) return milliseconds(-1);
    now_ += *wait;
    delays_.note(user, name, false, now_);
    return std::chrono::duration_cast<milliseconds>(*wait);
  }
  milliseconds waitOf(const std::string& name = "root", uid_t user = 1000) {
    const auto wait = delays_.takeTurn(user, {name}, now_);
    return wait ? std::chrono::duration_cast<milliseconds>(*wait) : milliseconds(-1);
  }
  void failOften(const std::string& name = "root") {
    for (int count = 0; count < 20; ++count) fail(name);
  }

  PasswordDelays delays_;
  PasswordDelays::Clock::time_point now_ =
      PasswordDelays::Clock::time_point() + std::chrono::hours(1);
};

TEST_F(PasswordThrottling, EachFailureDoublesDelayUpToBound) {
  std::vector<long> waits;
  for (int count = 0; count < 10; ++count) waits.push_back(fail().count());
  EXPECT_EQ(waits, (std::vector<long>{0, 0, 0, 250, 500, 1000, 2000, 4000, 4000, 4000}));
}

// A day of trying gets through some twenty thousand words, not millions.
TEST_F(PasswordThrottling, ADayOfTryingGetsNowhere) {
  const auto end = now_ + std::chrono::hours(24);
  int attempts = 0;
  for (; now_ < end; ++attempts) fail();
  EXPECT_LT(attempts, 22000);
  EXPECT_GT(attempts, 20000);
}

TEST_F(PasswordThrottling, APasswordThatMatchesEndsTheCount) {
  failOften();
  delays_.note(1000, "root", true, now_);
  EXPECT_EQ(waitOf(), milliseconds(0));
  EXPECT_EQ(fail(), milliseconds(0));
}

TEST_F(PasswordThrottling, OtherUsersAndOtherNamesDoNotWait) {
  failOften();
  EXPECT_EQ(waitOf("root", 1001), milliseconds(0));
  EXPECT_EQ(waitOf("anna"), milliseconds(0));
  EXPECT_EQ(waitOf("ROOT"), PasswordDelays::kLongest);
}

TEST_F(PasswordThrottling, OfSeveralNamesTheLongestWaitCounts) {
  failOften("anna");
  EXPECT_EQ(delays_.takeTurn(1000, {"bert", "anna", "carl"}, now_), PasswordDelays::kLongest);
}

TEST_F(PasswordThrottling, SimultaneousAttemptsTakeConsecutiveTurns) {
  failOften();
  std::vector<long> waits;
  for (int count = 0; count < 4; ++count) waits.push_back(waitOf().count());
  EXPECT_EQ(waits, (std::vector<long>{4000, 8000, -1, -1}));
  // The refused ones took no turn.
  now_ += std::chrono::seconds(12);
  EXPECT_EQ(waitOf(), milliseconds(0));
}

TEST_F(PasswordThrottling, WhatFailedLongAgoIsForgotten) {
  failOften();
  now_ += PasswordDelays::kForgotten + milliseconds(1);
  EXPECT_EQ(waitOf(), milliseconds(0));
  for (int count = 0; count < 3; ++count) EXPECT_EQ(fail(), milliseconds(0));
  EXPECT_EQ(fail(), PasswordDelays::kFirst);
}

TEST_F(PasswordThrottling, ManyOtherNamesDoNotEvictGuessedName) {
  failOften();
  for (std::size_t count = 0; count < 4 * PasswordDelays::kMostKept; ++count)
    fail("junk" + std::to_string(count));
  EXPECT_GT(waitOf(), milliseconds(0));
}

TEST_F(PasswordThrottling, NamesOfAnyLengthAreCounted) {
  const std::string longName(1U << 20U, 'x');
  failOften(longName);
  EXPECT_GT(waitOf(longName), milliseconds(0));
}

}  // namespace
}  // namespace paddock
