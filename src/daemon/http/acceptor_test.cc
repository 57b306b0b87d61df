// Who is let in while it is not known what others may do, and how connections are ended.

#include "daemon/http/acceptor.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/file_access.h"
#include "base/mutex.h"
#include "daemon/http/head_deadlines.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr uid_t kSlow = 65001;
constexpr uid_t kQuick = 65002;

// Answers for users, but for one not before it is let go.
class SlowJudge {
 public:
  Rights operator()(uid_t user) {
    MutexLock lock(mutex_);
    ++calls_;
    while (user == kSlow && !open_) go_.wait(mutex_);
    return user == kQuick ? Rights::viewing : Rights::nothing;
  }
  void letGo() {
    const MutexLock lock(mutex_);
    open_ = true;
    go_.notify_all();
  }
  int calls() {
    const MutexLock lock(mutex_);
    return calls_;
  }

 private:
  Mutex mutex_;
  ConditionVariable go_;
  bool open_ PADDOCK_GUARDED_BY(mutex_) = false;
  int calls_ PADDOCK_GUARDED_BY(mutex_) = 0;
};

bool eventually(const std::function<bool()>& condition) {
  for (int step = 0; step < 2000; ++step) {
    if (condition()) return true;
    std::this_thread::sleep_for(milliseconds(5));
  }
  return false;
}

TEST(KnownRights, AreFoundOutOnAnotherThreadAndRemembered) {
  SlowJudge judge;
  judge.letGo();
  std::atomic<int> judged{0};
  KnownRights rights([&judge](uid_t user) { return judge(user); }, [&judged] { ++judged; });
  EXPECT_EQ(rights.of(kQuick), std::nullopt);
  ASSERT_TRUE(eventually([&] { return judged == 1; }));
  EXPECT_EQ(rights.of(kQuick), Rights::viewing);
  EXPECT_EQ(judge.calls(), 1);
  rights.note(kQuick, Rights::everything);
  EXPECT_EQ(rights.of(kQuick), Rights::everything);
  rights.forget();
  EXPECT_EQ(rights.of(kQuick), std::nullopt);
}

TEST(KnownRights, NobodyIsAskedAboutOwners) {
  SlowJudge judge;
  KnownRights rights([&judge](uid_t user) { return judge(user); }, [] {});
  EXPECT_EQ(rights.of(0), Rights::everything);
  EXPECT_EQ(rights.of(::geteuid()), Rights::everything);
  EXPECT_EQ(judge.calls(), 0);
}

TEST(KnownRights, RepeatedQueriesResolveUserOnce) {
  SlowJudge judge;
  KnownRights rights([&judge](uid_t user) { return judge(user); }, [] {});
  for (int count = 0; count < 100; ++count) EXPECT_EQ(rights.of(kSlow), std::nullopt);
  judge.letGo();
  EXPECT_TRUE(eventually([&] { return rights.of(kSlow) == Rights::nothing; }));
  EXPECT_EQ(judge.calls(), 1);
}

class ConnectionAcceptance : public testing::Test {
 protected:
  ConnectionAcceptance()
      : listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    address_.sun_family = AF_UNIX;
    const std::string path = folder_.path("socket");
    std::memcpy(&address_.sun_path[0], path.c_str(), path.size() + 1);
    EXPECT_EQ(::bind(listener_.get(), generic(), sizeof address_), 0);
    EXPECT_EQ(::chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(::chmod(folder_.path("").c_str(), 0755), 0);
    EXPECT_EQ(::listen(listener_.get(), 64), 0);
  }
  ~ConnectionAcceptance() override {
    for (const pid_t child : children_) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
    }
  }
  const sockaddr* generic() const { return reinterpret_cast<const sockaddr*>(&address_); }

  Acceptor::Door door() {
    return {.take =
                [this](Acceptor::Arrival& arrival, Rights rights) {
                  const MutexLock lock(mutex_);
                  if (rights == Rights::nothing && full_) return false;
                  taken_.emplace_back(arrival.peer.uid, rights);
                  return true;
                },
            .refuse =
                [this](const Acceptor::Arrival& arrival, Rights rights, const std::string&) {
                  const MutexLock lock(mutex_);
                  refused_.emplace_back(arrival.peer.uid, rights);
                },
            .tick = [](Acceptor::Clock::time_point) {}};
  }
  // Connects as a user, from a process that stays.
  void connectAs(uid_t user, int times = 1) {
    const pid_t child = ::fork();
    if (child != 0) {
      children_.push_back(child);
      return;
    }
    if (::setuid(user) != 0) ::_exit(1);
    std::vector<FileDescriptor> sockets;
    for (int count = 0; count < times; ++count) {
      sockets.emplace_back(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
      if (::connect(sockets.back().get(), generic(), sizeof address_) != 0) ::_exit(2);
    }
    for (;;) ::pause();
  }
  // Starts with every place taken, until a user without rights is refused; gives when that user
  // came.
  Acceptor::Clock::time_point startWithoutPlaces(Acceptor& acceptor) {
    full_ = true;
    judge_.letGo();
    acceptor.start();
    const auto started = Acceptor::Clock::now();
    connectAs(kSlow);
    EXPECT_TRUE(eventually([this] { return refused(kSlow) == 1; }));
    return started;
  }
  std::size_t taken(uid_t user, Rights rights) {
    const MutexLock lock(mutex_);
    return static_cast<std::size_t>(
        std::count(taken_.begin(), taken_.end(), std::pair(user, rights)));
  }
  std::size_t refused(uid_t user) {
    const MutexLock lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(refused_.begin(), refused_.end(),
                      [user](const auto& entry) { return entry.first == user; }));
  }

  TestFolder folder_;
  FileDescriptor listener_;
  sockaddr_un address_{};
  SlowJudge judge_;
  Mutex mutex_;
  bool full_ = false;
  std::vector<std::pair<uid_t, Rights>> taken_ PADDOCK_GUARDED_BY(mutex_);
  std::vector<std::pair<uid_t, Rights>> refused_ PADDOCK_GUARDED_BY(mutex_);
  std::vector<pid_t> children_;
};

TEST_F(ConnectionAcceptance, SlowRightsLookupDoesNotBlockRoot) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  Acceptor acceptor(
      listener_.get(), [this](uid_t user) { return judge_(user); }, door());
  acceptor.start();
  connectAs(kSlow);
  ASSERT_TRUE(eventually([this] { return judge_.calls() == 1; }));
  connectAs(0);
  EXPECT_TRUE(eventually([this] { return taken(0, Rights::everything) == 1; }));
  EXPECT_EQ(taken(kSlow, Rights::nothing), 0U);
  judge_.letGo();
  EXPECT_TRUE(eventually([this] { return taken(kSlow, Rights::nothing) == 1; }));
  connectAs(kQuick);
  EXPECT_TRUE(eventually([this] { return taken(kQuick, Rights::viewing) == 1; }));
  acceptor.stop();
}

TEST_F(ConnectionAcceptance, UserWithoutRightsWaitsBrieflyForPlace) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  Acceptor acceptor(
      listener_.get(), [this](uid_t user) { return judge_(user); }, door());
  const auto started = startWithoutPlaces(acceptor);
  EXPECT_GE(Acceptor::Clock::now() - started, milliseconds(400));
  acceptor.stop();
}

TEST_F(ConnectionAcceptance, RepliesToInsistentUserWithoutRightsAreLimited) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  Acceptor acceptor(
      listener_.get(), [this](uid_t user) { return judge_(user); }, door());
  const auto started = startWithoutPlaces(acceptor);
  connectAs(kSlow, 900);
  // Behind all of them.
  ASSERT_TRUE(eventually([this] { return refused(kSlow) >= 50; }));
  connectAs(0);
  ASSERT_TRUE(eventually([this] { return taken(0, Rights::everything) == 1; }));
  acceptor.stop();
  const auto time = std::chrono::ceil<seconds>(Acceptor::Clock::now() - started).count();
  EXPECT_LE(refused(kSlow), 100U * (static_cast<std::size_t>(time) + 1));
}

TEST(HeadDeadlines, EndWhatIsOverdueAndNothingElse) {
  std::array<std::array<int, 2>, 3> pairs{};
  std::vector<FileDescriptor> all;
  for (auto& pair : pairs) {
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    for (const int end : pair) all.emplace_back(end);
  }
  const auto now = HeadDeadlines::Clock::now();
  HeadDeadlines deadlines;
  deadlines.set(pairs[0][0], now);
  deadlines.set(pairs[1][0], now + seconds(1));
  deadlines.set(pairs[2][0], now);
  deadlines.clear(pairs[2][0]);
  deadlines.endOverdue(now);
  const auto ended = [&pairs](std::size_t number) {
    char byte = 0;
    return ::recv(pairs.at(number)[1], &byte, 1, MSG_DONTWAIT) == 0;
  };
  EXPECT_TRUE(ended(0));
  EXPECT_FALSE(ended(1));
  EXPECT_FALSE(ended(2));
  deadlines.set(pairs[1][0], now);
  deadlines.endOverdue(now);
  EXPECT_TRUE(ended(1));
}

}  // namespace
}  // namespace paddock
