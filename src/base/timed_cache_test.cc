#include "base/timed_cache.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <unordered_map>

namespace paddock {
namespace {

using std::chrono::seconds;
using ::testing::IsNull;
using ::testing::Pointee;

// A clock that tests set.
class TimedAnswers : public ::testing::Test {
 protected:
  SteadyTime now_{seconds(1000)};
};

TEST_F(TimedAnswers, ValueHoldsUntilItsEnd) {
  TimedValue<std::string> value;
  EXPECT_THAT(value.find(now_), IsNull());
  EXPECT_EQ(value.keep("first", now_ + seconds(5)), "first");
  EXPECT_THAT(value.find(now_ + seconds(5) - std::chrono::nanoseconds(1)),
              Pointee(std::string("first")));
  EXPECT_THAT(value.find(now_ + seconds(5)), IsNull());
  value.keep("second", now_ + seconds(1));
  EXPECT_THAT(value.find(now_), Pointee(std::string("second")));
}

TEST_F(TimedAnswers, EachHoldsFromWhenItWasAskedFor) {
  TimedCache<int, int> cache(seconds(10), 100);
  EXPECT_THAT(cache.find(1, now_), IsNull());
  cache.keep(1, 11, now_);
  now_ += seconds(6);
  cache.keep(2, 22, now_);
  EXPECT_THAT(cache.find(1, now_), Pointee(11));
  now_ += seconds(4);
  EXPECT_THAT(cache.find(1, now_), IsNull());
  EXPECT_THAT(cache.find(2, now_), Pointee(22));
  now_ += seconds(6);
  EXPECT_THAT(cache.find(2, now_), IsNull());
}

TEST_F(TimedAnswers, LaterAnswerReplacesTheEarlierOne) {
  TimedCache<int, int> cache(seconds(10), 100);
  cache.keep(1, 11, now_);
  now_ += seconds(9);
  cache.keep(1, 12, now_);
  now_ += seconds(9);
  EXPECT_THAT(cache.find(1, now_), Pointee(12));
}

TEST_F(TimedAnswers, ThoseThatNoLongerHoldMakeRoomFirst) {
  TimedCache<int, int> cache(seconds(10), 4);
  cache.keep(1, 11, now_);
  cache.keep(2, 22, now_);
  now_ += seconds(5);
  cache.keep(3, 33, now_);
  cache.keep(4, 44, now_);
  now_ += seconds(5);
  cache.keep(5, 55, now_);
  for (const int key : {3, 4, 5}) EXPECT_THAT(cache.find(key, now_), Pointee(key * 11));
}

TEST_F(TimedAnswers, OneTooManyDropsAllThatHold) {
  TimedCache<int, int> cache(seconds(10), 4);
  for (const int key : {1, 2, 3, 4}) cache.keep(key, key, now_);
  for (const int key : {1, 2, 3, 4}) EXPECT_THAT(cache.find(key, now_), Pointee(key));
  cache.keep(5, 5, now_);
  for (const int key : {1, 2, 3, 4}) EXPECT_THAT(cache.find(key, now_), IsNull());
  EXPECT_THAT(cache.find(5, now_), Pointee(5));
}

TEST_F(TimedAnswers, MemoryIsGivenBackWhenNoneHolds) {
  TimedCache<std::string, std::shared_ptr<int>, std::unordered_map> cache(seconds(10), 4);
  const auto answer = std::make_shared<int>(1);
  cache.keep("one", answer, now_);
  cache.keep("two", answer, now_ - seconds(5));
  EXPECT_EQ(answer.use_count(), 3);
  EXPECT_THAT(cache.find("three", now_ + seconds(9)), IsNull());
  EXPECT_EQ(answer.use_count(), 3);
  EXPECT_THAT(cache.find("three", now_ + seconds(10)), IsNull());
  EXPECT_EQ(answer.use_count(), 1);
}

TEST_F(TimedAnswers, ClearedCacheTakesNewOnes) {
  TimedCache<int, int> cache(seconds(10), 4);
  cache.keep(1, 11, now_);
  cache.clear();
  EXPECT_THAT(cache.find(1, now_), IsNull());
  cache.keep(1, 12, now_);
  EXPECT_THAT(cache.find(1, now_), Pointee(12));
}

}  // namespace
}  // namespace paddock
