// The daemon under a service manager: the socket that it is passed, what it notifies, and its signs
// of life.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>

#include "integration/running_daemon.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr auto kPatience = seconds(60);
constexpr const char* kAlive = "WATCHDOG=1";

FileDescriptor boundSocket(int type, const std::string& path) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  FileDescriptor bound(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(&address.sun_path[0], path.c_str(), path.size() + 1);
  EXPECT_EQ(::bind(bound.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  if (type == SOCK_STREAM) {
    EXPECT_EQ(::listen(bound.get(), 64), 0);
  }
  return bound;
}

// A thread of a child that does not run as long as the object lives.
class FrozenThread {
 public:
  explicit FrozenThread(pid_t thread) : thread_(thread) {
    if (::ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr) != 0) return;
    ::ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr);
    int status = 0;
    frozen_ = ::waitpid(thread_, &status, __WALL) == thread_ && WIFSTOPPED(status);
  }
  FrozenThread(const FrozenThread&) = delete;
  FrozenThread& operator=(const FrozenThread&) = delete;
  ~FrozenThread() { ::ptrace(PTRACE_DETACH, thread_, nullptr, nullptr); }
  bool frozen() const { return frozen_; }

 private:
  pid_t thread_;
  bool frozen_ = false;
};

class ServiceManager : public ::testing::Test {
 protected:
  ServiceManager() : notifications_(boundSocket(SOCK_DGRAM, tree_.path("/notify"))) {}
  ~ServiceManager() override {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }

  // Starts the daemon as a service manager does.
  void start(const std::vector<int>& sockets = {}, milliseconds watchdog = {}) {
    const std::string program =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / "paddockd";
    const FileDescriptor log(
        ::open(tree_.path("/stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    process_ = ::fork();
    if (process_ != 0) return;
    ::dup2(log.get(), STDERR_FILENO);
    constexpr int kAbove = 100;
    std::vector<int> kept;
    kept.reserve(sockets.size());
    for (const int socket : sockets) kept.push_back(::fcntl(socket, F_DUPFD_CLOEXEC, kAbove));
    int number = STDERR_FILENO;
    for (const int socket : kept) ::dup2(socket, ++number);
    const std::string own = std::to_string(::getpid());
    ::setenv("NOTIFY_SOCKET", tree_.path("/notify").c_str(), 1);
    if (!sockets.empty()) {
      ::setenv("LISTEN_PID", own.c_str(), 1);
      ::setenv("LISTEN_FDS", std::to_string(sockets.size()).c_str(), 1);
    }
    if (watchdog.count() > 0) {
      ::setenv("WATCHDOG_PID", own.c_str(), 1);
      ::setenv("WATCHDOG_USEC", std::to_string(watchdog.count() * 1000).c_str(), 1);
    }
    ::execl(program.c_str(), program.c_str(), "--root", tree_.root().c_str(), nullptr);
    ::_exit(127);
  }
  // Its exit status, 128 + N for signal N, -1 when it does not end.
  int end(int signal = 0) {
    if (signal != 0) ::kill(process_, signal);
    int status = -1;
    if (!eventually([&] { return ::waitpid(process_, &status, WNOHANG) == process_; })) return -1;
    process_ = 0;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

  // The next notification; empty when none comes in time.
  std::string notification(milliseconds patience = kPatience) const {
    pollfd event{notifications_.get(), POLLIN, 0};
    if (::poll(&event, 1, static_cast<int>(patience.count())) <= 0) return {};
    std::string text(4096, '\0');
    const ssize_t size = ::recv(notifications_.get(), text.data(), text.size(), 0);
    text.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return text;
  }
  // The next one that begins so; empty when none comes in time.
  std::string notificationOf(const std::string& start) const {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
      std::string text = notification(seconds(1));
      if (text.starts_with(start)) return text;
    }
    return {};
  }
  // Signs of life within a time.
  int signsWithin(milliseconds time) const {
    const auto end = std::chrono::steady_clock::now() + time;
    int count = 0;
    for (;;) {
      const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
      if (left.count() <= 0) return count;
      if (notification(left) == kAlive) ++count;
    }
  }
  Response get(const std::string& target) const { return request(tree_.socket(), "GET", target); }
  Response post(const std::string& target, const Dictionary& body) const {
    return request(tree_.socket(), "POST", target, wire::writeJson(body));
  }
  // The first thread whose name begins so, of the daemon's own and of the library's.
  pid_t threadOf(const std::string& start) const {
    const std::string folder = "/proc/" + std::to_string(process_) + "/task";
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      std::string name;
      std::ifstream(entry.path() / "comm") >> name;
      if (name.starts_with(start) && name != "MHD-connection")
        return static_cast<pid_t>(std::stol(entry.path().filename()));
    }
    return 0;
  }
  // Freezes one thread: no sign of life then, though others run, and again when it runs on.
  void freeze(const std::string& name) {
    constexpr auto kLimit = milliseconds(1000);
    start({}, kLimit);
    ASSERT_NE(notificationOf(kAlive), "") << tree_.read("/stderr");
    const pid_t thread = threadOf(name);
    ASSERT_NE(thread, 0) << name;
    {
      const FrozenThread frozen(thread);
      if (!frozen.frozen()) GTEST_SKIP() << "a thread cannot be traced here";
      // One that was answered before may still come.
      signsWithin(kLimit);
      EXPECT_EQ(signsWithin(3 * kLimit), 0);
      EXPECT_THAT(tree_.read("/stderr"), HasSubstr("does not answer at its own socket"));
    }
    EXPECT_NE(notificationOf(kAlive), "");
  }

  DaemonTree tree_;
  FileDescriptor notifications_;
  pid_t process_ = 0;
};

TEST_F(ServiceManager, ReadyMeansThatRequestsAreAnswered) {
  start();
  EXPECT_EQ(notification(), "READY=1\nSTATUS=serving") << tree_.read("/stderr");
  EXPECT_EQ(get("/v1/health").status, 200);
}

TEST_F(ServiceManager, ReloadIsNotifiedFromBeginningToEnd) {
  start();
  ASSERT_NE(notificationOf("READY=1"), "");
  tree_.configure("[limits]\nbogus = 1\n");
  ::kill(process_, SIGHUP);
  EXPECT_THAT(notification(), AllOf(HasSubstr("RELOADING=1\n"), HasSubstr("MONOTONIC_USEC=")));
  EXPECT_THAT(notification(), AllOf(HasSubstr("READY=1\n"),
                                    HasSubstr("STATUS=serving; configuration not read again"),
                                    HasSubstr(":2: unknown key \"limits.bogus\"")));
  tree_.configure("[acl]\nprojection = false\n");
  ::kill(process_, SIGHUP);
  EXPECT_THAT(notification(), HasSubstr("RELOADING=1\n"));
  EXPECT_EQ(notification(), "READY=1\nSTATUS=serving; a restart is needed for acl.projection");
}

TEST_F(ServiceManager, StopIsNotifiedBeforeRunningRequestsEnd) {
  start();
  ASSERT_NE(notificationOf("READY=1"), "");
  auto blocked = std::async(std::launch::async, [&] {
    return post("/v1/test_good/block",
                {{"begun", tree_.path("/begun")}, {"until", tree_.path("/go")}});
  });
  ASSERT_TRUE(eventually([this] { return tree_.has("/begun"); }));
  ::kill(process_, SIGTERM);
  EXPECT_THAT(notification(), HasSubstr("STOPPING=1\n"));
  tree_.write("/go", "");
  EXPECT_EQ(blocked.get().status, 200);
  EXPECT_EQ(end(), 0);
}

TEST_F(ServiceManager, PassedSocketIsServedAndOutlivesTheDaemon) {
  const FileDescriptor listener = boundSocket(SOCK_STREAM, tree_.socket());
  // Whoever comes while no daemon runs is answered by the next one.
  for (const int ending : {SIGKILL, SIGTERM}) {
    SocketClient early(tree_.socket());
    ASSERT_TRUE(early.send(requestText("GET", "/v1/health")));
    start({listener.get()});
    EXPECT_EQ(early.receive().status, 200) << tree_.read("/stderr");
    EXPECT_EQ(get("/v1/health").status, 200);
    EXPECT_EQ(end(ending), ending == SIGTERM ? 0 : 128 + SIGKILL);
    EXPECT_TRUE(tree_.has("/run/paddock/paddockd.sock"));
  }
}

TEST_F(ServiceManager, SocketThatIsNotTheDaemonsIsRefused) {
  const FileDescriptor elsewhere = boundSocket(SOCK_STREAM, tree_.path("/run/paddock/other.sock"));
  const FileDescriptor datagrams = boundSocket(SOCK_DGRAM, tree_.path("/run/paddock/datagrams"));
  start({elsewhere.get()});
  EXPECT_EQ(end(), 1);
  EXPECT_THAT(tree_.read("/stderr"),
              HasSubstr("no stream socket that listens at " + tree_.socket()));
  tree_.write("/stderr", "");
  start({datagrams.get()});
  EXPECT_EQ(end(), 1);
  EXPECT_THAT(tree_.read("/stderr"), HasSubstr("no stream socket"));
  tree_.write("/stderr", "");
  start({elsewhere.get(), datagrams.get()});
  EXPECT_EQ(end(), 1);
  EXPECT_THAT(tree_.read("/stderr"), HasSubstr("passed 2 sockets, and one is expected"));
}

TEST_F(ServiceManager, ProgramsDoNotGetTheVariables) {
  const FileDescriptor listener = boundSocket(SOCK_STREAM, tree_.socket());
  tree_.write("/bin/variables", "#!/bin/sh\nexec env\n");
  std::filesystem::permissions(tree_.path("/bin/variables"), std::filesystem::perms::owner_all);
  start({listener.get()}, seconds(60));
  const auto answer =
      post("/v1/test_good/run", {{"program", "/bin/variables"}, {"arguments", Array{}}});
  ASSERT_EQ(answer.status, 200);
  const std::string variables = *answer.dictionary().string("output");
  EXPECT_THAT(variables, HasSubstr("PADDOCK_REQUEST_ID="));
  EXPECT_THAT(variables, AllOf(Not(HasSubstr("NOTIFY_SOCKET")), Not(HasSubstr("LISTEN_")),
                               Not(HasSubstr("WATCHDOG_"))));
}

TEST_F(ServiceManager, LongOperationsDoNotKeepSignsOfLifeBack) {
  tree_.configure("[limits]\nconnections = 1\n");
  start({}, milliseconds(3000));
  ASSERT_NE(notificationOf("READY=1"), "");
  auto blocked = std::async(std::launch::async, [&] {
    return post("/v1/test_good/block",
                {{"begun", tree_.path("/begun")}, {"until", tree_.path("/go")}});
  });
  ASSERT_TRUE(eventually([this] { return tree_.has("/begun"); }));
  // The one place there is has been taken.
  EXPECT_EQ(get("/v1/health").status, 503);
  EXPECT_GE(signsWithin(milliseconds(4500)), 3);
  // And while the daemon stops, it waits for the operation.
  ::kill(process_, SIGTERM);
  ASSERT_THAT(notificationOf("STOPPING=1"), HasSubstr("waiting for the requests"));
  EXPECT_GE(signsWithin(milliseconds(4500)), 3);
  EXPECT_THAT(tree_.read("/stderr"), Not(HasSubstr("does not answer")));
  tree_.write("/go", "");
  EXPECT_EQ(blocked.get().status, 200);
  EXPECT_EQ(end(), 0);
}

TEST_F(ServiceManager, SignsOfLifePushNoRequestOutOfTheLog) {
  start({}, milliseconds(32));
  ASSERT_NE(notificationOf("READY=1"), "");
  const std::string id = get("/v1/health").header("x-request-id");
  for (int count = 0; count < 1100; ++count) ASSERT_NE(notificationOf(kAlive), "");
  EXPECT_EQ(get("/v1/requests/" + id + "/log").status, 200);
}

TEST_F(ServiceManager, NoSignOfLifeWhileConnectionsAreNotAccepted) { freeze("acceptor"); }

TEST_F(ServiceManager, NoSignOfLifeWhileTheLibraryTakesNoConnection) { freeze("MHD-"); }

TEST_F(ServiceManager, StoppedDaemonGivesNoSignOfLife) {
  start({}, milliseconds(1000));
  ASSERT_NE(notificationOf(kAlive), "");
  ::kill(process_, SIGSTOP);
  signsWithin(milliseconds(500));
  EXPECT_EQ(signsWithin(milliseconds(2000)), 0);
  ::kill(process_, SIGCONT);
  EXPECT_NE(notificationOf(kAlive), "");
}

TEST_F(ServiceManager, WithoutTimeLimitThereAreNoSignsOfLife) {
  start();
  ASSERT_NE(notificationOf("READY=1"), "");
  EXPECT_EQ(notification(milliseconds(1500)), "");
}

}  // namespace
}  // namespace paddock::testing
