// Many writes at the same time, each of which runs programs that call the daemon back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <future>
#include <list>
#include <thread>

#include "integration/services_fixture.h"

namespace paddock::testing {
namespace {

class ServicesUnderLoad : public ServicesFixture {
 protected:
  // Writes the list, again as long as there is no place for the connection.
  Response writeWhenThereIsAPlace(const Array& sharePoints) const {
    Response response;
    const auto answered = [&] { return (response = writeList(sharePoints)).status != 503; };
    // All the others may be served first.
    for (int times = 0; times < 4 && !eventually(answered);) ++times;
    return response;
  }
  std::size_t recordsLeft() const {
    const Dictionary list =
        daemon_->post("/v1/paddock_sharing/getSharePointList", "{}").dictionary();
    const Array* sharePoints = list.array("sharePointList");
    return sharePoints != nullptr ? sharePoints->size() : 0;
  }
};

TEST_F(ServicesUnderLoad, WritesExceedingConnectionsAllCompleteAndNotify) {
  startDaemon("[limits]\nconnections = 3\nconnections_per_user = 3\n");
  constexpr int kClients = 24;
  std::atomic<int> done{0};
  std::vector<std::thread> clients;
  clients.reserve(kClients);
  for (int client = 0; client < kClients; ++client) {
    clients.emplace_back([this, client, &done] {
      const std::string one = "/srv/one" + std::to_string(client);
      const std::string two = "/srv/two" + std::to_string(client);
      const std::vector<Array> requests{{share(one), share(two)},
                                        {deletion(one), deletion(two), share(one)}};
      for (const Array& request : requests) {
        const Response response = writeWhenThereIsAPlace(request);
        EXPECT_EQ(response.status, 200) << response.body;
        EXPECT_EQ(response.dictionary().integer("writeStatus"), 0) << response.body;
        ++done;
      }
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(done, 2 * kClients);
  EXPECT_EQ(recordsLeft(), kClients);
  // Once for the first request of each client, three times for the second.
  EXPECT_EQ(audited("syncSharePoints"), 4U * kClients);
  EXPECT_EQ(calls().size(), 3U * 4U * kClients);
  EXPECT_FALSE(logged("keelhouse")) << daemon_->log();
  EXPECT_EQ(daemon_->stop(), 0);
}

TEST_F(ServicesUnderLoad, WriteHoldingLastConnectionAdmitsItsPrograms) {
  startDaemon("[limits]\nconnections = 1\n");
  std::list<SocketClient> crowd;
  EXPECT_EQ(writeWhenThereIsAPlace({share("/srv/a")}).status, 200);
  for (int count = 0; count < 100; ++count) crowd.emplace_back(tree_.socket());
  crowd.clear();
  EXPECT_EQ(writeWhenThereIsAPlace({deletion("/srv/a"), share("/srv/b")}).status, 200);
  EXPECT_EQ(audited("syncSharePoints"), 3U);
}

TEST_F(ServicesUnderLoad, RunningWritesCompleteAndNotifyDuringShutdown) {
  const std::string begun = tree_.path("/begun");
  const std::string go = tree_.path("/go");
  addScript(kVspSync, "touch '" + begun + "'; while [ ! -e '" + go + "' ]; do sleep 0.02; done; " +
                          note("vsp"));
  startDaemon();
  constexpr int kClients = 8;
  std::list<SocketClient> clients;
  for (int client = 0; client < kClients; ++client) {
    clients.emplace_back(tree_.socket());
    clients.back().send(
        requestText("POST", "/v1/paddock_sharing/writeSettings",
                    listBody({share("/srv/" + std::to_string(client)), deletion("/srv/none")})));
  }
  ASSERT_TRUE(eventually([this] { return tree_.has("/begun"); }));
  // The others wait for the lock; that they are in is seen by their threads.
  ASSERT_TRUE(eventually([this] {
    const auto tasks = std::filesystem::directory_iterator(
        "/proc/" + std::to_string(daemon_->process()) + "/task");
    return std::distance(begin(tasks), end(tasks)) > kClients;
  }));
  daemon_->signal(SIGTERM);
  ASSERT_TRUE(eventually([this] { return daemon_->get("/v1/health").status == 503; }));
  tree_.write("/go", "");
  std::size_t done = 0;
  for (SocketClient& client : clients) {
    const Response response = client.receive(std::chrono::seconds(120));
    if (response.status == 503) continue;  // it had not begun
    EXPECT_EQ(response.status, 200) << response.body;
    EXPECT_EQ(response.dictionary().integer("writeStatus"), 0) << response.body;
    ++done;
  }
  EXPECT_GE(done, 2U);
  EXPECT_EQ(daemon_->wait(), 0);
  EXPECT_EQ(audited("syncSharePoints"), 2U * done);
  EXPECT_EQ(calls().size(), 6U * done);
}

}  // namespace
}  // namespace paddock::testing
