#include "paddock/password_checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>
#include <vector>

#include "base/mutex.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;

TEST(PasswordChecks, ThreadScopeIsNotifiedOfEachCheck) {
  std::vector<std::string> told;
  const auto note = [&told](const PasswordCheck& check) {
    told.push_back(check.node + " " + check.name + (check.passed ? " passed" : " failed"));
  };
  EXPECT_EQ(checkPassword("/Local", "early", [] { return kSuccess; }), kSuccess);
  {
    const PasswordCheckScope scope(note);
    EXPECT_EQ(checkPassword("/Local", "anna", [] { return kSuccess; }), kSuccess);
    EXPECT_EQ(checkPassword("/System", "root", [] { return EACCES; }), EACCES);
    EXPECT_THROW(checkPassword("/LDAP/a", "bert",
                               []() -> Status { throw std::runtime_error("unreachable"); }),
                 std::runtime_error);
    std::thread([] { checkPassword("/Local", "elsewhere", [] { return kSuccess; }); }).join();
  }
  EXPECT_EQ(checkPassword("/Local", "late", [] { return kSuccess; }), kSuccess);
  EXPECT_THAT(told, ElementsAre("/Local anna passed", "/System root failed"));
}

TEST(PasswordChecks, InnermostOfNestedScopesIsNotified) {
  int outer = 0;
  int inner = 0;
  const PasswordCheckScope first([&outer](const PasswordCheck&) { ++outer; });
  {
    const PasswordCheckScope second([&inner](const PasswordCheck&) { ++inner; });
    checkPassword("/Local", "anna", [] { return kSuccess; });
  }
  checkPassword("/Local", "anna", [] { return kSuccess; });
  EXPECT_EQ(outer, 1);
  EXPECT_EQ(inner, 1);
}

TEST(PasswordChecks, NoMoreThanFourRunAtOnce) {
  Mutex mutex;
  ConditionVariable changed;
  int running = 0;
  int most = 0;
  int ended = 0;
  const auto check = [&]() -> Status {
    MutexLock lock(mutex);
    most = std::max(most, ++running);
    changed.notify_all();
    // Until as many run as can, so that one more would be seen, and then a little.
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    while (running <= 4 && changed.wait_until(mutex, end)) continue;
    --running;
    ++ended;
    return EACCES;
  };
  std::vector<std::thread> threads;
  threads.reserve(12);
  for (int count = 0; count < 12; ++count)
    threads.emplace_back([&check] { EXPECT_EQ(checkPassword("/Local", "anna", check), EACCES); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(most, 4);
  EXPECT_EQ(ended, 12);
}

// The turn of one that throws is given back.
TEST(PasswordChecks, ChecksThatThrowKeepNobodyWaiting) {
  for (int count = 0; count < 3 * kPasswordChecksAtOnce; ++count) {
    EXPECT_THROW(
        checkPassword("/Local", "anna", []() -> Status { throw std::runtime_error("broken"); }),
        std::runtime_error);
  }
  EXPECT_EQ(checkPassword("/Local", "anna", [] { return kSuccess; }), kSuccess);
}

TEST(PasswordChecks, TimedOutCheckIsAskedToRetry) {
  Mutex mutex;
  ConditionVariable changed;
  bool over = false;
  std::atomic<int> begun = 0;
  std::vector<std::thread> threads;
  threads.reserve(kPasswordChecksAtOnce);
  for (int count = 0; count < kPasswordChecksAtOnce; ++count) {
    threads.emplace_back([&] {
      checkPassword("/System", "root", [&]() -> Status {
        ++begun;
        MutexLock lock(mutex);
        while (!over) changed.wait(mutex);
        return EACCES;
      });
    });
  }
  while (begun < kPasswordChecksAtOnce) std::this_thread::yield();
  bool asked = false;
  const auto check = [&asked] {
    asked = true;
    return kSuccess;
  };
  constexpr std::chrono::milliseconds kPatience(20);
  EXPECT_EQ(checkPassword("/Local", "anna", check, kPatience), EAGAIN);
  EXPECT_FALSE(asked);
  {
    const MutexLock lock(mutex);
    over = true;
  }
  changed.notify_all();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(checkPassword("/Local", "anna", check), kSuccess);
}

}  // namespace
}  // namespace paddock
