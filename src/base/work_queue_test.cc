#include "base/work_queue.h"

#include <gtest/gtest.h>

#include <thread>

namespace paddock {
namespace {

using Queue = WorkQueue<char>;

TEST(WorkQueue, GivesInTurnWhatWasPutIn) {
  Queue queue(1);
  queue.give('a');
  queue.give('b');
  EXPECT_EQ(queue.take(), 'a');
  EXPECT_EQ(queue.take(), 'b');
}

TEST(WorkQueue, IsDoneWhenAllThreadsWait) {
  Queue queue(2);
  queue.give('a');
  std::atomic<int> taken = 0;
  const auto work = [&] {
    while (queue.take()) ++taken;
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(taken, 1);
  EXPECT_TRUE(queue.isStopped());
  EXPECT_FALSE(queue.take());
}

TEST(WorkQueue, AThreadThatWaitsGetsWhatAnotherGives) {
  Queue queue(2);
  queue.give('a');
  ASSERT_TRUE(queue.take());
  EXPECT_FALSE(queue.isWanted());
  std::thread other([&] { EXPECT_EQ(queue.take(), 'b'); });
  while (!queue.isWanted()) std::this_thread::yield();
  queue.give('b');
  other.join();
  EXPECT_FALSE(queue.isWanted());
}

TEST(WorkQueue, NothingIsTakenAnyMoreAfterAStop) {
  Queue queue(2);
  std::thread other([&] { EXPECT_FALSE(queue.take()); });
  while (!queue.isWanted()) std::this_thread::yield();
  queue.stop();
  other.join();
  queue.give('a');
  EXPECT_FALSE(queue.take());
}

}  // namespace
}  // namespace paddock
