#include "base/worker_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>

#include "base/mutex.h"

namespace paddock {

namespace {

TEST(RunWorkers, EachRunsOnAThreadOfItsOwn) {
  Mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> running = 0;
  const auto worker = [&] {
    ++running;
    // Until all are there.
    while (running < 3) std::this_thread::yield();
    const MutexLock lock(mutex);
    threads.insert(std::this_thread::get_id());
  };
  runWorkers({worker, worker, worker}, [] { ADD_FAILURE() << "nothing went wrong"; });
  EXPECT_EQ(threads.size(), 3U);
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
}

TEST(RunWorkers, NoneIsNoWork) {
  runWorkers({}, [] { ADD_FAILURE() << "nothing went wrong"; });
}

TEST(RunWorkers, ExceptionStopsOthersAndIsRethrownAtEnd) {
  std::atomic<bool> stopped = false;
  std::atomic<int> ended = 0;
  const auto patient = [&] {
    while (!stopped) std::this_thread::yield();
    ++ended;
  };
  const auto failing = [] { throw std::runtime_error("no more"); };
  try {
    runWorkers({patient, failing, patient}, [&] { stopped = true; });
    FAIL() << "nothing was thrown";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "no more");
  }
  EXPECT_EQ(ended, 2);
}

TEST(RunWorkers, OfSeveralExceptionsTheFirstIsThrown) {
  std::atomic<bool> stopped = false;
  const auto second = [&] {
    while (!stopped) std::this_thread::yield();
    throw std::logic_error("second");
  };
  EXPECT_THROW(
      runWorkers({second, [] { throw std::runtime_error("first"); }}, [&] { stopped = true; }),
      std::runtime_error);
}

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
