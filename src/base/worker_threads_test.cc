#include "base/worker_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

namespace paddock {
namespace {

TEST(RunWorkers, EachRunsOnAThreadOfItsOwn) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::atomic<int> running = 0;
  const auto worker = [&] {
    ++running;
    // Until all are there.
    while (running < 3) std::this_thread::yield();
    const std::lock_guard lock(mutex);
    threads.insert(std::this_thread::get_id());
  };
  runWorkers({worker, worker, worker}, [] { ADD_FAILURE() << "nothing went wrong"; });
  EXPECT_EQ(threads.size(), 3U);
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
}

TEST(RunWorkers, NoneIsNoWork) {
  runWorkers({}, [] { ADD_FAILURE() << "nothing went wrong"; });
}

TEST(RunWorkers, WhatOneThrowsStopsTheOthersAndIsThrownAtTheEnd) {
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

}  // namespace
}  // namespace paddock
