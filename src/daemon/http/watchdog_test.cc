// What counts as a sign of life.

#include "daemon/http/watchdog.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include "base/file_access.h"
#include "base/mutex.h"
#include "paddock/sys_logger.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using std::chrono::milliseconds;

// Gives each connection the same answer.
class ScriptedServer {
 public:
  explicit ScriptedServer(std::string answer, int queue = 8)
      : answer_(std::move(answer)), listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(&address.sun_path[0], path().c_str(), path().size() + 1);
    EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    EXPECT_EQ(::listen(listener_.get(), queue), 0);
  }
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;
  ~ScriptedServer() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    if (thread_.joinable()) thread_.join();
  }
  void serve() {
    thread_ = std::thread([this] {
      for (;;) {
        const FileDescriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client) return;
        std::array<char, 1024> head{};
        const ssize_t size = ::read(client.get(), head.data(), head.size());
        const std::string text(head.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        if (!text.starts_with("GET /v1/health HTTP/1.1\r\n")) continue;
        // Who asked may be gone, and a signal would end the test.
        (void)::send(client.get(), answer_.data(), answer_.size(), MSG_NOSIGNAL);
      }
    });
  }
  std::string path() const { return folder_.path("socket"); }

 private:
  TestFolder folder_;
  const std::string answer_;
  FileDescriptor listener_;
  std::thread thread_;
};

class Signs : public ::testing::Test {
 protected:
  Signs() {
    installLogSink([this](int, const std::string& line) {
      const MutexLock lock(mutex_);
      log_ += line + "\n";
    });
  }
  ~Signs() override { installLogSink(standardErrorSink()); }

  // Of half a second, with a limit of 200 ms.
  int signs(const std::string& path) {
    const Watchdog watchdog(path, milliseconds(200), [this] { ++count_; });
    std::this_thread::sleep_for(milliseconds(500));
    return count_;
  }
  std::string log() {
    const MutexLock lock(mutex_);
    return log_;
  }

 private:
  std::atomic<int> count_ = 0;
  Mutex mutex_;
  std::string log_ PADDOCK_GUARDED_BY(mutex_);
};

TEST_F(Signs, AnsweredRequestsAreSigns) {
  ScriptedServer server("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
  server.serve();
  EXPECT_GE(signs(server.path()), 2);
  EXPECT_EQ(log(), "");
}

TEST_F(Signs, RefusedRequestsAreNone) {
  ScriptedServer server("HTTP/1.1 503 Service Unavailable\r\nContent-Length: 2\r\n\r\n{}");
  server.serve();
  EXPECT_EQ(signs(server.path()), 0);
  EXPECT_NE(log().find(R"(the answer begins with "HTTP/1.1 503)"), std::string::npos) << log();
}

TEST_F(Signs, ConnectionThatIsClosedUnansweredIsNone) {
  ScriptedServer server("");
  server.serve();
  EXPECT_EQ(signs(server.path()), 0);
  EXPECT_NE(log().find("gives no sign of life"), std::string::npos) << log();
}

TEST_F(Signs, ConnectionThatWaitsInTheQueueIsNone) {
  ScriptedServer server("HTTP/1.1 200 OK\r\n\r\n");
  EXPECT_EQ(signs(server.path()), 0);
  EXPECT_NE(log().find("no answer in 100 ms"), std::string::npos) << log();
}

TEST_F(Signs, FullQueueOfConnectionsIsNone) {
  ScriptedServer server("HTTP/1.1 200 OK\r\n\r\n", 0);
  EXPECT_EQ(signs(server.path()), 0);
  EXPECT_NE(log().find("gives no sign of life"), std::string::npos) << log();
}

TEST_F(Signs, RequestThatWaitsDoesNotDelayTheEnd) {
  ScriptedServer server("HTTP/1.1 200 OK\r\n\r\n");
  const auto started = Watchdog::Clock::now();
  {
    const Watchdog watchdog(server.path(), std::chrono::minutes(1), [] {});
    std::this_thread::sleep_for(milliseconds(100));
  }
  EXPECT_LT(Watchdog::Clock::now() - started, std::chrono::seconds(10));
}

}  // namespace
}  // namespace paddock
