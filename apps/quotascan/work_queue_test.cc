#include "quotascan/work_queue.h"

#include <gtest/gtest.h>

#include <thread>

namespace paddock::quotascan {
namespace {

Work workOf(char mark) { return {FileDescriptor(), true, {mark}, {}}; }

TEST(WorkQueue, GivesInTurnWhatWasPutIn) {
  WorkQueue queue(1);
  queue.give(workOf('a'));
  queue.give(workOf('b'));
  EXPECT_EQ(queue.take()->entries, std::vector{'a'});
  EXPECT_EQ(queue.take()->entries, std::vector{'b'});
}

TEST(WorkQueue, IsDoneWhenAllThreadsWait) {
  WorkQueue queue(2);
  queue.give(workOf('a'));
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
  WorkQueue queue(2);
  queue.give(workOf('a'));
  ASSERT_TRUE(queue.take());
  EXPECT_FALSE(queue.isWanted());
  std::thread other([&] { EXPECT_EQ(queue.take()->entries, std::vector{'b'}); });
  while (!queue.isWanted()) std::this_thread::yield();
  queue.give(workOf('b'));
  other.join();
  EXPECT_FALSE(queue.isWanted());
}

TEST(WorkQueue, NothingIsTakenAnyMoreAfterAStop) {
  WorkQueue queue(2);
  std::thread other([&] { EXPECT_FALSE(queue.take()); });
  while (!queue.isWanted()) std::this_thread::yield();
  queue.stop();
  other.join();
  queue.give(workOf('a'));
  EXPECT_FALSE(queue.take());
}

}  // namespace
}  // namespace paddock::quotascan
