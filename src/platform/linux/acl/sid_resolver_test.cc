#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "base/mutex.h"
#include "platform/linux/acl/sid_resolver.h"
#include "platform/testing/fake_machine_information.h"

namespace paddock {
namespace {

using nt_acl::Sid;

const Sid kSid = {5, {21, 1, 2, 3, 1104}};
const Principal kUser = {PrincipalType::user, 10001};

// Answers when it is let go.
class HeldResolver final : public SidResolver {
 public:
  int principalOf(const Sid&, Principal& principal) override {
    ++asked;
    MutexLock lock(mutex_);
    while (held_) changed_.wait(mutex_);
    ++answered;
    changed_.notify_all();
    principal = kUser;
    return error;
  }

  void hold() {
    const MutexLock lock(mutex_);
    held_ = true;
  }
  void letGo() {
    const MutexLock lock(mutex_);
    held_ = false;
    changed_.notify_all();
  }

  std::atomic<int> asked = 0;
  std::atomic<int> answered = 0;
  std::atomic<int> error = 0;

 private:
  Mutex mutex_;
  ConditionVariable changed_;
  bool held_ PADDOCK_GUARDED_BY(mutex_) = false;
};

class SidResolverPatience : public testing::Test {
 protected:
  static constexpr std::chrono::milliseconds kShort{1};
  static constexpr std::chrono::minutes kLong{10};

  std::shared_ptr<HeldResolver> inner_ = std::make_shared<HeldResolver>();
  Principal principal_;
};

TEST_F(SidResolverPatience, HandsOnTheAnswer) {
  BoundedSidResolver resolver(inner_, kLong);
  EXPECT_EQ(resolver.principalOf(kSid, principal_), 0);
  EXPECT_EQ(principal_, kUser);
  inner_->error = ENOENT;
  EXPECT_EQ(resolver.principalOf(kSid, principal_), ENOENT);
}

TEST_F(SidResolverPatience, DoesNotWaitForALateAnswer) {
  BoundedSidResolver resolver(inner_, kShort);
  inner_->hold();
  EXPECT_EQ(resolver.principalOf(kSid, principal_), ETIMEDOUT);
  inner_->letGo();
}

TEST_F(SidResolverPatience, AsksNothingElseWhileAnAnswerIsLate) {
  BoundedSidResolver resolver(inner_, kShort);
  inner_->hold();
  for (int count = 0; count < 100; ++count)
    EXPECT_EQ(resolver.principalOf(kSid, principal_), ETIMEDOUT);
  EXPECT_LE(inner_->asked, 1);
  inner_->letGo();
}

TEST_F(SidResolverPatience, AsksAgainWhenTheLateAnswerHasCome) {
  BoundedSidResolver resolver(inner_, kShort);
  inner_->hold();
  EXPECT_EQ(resolver.principalOf(kSid, principal_), ETIMEDOUT);
  inner_->letGo();
  int error = ETIMEDOUT;
  while (error == ETIMEDOUT) error = resolver.principalOf(kSid, principal_);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(principal_, kUser);
}

// Takes its time.
class SlowResolver final : public SidResolver {
 public:
  explicit SlowResolver(std::chrono::milliseconds time) : time_(time) {}
  int principalOf(const Sid&, Principal& principal) override {
    ++asked;
    std::this_thread::sleep_for(time_);
    principal = kUser;
    return 0;
  }

  std::atomic<int> asked = 0;

 private:
  const std::chrono::milliseconds time_;
};

TEST_F(SidResolverPatience, SlowAnswersAreAwaitedUntilAllowanceIsSpent) {
  const auto slow = std::make_shared<SlowResolver>(std::chrono::milliseconds(10));
  BoundedSidResolver resolver(slow, kLong, {{std::chrono::milliseconds(25), kLong}});
  EXPECT_EQ(resolver.principalOf(kSid, principal_), 0);
  int error = 0;
  for (int count = 0; count < 100; ++count) error = resolver.principalOf(kSid, principal_);
  EXPECT_EQ(error, ETIMEDOUT);
  EXPECT_LE(slow->asked, 3);
}

TEST_F(SidResolverPatience, NextPeriodHasOwnAllowance) {
  const auto slow = std::make_shared<SlowResolver>(std::chrono::milliseconds(5));
  constexpr std::chrono::milliseconds kStretch{50};
  BoundedSidResolver resolver(slow, kLong, {{std::chrono::milliseconds(1), kStretch}});
  EXPECT_EQ(resolver.principalOf(kSid, principal_), 0);
  std::this_thread::sleep_for(kStretch);
  EXPECT_EQ(resolver.principalOf(kSid, principal_), 0);
  EXPECT_EQ(slow->asked, 2);
}

TEST_F(SidResolverPatience, AnswersThatComeAtOnceUseNothingUp) {
  BoundedSidResolver resolver(inner_, kLong, {{std::chrono::seconds(10), kLong}});
  for (int count = 0; count < 1000; ++count) EXPECT_EQ(resolver.principalOf(kSid, principal_), 0);
}

TEST_F(SidResolverPatience, MayGoWhileAnAnswerIsLate) {
  {
    BoundedSidResolver resolver(inner_, kShort);
    inner_->hold();
    EXPECT_EQ(resolver.principalOf(kSid, principal_), ETIMEDOUT);
  }
  inner_->letGo();
}

TEST_F(SidResolverPatience, SeveralThreadsAreAnsweredOneAfterTheOther) {
  BoundedSidResolver resolver(inner_, kLong);
  const auto ask = [&] {
    for (int count = 0; count < 50; ++count) {
      Principal principal;
      EXPECT_EQ(resolver.principalOf(kSid, principal), 0);
      EXPECT_EQ(principal, kUser);
    }
  };
  std::vector<std::thread> threads;
  for (int count = 0; count < 4; ++count) threads.emplace_back(ask);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(inner_->asked, 200);
}

// Counts, and returns the answer that was set last.
class CountingResolver final : public SidResolver {
 public:
  struct State {
    int asked = 0;
    int error = 0;
    Principal principal = kUser;
  };
  explicit CountingResolver(std::shared_ptr<State> state) : state_(std::move(state)) {}
  int principalOf(const Sid&, Principal& principal) override {
    ++state_->asked;
    principal = state_->principal;
    return state_->error;
  }

 private:
  std::shared_ptr<State> state_;
};

class SidResolverCaching : public testing::Test {
 protected:
  std::shared_ptr<CountingResolver::State> state_ = std::make_shared<CountingResolver::State>();
  std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
  CachedSidResolver resolver_{std::make_unique<CountingResolver>(state_), clock_,
                              std::chrono::seconds(60)};
  Principal principal_;
};

TEST_F(SidResolverCaching, AsksOncePerSid) {
  for (int count = 0; count < 3; ++count) {
    EXPECT_EQ(resolver_.principalOf(kSid, principal_), 0);
    EXPECT_EQ(principal_, kUser);
  }
  EXPECT_EQ(state_->asked, 1);
  EXPECT_EQ(resolver_.principalOf({5, {32, 544}}, principal_), 0);
  EXPECT_EQ(state_->asked, 2);
}

TEST_F(SidResolverCaching, KeepsErrorsToo) {
  state_->error = ECONNREFUSED;
  EXPECT_EQ(resolver_.principalOf(kSid, principal_), ECONNREFUSED);
  state_->error = 0;
  EXPECT_EQ(resolver_.principalOf(kSid, principal_), ECONNREFUSED);
  EXPECT_EQ(state_->asked, 1);
}

TEST_F(SidResolverCaching, AsksAgainAfterTheLifetime) {
  state_->error = ENOENT;
  EXPECT_EQ(resolver_.principalOf(kSid, principal_), ENOENT);
  state_->error = 0;
  clock_->advance(std::chrono::seconds(59));
  EXPECT_EQ(resolver_.principalOf(kSid, principal_), ENOENT);
  clock_->advance(std::chrono::seconds(1));
  EXPECT_EQ(resolver_.principalOf(kSid, principal_), 0);
}

TEST_F(SidResolverCaching, NeverKeepsMoreThanItsCapacity) {
  for (std::uint32_t number = 0; number <= CachedSidResolver::kCapacity; ++number)
    EXPECT_EQ(resolver_.principalOf({5, {number}}, principal_), 0);
  const int asked = state_->asked;
  EXPECT_EQ(resolver_.principalOf({5, {0}}, principal_), 0);
  EXPECT_EQ(state_->asked, asked + 1);
  const auto last = static_cast<std::uint32_t>(CachedSidResolver::kCapacity);
  EXPECT_EQ(resolver_.principalOf({5, {last}}, principal_), 0);
  EXPECT_EQ(state_->asked, asked + 1);
}

}  // namespace
}  // namespace paddock
