// Who is let in, what is waited for at the end, and how clients are turned away.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "base/mutex.h"
#include "daemon/audit/access_policy.h"
#include "daemon/http/admission.h"
#include "daemon/http/drainer.h"
#include "daemon/http/listening_socket.h"
#include "daemon/http/memory_budget.h"
#include "daemon/idle_clock.h"

namespace paddock {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto kAll = Rights::everything;

TEST(ConnectionLimits, CountAltogetherAndPerUser) {
  ConnectionLimits limits(3, 2, 1);
  EXPECT_TRUE(limits.take(1, kAll));
  EXPECT_TRUE(limits.take(1, kAll));
  EXPECT_FALSE(limits.take(1, kAll));
  EXPECT_TRUE(limits.take(2, kAll));
  EXPECT_FALSE(limits.take(3, kAll));
  limits.giveBack(1, kAll);
  EXPECT_TRUE(limits.take(3, kAll));
}

TEST(ConnectionLimits, ChangedLimitsApplyToNewConnections) {
  ConnectionLimits limits(2, 2, 1);
  EXPECT_TRUE(limits.take(1, kAll));
  EXPECT_TRUE(limits.take(1, kAll));
  limits.change(3, 1);
  EXPECT_FALSE(limits.take(1, kAll));
  EXPECT_TRUE(limits.take(2, kAll));
  limits.giveBack(1, kAll);
  limits.giveBack(1, kAll);
  EXPECT_TRUE(limits.take(1, kAll));
}

TEST(ConnectionLimits, UsersWithoutRightsTakeNobodyElsesPlace) {
  ConnectionLimits limits(2, 2, 1);
  for (uid_t user = 0; user < ConnectionLimits::kStrangers / 2; ++user) {
    EXPECT_TRUE(limits.take(100 + user, Rights::nothing));
    EXPECT_TRUE(limits.take(100 + user, Rights::nothing));
    EXPECT_FALSE(limits.take(100 + user, Rights::nothing)) << "two for each";
  }
  EXPECT_FALSE(limits.take(200, Rights::nothing));
  EXPECT_TRUE(limits.take(1, kAll));
  EXPECT_TRUE(limits.take(1, Rights::viewing));
  EXPECT_FALSE(limits.take(2, kAll));
  limits.giveBack(100, Rights::nothing);
  EXPECT_TRUE(limits.take(200, Rights::nothing));
}

TEST(ConnectionLimits, ViewersLeavePlacesForAdministrators) {
  ConnectionLimits limits(100, 100, 1);
  for (int count = 0; count < 68; ++count) EXPECT_TRUE(limits.take(1, Rights::viewing)) << count;
  EXPECT_FALSE(limits.take(2, Rights::viewing));
  for (int count = 0; count < 32; ++count) EXPECT_TRUE(limits.take(0, kAll)) << count;
  EXPECT_FALSE(limits.take(0, kAll));
  limits.change(4, 100);
  for (int count = 0; count < 67; ++count) limits.giveBack(1, Rights::viewing);
  for (int count = 0; count < 32; ++count) limits.giveBack(0, kAll);
  EXPECT_TRUE(limits.take(1, Rights::viewing));
  EXPECT_FALSE(limits.take(1, Rights::viewing)) << "half of them";
}

TEST(ConnectionLimits, ClosedConnectionReturnsItsPlace) {
  ConnectionLimits limits(1, 1, 1);
  {
    ConnectionPlace place(limits, 1);
    EXPECT_TRUE(place.take(kAll));
    EXPECT_TRUE(place.take(kAll));
    EXPECT_FALSE(limits.take(1, kAll));
  }
  EXPECT_TRUE(limits.take(1, kAll));
}

TEST(ConnectionLimits, APlaceChangesWithTheRights) {
  ConnectionLimits limits(1, 1, 1);
  ConnectionPlace place(limits, 1);
  EXPECT_TRUE(place.take(kAll));
  EXPECT_TRUE(place.take(Rights::nothing));
  EXPECT_EQ(place.rights(), Rights::nothing);
  EXPECT_TRUE(limits.take(2, kAll)) << "its former place is free";
  EXPECT_FALSE(place.take(kAll));
  EXPECT_EQ(place.rights(), Rights::nothing) << "it keeps the one that it has";
}

TEST(ConnectionLimits, AdmittedConnectionReturnsItsWaitingPlace) {
  ConnectionLimits limits(1, 1, 1);
  ConnectionPlace waiting(limits, 2);
  {
    ConnectionPlace first(limits, 1);
    EXPECT_TRUE(first.take(kAll));
    EXPECT_FALSE(waiting.take(kAll));
    EXPECT_TRUE(waiting.wait());
    ConnectionPlace another(limits, 3);
    EXPECT_FALSE(another.wait());
  }
  EXPECT_TRUE(waiting.take(kAll));
  ConnectionPlace next(limits, 3);
  EXPECT_TRUE(next.wait());
}

TEST(MemoryBudget, IsSharedAndWhoOnlyReadsGetsHalf) {
  MemoryBudget budget(100);
  MemoryShare viewer(budget, Rights::viewing, false);
  EXPECT_TRUE(viewer.take(50));
  EXPECT_FALSE(viewer.take(1));
  {
    MemoryShare administrator(budget, kAll, false);
    EXPECT_TRUE(administrator.take(50));
    EXPECT_FALSE(administrator.take(1));
    administrator.giveBack(20);
    EXPECT_FALSE(administrator.take(21));
    EXPECT_FALSE(viewer.take(1));
  }
  MemoryShare next(budget, kAll, false);
  EXPECT_TRUE(next.take(50)) << "what was taken is given back at the end";
  viewer.giveBack(50);
  EXPECT_TRUE(next.take(50));
  EXPECT_FALSE(next.take(std::numeric_limits<std::size_t>::max()));
}

TEST(MemoryBudget, WhatCannotBeRefusedIsMissingForOthers) {
  MemoryBudget budget(100);
  MemoryShare other(budget, kAll, false);
  {
    MemoryShare nested(budget, Rights::nothing, true);
    EXPECT_TRUE(nested.take(150));
    EXPECT_FALSE(other.take(1));
    nested.takeAnyway(50);
  }
  EXPECT_TRUE(other.take(100));
  budget.change(200);
  EXPECT_TRUE(other.take(100));
}

TEST(RequestGate, OnceClosedLetsOnlyNestedRequestsIn) {
  RequestGate gate;
  EXPECT_TRUE(gate.enter(false));
  gate.leave(false);
  gate.close();
  EXPECT_TRUE(gate.closed());
  EXPECT_FALSE(gate.enter(false));
  EXPECT_TRUE(gate.enter(true));
  gate.leave(false);
}

TEST(RequestGate, WaitsForRunningRequestsHoweverLongTheyTake) {
  RequestGate gate;
  ASSERT_TRUE(gate.enter(false));
  gate.bodyComplete();
  gate.close();
  std::atomic<bool> answered{false};
  std::thread running([&] {
    std::this_thread::sleep_for(milliseconds(100));
    answered = true;
    gate.leave(true);
  });
  gate.waitUntilEmpty(milliseconds(1));
  EXPECT_TRUE(answered);
  running.join();
}

TEST(RequestGate, WaitsForBodiesForALimitedTime) {
  RequestGate gate;
  ASSERT_TRUE(gate.enter(false));
  const auto started = steady_clock::now();
  gate.waitUntilEmpty(milliseconds(50));
  EXPECT_GE(steady_clock::now() - started, milliseconds(50));
  gate.leave(false);
}

class ConnectionDraining : public testing::Test {
 protected:
  ConnectionDraining() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    ours_ = FileDescriptor(ends[0]);
    client_ = FileDescriptor(ends[1]);
  }
  // Reads until the end.
  std::string received() const {
    std::string text;
    std::array<char, 256> block{};
    ssize_t count = 0;
    while ((count = ::recv(client_.get(), block.data(), block.size(), 0)) > 0) {
      text.append(block.data(), static_cast<std::size_t>(count));
    }
    return text;
  }
  // Sends up to `bytes`; how many were taken.
  std::size_t send(std::size_t bytes) const {
    const std::string block(65536, 'x');
    std::size_t sent = 0;
    while (sent < bytes) {
      const auto count = ::send(client_.get(), block.data(), block.size(), MSG_NOSIGNAL);
      if (count < 0) break;
      sent += static_cast<std::size_t>(count);
    }
    return sent;
  }

  FileDescriptor ours_;
  FileDescriptor client_;
};

TEST_F(ConnectionDraining, ContinuouslySendingClientStillReceivesReply) {
  Drainer drainer;
  drainer.answer(std::move(ours_), "sorry");
  EXPECT_GE(send(4U << 20U), 4U << 20U);
  EXPECT_EQ(received(), "sorry");
}

TEST_F(ConnectionDraining, AClientThatNeverEndsIsCutOff) {
  Drainer drainer(10, milliseconds(50));
  drainer.add(std::move(ours_));
  EXPECT_LT(send(1ULL << 40U), 1ULL << 40U);
}

TEST_F(ConnectionDraining, OneTooManyIsClosedAtOnce) {
  Drainer drainer(0);
  drainer.add(std::move(ours_));
  EXPECT_EQ(::send(client_.get(), "x", 1, MSG_NOSIGNAL), -1);
  EXPECT_EQ(errno, EPIPE);
}

TEST_F(ConnectionDraining, CallersWithoutRightsGetOnlyFewPlaces) {
  Drainer drainer;
  std::vector<FileDescriptor> crowd;
  for (std::size_t count = 0; count < Drainer::kMostStrangers; ++count) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    drainer.add(FileDescriptor(ends[0]), true);
    crowd.emplace_back(ends[1]);
  }
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const FileDescriptor another(ends[1]);
  drainer.add(FileDescriptor(ends[0]), true);
  EXPECT_LT(::send(another.get(), "x", 1, MSG_NOSIGNAL), 0) << "closed";
  drainer.add(std::move(ours_));
  EXPECT_EQ(::send(client_.get(), "x", 1, MSG_NOSIGNAL), 1) << "somebody with rights is drained";
}

TEST_F(ConnectionDraining, EndsWithConnectionsOpen) {
  Drainer drainer;
  drainer.add(std::move(ours_));
}

TEST(IdleClock, CountsFromOne) {
  std::vector<std::uint64_t> counts;
  Mutex mutex;
  ConditionVariable changed;
  {
    const IdleClock clock(
        [&](std::uint64_t count) {
          const MutexLock lock(mutex);
          counts.push_back(count);
          changed.notify_all();
        },
        milliseconds(5));
    MutexLock lock(mutex);
    while (counts.size() < 3) changed.wait(mutex);
  }
  ASSERT_GE(counts.size(), 3U);
  for (std::size_t index = 0; index < counts.size(); ++index) EXPECT_EQ(counts[index], index + 1);
}

TEST(IdleClock, WaitsForTheTickThatIsUnderWay) {
  std::atomic<bool> begun{false};
  std::atomic<bool> ended{false};
  {
    const IdleClock clock(
        [&](std::uint64_t) {
          begun = true;
          std::this_thread::sleep_for(milliseconds(50));
          ended = true;
        },
        milliseconds(1));
    while (!begun) std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_TRUE(ended);
}

TEST(Peer, IsTheProcessAtTheOtherEnd) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const FileDescriptor first(ends[0]);
  const FileDescriptor second(ends[1]);
  const auto peer = credentialsOf(first.get());
  ASSERT_TRUE(peer);
  EXPECT_EQ(peer->uid, ::geteuid());
  EXPECT_EQ(peer->process, ::getpid());
  EXPECT_EQ(credentialsOf(-1), std::nullopt);
}

TEST(AccessPolicy, RootAndDaemonUserMayDoEverything) {
  const AccessPolicy policy("no-such-group", "no-such-group-either");
  EXPECT_EQ(policy.rightsOf(0), Rights::everything);
  EXPECT_EQ(policy.rightsOf(::geteuid()), Rights::everything);
  EXPECT_EQ(policy.rightsOf(54321), Rights::nothing);
}

}  // namespace
}  // namespace paddock
