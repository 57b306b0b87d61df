// The limits on connections, and the callers that are never refused.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <future>
#include <list>
#include <thread>

#include "integration/running_daemon.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

class Limits : public ::testing::Test {
 protected:
  void start(const std::string& limits) {
    tree_.configure("[limits]\n" + limits);
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }
  // A connection that has been answered once, and stays.
  void hold() {
    // Again until a connection that has just ended has given its place back.
    ASSERT_TRUE(eventually([this] {
      held_.emplace_back(tree_.socket());
      held_.back().send(requestText("GET", "/v1/health"));
      if (held_.back().receive().status == 200) return true;
      held_.pop_back();
      return false;
    }));
  }
  // Asks again as long as there is no place: a connection that has just ended may still have it.
  Response askUntilTaken(const std::string& target, const std::string& body) {
    Response response;
    eventually([&] { return (response = daemon_->post(target, body)).status != 503; });
    return response;
  }
  // What a blocked request of this name waits with and for.
  std::string blockBody(const std::string& name) const {
    return wire::writeJson(
        Dictionary{{"begun", tree_.path("/begun-" + name)}, {"until", tree_.path("/go")}});
  }
  // A request whose operation runs call_daemon, which asks the daemon for `target`.
  std::string runBody(const std::string& target) const {
    return wire::writeJson(
        Dictionary{{"program", "/bin/call_daemon"},
                   {"arguments", Array{tree_.socket(), target, R"({"nested":true})"}}});
  }

  DaemonTree tree_;
  std::optional<RunningDaemon> daemon_;
  std::list<SocketClient> held_;
};

TEST_F(Limits, TheConnectionBeyondTheLimitIsAnswered503) {
  start("connections = 3\n");
  for (int count = 0; count < 3; ++count) hold();
  const auto response = daemon_->post("/v1/test_good/echo", "{}");
  EXPECT_EQ(response.status, 503);
  EXPECT_FALSE(response.error().empty());
  EXPECT_FALSE(response.header("x-request-id").empty());
  EXPECT_EQ(response.header("connection"), "close");
  held_.pop_back();
  EXPECT_TRUE(eventually([this] { return daemon_->get("/v1/health").status == 200; }));
}

TEST_F(Limits, OneUserHasALimitToo) {
  start("connections_per_user = 2\n");
  hold();
  hold();
  EXPECT_EQ(daemon_->get("/v1/health").status, 503);
}

TEST_F(Limits, AnotherUserIsNotDisturbedByOnesLimit) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  start("connections_per_user = 1\n");
  hold();
  EXPECT_EQ(daemon_->get("/v1/health").status, 503);
  EXPECT_EQ(requestAs(65534, 65534, tree_.socket(), requestText("GET", "/v1/health")).status, 403);
}

TEST_F(Limits, ManyConnectionsBeyondTheLimitAreAllAnswered) {
  start("connections = 1\n");
  hold();
  std::list<SocketClient> clients;
  for (int count = 0; count < 200; ++count) {
    clients.emplace_back(tree_.socket());
    ASSERT_TRUE(clients.back().connected()) << count;
  }
  for (auto& client : clients) client.send(requestText("GET", "/v1/health"));
  int busy = 0;
  for (auto& client : clients) busy += client.receive().status == 503 ? 1 : 0;
  EXPECT_EQ(busy, 200);
}

TEST_F(Limits, IdleConnectionsAreClosed) {
  start("connections = 2\nidle_seconds = 1\n");
  SocketClient silent(tree_.socket());
  hold();
  EXPECT_TRUE(held_.front().ends(std::chrono::seconds(20)));
  EXPECT_TRUE(silent.ends(std::chrono::seconds(20)));
  EXPECT_TRUE(eventually([this] { return daemon_->get("/v1/health").status == 200; }));
}

TEST_F(Limits, OperationMayExceedIdleTimeout) {
  start("idle_seconds = 1\n");
  auto blocked = std::async(std::launch::async, [this] {
    return daemon_->post("/v1/test_good/block", blockBody("a")).status;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(2600));
  tree_.write("/go", "");
  EXPECT_EQ(blocked.get(), 200);
}

TEST_F(Limits, ProgramMayRunForConfiguredTime) {
  start("program_seconds = 1\n");
  std::filesystem::create_directory_symlink("/usr/bin", tree_.path("/usr-bin"));
  const std::string body =
      wire::writeJson(Dictionary{{"program", "/usr-bin/sleep"}, {"arguments", Array{"1000"}}});
  const Dictionary reply = daemon_->post("/v1/test_good/run", body).dictionary();
  EXPECT_EQ(reply.integer("status"), ETIMEDOUT);
  EXPECT_NE(daemon_->log().find("sleep took too long and was ended"), std::string::npos);
}

TEST_F(Limits, RunningRequestsProgramIsAdmittedAtConnectionLimit) {
  start("connections = 4\n");
  std::vector<std::future<int>> blocked;
  for (const char* name : {"a", "b", "c"}) {
    blocked.push_back(std::async(std::launch::async, [this, name] {
      return askUntilTaken("/v1/test_good/block", blockBody(name)).status;
    }));
    ASSERT_TRUE(eventually([this, name] { return tree_.has(std::string("/begun-") + name); }));
  }
  // The fourth and last place runs a program that calls back.
  const Dictionary reply =
      askUntilTaken("/v1/test_good/run", runBody("/v1/test_sibling/echo")).dictionary();
  EXPECT_EQ(reply.integer("exitStatus"), 0);
  ASSERT_NE(reply.string("output"), nullptr);
  EXPECT_EQ(*reply.string("output"), "200 {\"nested\":true}\n");
  tree_.write("/go", "");
  for (auto& status : blocked) EXPECT_EQ(status.get(), 200);
}

TEST_F(Limits, RefusedCrowdDoesNotKeepProgramOut) {
  start("connections = 1\n");
  std::list<SocketClient> crowd;
  auto running = std::async(std::launch::async, [this] {
    return askUntilTaken("/v1/test_good/blockChange", blockBody("first")).status;
  });
  ASSERT_TRUE(eventually([this] { return tree_.has("/begun-first"); }));
  for (int count = 0; count < 300; ++count) crowd.emplace_back(tree_.socket());
  // Accepted in their order: once the last one is answered, none is left that could take a place.
  crowd.back().send(requestText("GET", "/v1/health"));
  ASSERT_EQ(crowd.back().receive().status, 503);
  tree_.write("/go", "");
  EXPECT_EQ(running.get(), 200);
  // One place is free again; the crowd waits for nothing and says nothing.
  const auto response = askUntilTaken("/v1/test_good/run", runBody("/v1/test_sibling/echo"));
  ASSERT_EQ(response.status, 200) << response.body;
  EXPECT_EQ(*response.dictionary().string("output"), "200 {\"nested\":true}\n");
}

}  // namespace
}  // namespace paddock::testing
