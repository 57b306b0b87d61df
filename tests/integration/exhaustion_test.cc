// Attempts to keep others out, or to take the daemon's memory: by crowds of connections, by heads
// that never end, and by bodies that become large.

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <list>
#include <thread>

#include "integration/other_user.h"
#include "integration/running_daemon.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using ::testing::HasSubstr;

constexpr Account kNobody{65534, 65534};
constexpr const char* kHealth = "/v1/health";
constexpr const char* kEcho = "/v1/test_good/echo";      // reads
constexpr const char* kChange = "/v1/test_good/change";  // changes

// A user without an account, and so without rights.
Account stranger(unsigned number) { return {65000 + number, 65000}; }

// In what memory() counts. The sanitizers keep books on each byte, and bytes that are free again.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::int64_t kMiB = 12 << 10;
#else
constexpr std::int64_t kMiB = 1 << 10;
#endif

class Exhaustion : public ::testing::Test {
 protected:
  void start(const std::string& configuration = {}) {
    tree_.configure(configuration);
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }
  int statusFor(const Account& account, const std::string& text) {
    return requestAs(account.user, account.group, tree_.socket(), text).status;
  }
  int healthFor(const Account& account) { return statusFor(account, requestText("GET", kHealth)); }
  // Of the daemon, in KiB: "VmHWM" (at most so far) or "VmRSS" (now).
  std::int64_t memory(const std::string& name) const {
    const std::string file = "/proc/" + std::to_string(daemon_->process()) + "/status";
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
      if (!line.starts_with(name + ":")) continue;
      return std::stoll(line.substr(name.size() + 1));
    }
    ADD_FAILURE() << "no " << name << " in " << file;
    return 0;
  }
  std::ptrdiff_t threads() const {
    const auto tasks = std::filesystem::directory_iterator(
        "/proc/" + std::to_string(daemon_->process()) + "/task");
    return std::distance(begin(tasks), end(tasks));
  }

  DaemonTree tree_;
  std::optional<RunningDaemon> daemon_;
};

class Crowds : public Exhaustion {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  }
  void gather(const Account& account, std::size_t count, Crowd::Manner manner) {
    crowds_.emplace_back(account, tree_.socket(), count, manner);
    ASSERT_TRUE(crowds_.back().connected());
  }

  std::list<Crowd> crowds_;
};

TEST_F(Crowds, TwoUsersWithoutRightsKeepNobodyElseOut) {
  start();
  const auto alone = threads();
  gather(stranger(1), 256, Crowd::Manner::silent);
  gather(stranger(2), 256, Crowd::Manner::dripping);
  for (int count = 0; count < 20; ++count) {
    EXPECT_EQ(daemon_->get(kHealth).status, 200) << count;
    EXPECT_EQ(daemon_->post(kChange, "{}").status, 200) << count;
  }
  // Neither do those who are turned away have threads that wait for them.
  EXPECT_LE(threads(), alone + 8);
  // A third one gets the error for missing rights, and not the one for missing capacity.
  EXPECT_EQ(healthFor(stranger(3)), 403);
}

TEST_F(Crowds, AUserWithoutRightsHasTwoConnections) {
  start();
  std::list<OtherUser> held;
  for (int count = 0; count < 2; ++count) {
    held.emplace_back(stranger(1), tree_.socket());
    EXPECT_EQ(held.back().ask(requestText("GET", kHealth)), 403);
  }
  const Response third =
      requestAs(stranger(1).user, stranger(1).group, tree_.socket(), requestText("GET", kHealth));
  EXPECT_EQ(third.status, 503);
  EXPECT_THAT(third.error(), HasSubstr("too many connections"));
  EXPECT_FALSE(third.header("x-request-id").empty());
  EXPECT_EQ(healthFor(stranger(2)), 403);
  held.pop_front();
  EXPECT_TRUE(eventually([this] { return healthFor(stranger(1)) == 403; }));
}

TEST_F(Crowds, UsersWithoutRightsHaveSixteenConnectionsTogether) {
  start();
  std::list<OtherUser> held;
  for (unsigned number = 0; number < 16; ++number) {
    held.emplace_back(stranger(number / 2), tree_.socket());
    EXPECT_EQ(held.back().ask(requestText("GET", kHealth)), 403) << number;
  }
  EXPECT_EQ(healthFor(stranger(100)), 503);
  EXPECT_EQ(daemon_->get(kHealth).status, 200);
}

TEST_F(Crowds, UnprivilegedUsersSequentialRequestsAreAlwaysAnswered) {
  start();
  for (int count = 0; count < 30; ++count) EXPECT_EQ(healthFor(stranger(1)), 403) << count;
}

TEST_F(Crowds, ViewersLeavePlacesForAdministrators) {
  const group* found = ::getgrgid(kNobody.group);
  if (found == nullptr) GTEST_SKIP() << "there is no group with the number 65534";
  start("[access]\nview_group = \"" + std::string(found->gr_name) +
        "\"\n[limits]\nconnections = 8\nconnections_per_user = 8\n");
  EXPECT_EQ(healthFor(kNobody), 200);
  gather(kNobody, 80, Crowd::Manner::dripping);
  EXPECT_EQ(healthFor(kNobody), 503);
  // The end of a connection of his own may be noticed only after the next one has come.
  const auto isAnswered = [this] { return daemon_->get(kHealth).status == 200; };
  for (int count = 0; count < 20; ++count) EXPECT_TRUE(eventually(isAnswered)) << count;
}

TEST_F(Crowds, ProgramOfRequestIsAdmittedThroughCrowd) {
  start("[limits]\nconnections = 1\n");
  gather(stranger(1), 200, Crowd::Manner::silent);
  const std::string body = wire::writeJson(Dictionary{
      {"program", "/bin/call_daemon"}, {"arguments", Array{tree_.socket(), kEcho, R"({"a":1})"}}});
  Response response;
  ASSERT_TRUE(eventually(
      [&] { return (response = daemon_->post("/v1/test_good/run", body)).status == 200; }));
  EXPECT_EQ(*response.dictionary().string("output"), "200 {\"a\":1}\n");
}

// Sends a byte of a head now and then until the connection ends, and says after how long that was.
milliseconds drip(SocketClient& client) {
  const std::string head = "GET /v1/health HTTP/1.1\r\nX-Long: ";
  const auto started = steady_clock::now();
  for (std::size_t at = 0; steady_clock::now() - started < seconds(40); ++at) {
    if (!client.send(std::string(1, at < head.size() ? head[at] : 'x'))) break;
    std::this_thread::sleep_for(milliseconds(200));
  }
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - started);
}

TEST_F(Exhaustion, AHeadHasTenSecondsInAll) {
  start("[limits]\nidle_seconds = 2\n");
  auto first = std::async(std::launch::async, [this] {
    SocketClient client(tree_.socket());
    return drip(client);
  });
  // The second request of a connection may be waited for before.
  auto later = std::async(std::launch::async, [this] {
    SocketClient client(tree_.socket());
    client.send(requestText("GET", kHealth));
    EXPECT_EQ(client.receive().status, 200);
    return drip(client);
  });
  auto slow = std::async(std::launch::async, [this] {
    SocketClient client(tree_.socket());
    for (const char byte : requestText("GET", kHealth)) {
      client.send({&byte, 1});
      std::this_thread::sleep_for(milliseconds(100));
    }
    return client.receive().status;
  });
  const auto ofFirst = first.get();
  EXPECT_GE(ofFirst, seconds(9));
  EXPECT_LE(ofFirst, seconds(16));
  const auto ofLater = later.get();
  EXPECT_GE(ofLater, seconds(9));
  EXPECT_LE(ofLater, seconds(18));
  EXPECT_EQ(slow.get(), 200) << "within ten seconds";
}

TEST_F(Crowds, UnprivilegedPeerIsRefusedBeforeOtherChecks) {
  start();
  const std::string lengths = "Content-Length: 2\r\nContent-Length: 3\r\n";
  EXPECT_EQ(statusFor(stranger(1), requestText("POST", kChange, "", lengths) + "{}"), 403);
  EXPECT_EQ(statusFor(stranger(2), requestText("POST", kEcho, "", "Content-Length: two\r\n")), 403);
  EXPECT_EQ(statusFor(stranger(3), requestText("POST", kEcho, "",
                                               "Content-Length: 99999999999999999999999\r\n")),
            403);
  EXPECT_EQ(
      statusFor(stranger(4), requestText("POST", kEcho, "", "Transfer-Encoding: chunked\r\n")), 403)
      << "without a chunk";
}

std::string bodyOfSize(std::size_t size) {
  const std::string start = R"({"a":")";
  const std::string end = R"("})";
  return start + std::string(size - start.size() - end.size(), 'x') + end;
}

TEST_F(Exhaustion, ReadingOperationBodyIsLimitedTo64KiB) {
  start();
  EXPECT_EQ(daemon_->post(kEcho, bodyOfSize(65536)).status, 200);
  const auto longer = daemon_->post(kEcho, bodyOfSize(65537));
  EXPECT_EQ(longer.status, 413);
  EXPECT_EQ(longer.error(), "the body is longer than 65536 bytes");
  SocketClient chunked(tree_.socket());
  chunked.send(requestText("POST", kEcho, "", "Transfer-Encoding: chunked\r\n"));
  const std::string chunk = "4000\r\n" + std::string(0x4000, ' ') + "\r\n";
  for (int count = 0; count < 5; ++count) chunked.send(chunk);
  EXPECT_EQ(chunked.receive().status, 413);
  EXPECT_EQ(daemon_->post(kChange, bodyOfSize(65537)).status, 200);
}

TEST_F(Exhaustion, ReadingBodyLimitHasOwnConfigurationKey) {
  start("[limits]\nreading_body_bytes = 100\n");
  EXPECT_EQ(daemon_->post(kEcho, bodyOfSize(100)).status, 200);
  EXPECT_EQ(daemon_->post(kEcho, bodyOfSize(101)).status, 413);
  EXPECT_EQ(daemon_->post(kChange, bodyOfSize(101)).status, 200);
}

// Sixteen MiB of text that would be hundreds of MiB of values.
TEST_F(Exhaustion, ManyValuedBodyIsRefusedBeforeUsingMemory) {
  start();
  const auto before = memory("VmHWM");
  std::string json = R"({"a":[[])";
  while (json.size() + 10 < 16U << 20U) json += ",[]";
  json += "]}";
  const auto refused = daemon_->post(kChange, json);
  EXPECT_EQ(refused.status, 400);
  EXPECT_THAT(refused.error(), HasSubstr("more than 500000 values"));
  EXPECT_THAT(refused.error(), HasSubstr("line 1, column "));
  std::string list = "<plist><dict><key>a</key><array>";
  while (list.size() + 40 < 16U << 20U) list += "<true/>";
  list += "</array></dict></plist>";
  const auto refusedList = daemon_->post(kChange, list, "Content-Type: application/x-plist\r\n");
  EXPECT_EQ(refusedList.status, 400);
  EXPECT_THAT(refusedList.error(), HasSubstr("more than 500000 values"));
  EXPECT_LT(memory("VmHWM") - before, 120 * kMiB);
}

TEST_F(Exhaustion, BodiesOfManyValuesShareAvailableMemory) {
  start("[limits]\nmemory_bytes = 67108864\nbody_values = 100000000\n");
  const auto before = memory("VmHWM");
  std::string json = R"({"a":[[])";
  while (json.size() + 10 < 8U << 20U) json += ",[]";
  json += "]}";
  std::vector<std::future<Response>> replies;
  for (int count = 0; count < 6; ++count) {
    replies.push_back(
        std::async(std::launch::async, [this, &json] { return daemon_->post(kChange, json); }));
  }
  for (auto& reply : replies) {
    const Response response = reply.get();
    EXPECT_EQ(response.status, 503);
    EXPECT_THAT(response.error(), HasSubstr("no memory left for bodies"));
  }
  EXPECT_LT(memory("VmHWM") - before, 110 * kMiB);
  EXPECT_TRUE(eventually([this] { return daemon_->post(kChange, "{}").status == 200; }))
      << "what they had is there again";
}

TEST_F(Exhaustion, UnfinishedBodiesStayWithinMemoryShare) {
  start();
  const auto before = memory("VmRSS");
  const std::string part(15U << 20U, ' ');
  std::list<SocketClient> clients;
  int refused = 0;
  for (int count = 0; count < 24; ++count) {
    clients.emplace_back(tree_.socket());
    clients.back().send(requestText("POST", kChange, "", "Content-Length: 16000000\r\n"));
    clients.back().send(part);
  }
  std::this_thread::sleep_for(seconds(1));
  for (auto& client : clients) {
    if (!client.ready(milliseconds(0))) continue;
    const auto response = client.receive();
    EXPECT_EQ(response.status, 503);
    EXPECT_THAT(response.error(), HasSubstr("no memory left for bodies"));
    ++refused;
  }
  // 24 times 15 MiB are more than 256 MiB.
  EXPECT_GE(refused, 7);
  EXPECT_LE(refused, 12);
  EXPECT_LT(memory("VmRSS") - before, 290 * kMiB);
  clients.clear();
  EXPECT_TRUE(eventually([this, &part] {
    return daemon_->post(kChange, "{}" + part).status == 200;
  })) << "what they had is there again";
}

TEST_F(Exhaustion, AnnouncedLengthTakesNoMemory) {
  start("[limits]\nmemory_bytes = 1048576\n");
  std::list<SocketClient> clients;
  for (int count = 0; count < 8; ++count) {
    clients.emplace_back(tree_.socket());
    clients.back().send(requestText("POST", kChange, "", "Content-Length: 1000000\r\n"));
  }
  EXPECT_EQ(daemon_->post(kChange, "{}").status, 200);
}

TEST_F(Exhaustion, ARepliesMemoryCountsForWhoOnlyReads) {
  start("[limits]\nmemory_bytes = 2000000\n");
  EXPECT_EQ(daemon_->post("/v1/test_good/big", R"({"bytes":1000000})").status, 200);
  const auto refused = daemon_->post("/v1/test_good/big", R"({"bytes":3000000})");
  EXPECT_EQ(refused.status, 503);
  EXPECT_THAT(refused.error(), HasSubstr("no memory left for bodies"));
  EXPECT_EQ(daemon_->post("/v1/test_good/big", R"({"bytes":1000000})").status, 200);
}

TEST_F(Exhaustion, ProgramOfRequestIsAnsweredWithoutFreeMemory) {
  start("[limits]\nmemory_bytes = 1048576\n");
  tree_.write("/bin/late_caller", "#!/bin/sh\necho begun > " + tree_.path("/begun") +
                                      "\nwhile [ ! -e " + tree_.path("/go") +
                                      " ]; do sleep 0.02; done\nexec " +
                                      tree_.path("/bin/call_daemon") + " \"$@\"\n");
  std::filesystem::permissions(tree_.path("/bin/late_caller"), std::filesystem::perms::owner_all);
  const std::string body =
      wire::writeJson(Dictionary{{"program", "/bin/late_caller"},
                                 {"arguments", Array{tree_.socket(), kChange, bodyOfSize(50000)}}});
  auto running =
      std::async(std::launch::async, [&] { return daemon_->post("/v1/test_good/run", body); });
  ASSERT_TRUE(eventually([this] { return tree_.has("/begun"); }));
  std::list<SocketClient> clients;
  for (int count = 0; count < 40; ++count) {
    clients.emplace_back(tree_.socket());
    clients.back().send(requestText("POST", kChange, "", "Content-Length: 60000\r\n") +
                        std::string(59000, ' '));
  }
  ASSERT_TRUE(
      eventually([this] { return daemon_->post(kChange, bodyOfSize(60000)).status == 503; }));
  tree_.write("/go", "");
  const Response response = running.get();
  EXPECT_EQ(response.status, 200) << response.body;
  EXPECT_THAT(response.body, HasSubstr("200 {"));
}

}  // namespace
}  // namespace paddock::testing
