#include "base/mutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace paddock {
namespace {

using std::chrono::steady_clock;

TEST(Mutex, LetsOneThreadInAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  Mutex mutex;
  int count = 0;
  std::vector<std::thread> threads;
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const MutexLock lock(mutex);
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, kThreads * kRounds);
}

// Whether another thread finds the mutex free.
bool isFree(Mutex& mutex) {
  bool isTaken = false;
  std::thread([&] {
    if (!mutex.try_lock()) return;
    isTaken = true;
    mutex.unlock();
  }).join();
  return isTaken;
}

TEST(MutexLock, HoldsUntilUnlockedOrItsEnd) {
  Mutex mutex;
  {
    MutexLock lock(mutex);
    EXPECT_FALSE(isFree(mutex));
    lock.unlock();
    EXPECT_TRUE(isFree(mutex));
    lock.lock();
    EXPECT_FALSE(isFree(mutex));
  }
  EXPECT_TRUE(isFree(mutex));
  {
    MutexLock lock(mutex);
    lock.unlock();
  }
  EXPECT_TRUE(isFree(mutex));
}

TEST(MutexLock, TakesOverWhatIsHeldAlready) {
  Mutex mutex;
  mutex.lock();
  {
    const MutexLock lock(mutex, std::adopt_lock);
    EXPECT_FALSE(isFree(mutex));
  }
  EXPECT_TRUE(isFree(mutex));
}

TEST(ConditionVariable, WaitsWithTheMutexFree) {
  Mutex mutex;
  ConditionVariable changed;
  bool isReady = false;
  MutexLock lock(mutex);
  std::thread other([&] {
    const MutexLock held(mutex);
    isReady = true;
    changed.notify_all();
  });
  while (!isReady) changed.wait(mutex);
  EXPECT_FALSE(isFree(mutex)) << "held again";
  lock.unlock();
  other.join();
}

TEST(ConditionVariable, EndsWaitingWhenTheTimeHasCome) {
  Mutex mutex;
  ConditionVariable changed;
  const MutexLock lock(mutex);
  const auto time = steady_clock::now() + std::chrono::milliseconds(20);
  while (changed.wait_until(mutex, time)) continue;
  EXPECT_GE(steady_clock::now(), time);
  EXPECT_FALSE(isFree(mutex)) << "held again";
}

}  // namespace
}  // namespace paddock
