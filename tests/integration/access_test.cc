// Who may call what, judged by the uid at the other end of the socket.

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <chrono>
#include <list>

#include "integration/other_user.h"
#include "integration/running_daemon.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

constexpr uid_t kNobody = 65534;
constexpr gid_t kNoGroup = 65534;

class Access : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
    const group* found = ::getgrgid(kNoGroup);
    if (found == nullptr) GTEST_SKIP() << "there is no group with the number 65534";
    group_ = found->gr_name;
  }

  void start(const std::string& configuration) {
    tree_.configure(configuration);
    daemon_.emplace(tree_);
    ASSERT_TRUE(daemon_->running()) << daemon_->log();
  }
  Response ask(const std::string& text) {
    return requestAs(kNobody, kNoGroup, tree_.socket(), text);
  }
  int statusOf(const std::string& method, const std::string& target, const std::string& body = {}) {
    return ask(requestText(method, target, body)).status;
  }

  std::string group_;
  DaemonTree tree_;
  std::optional<RunningDaemon> daemon_;
};

TEST_F(Access, SomebodyInNeitherGroupIsRefusedEverything) {
  start("");
  EXPECT_EQ(statusOf("GET", "/v1/health"), 403);
  EXPECT_EQ(statusOf("GET", "/v1/plugins"), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", "{}"), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/change", "{}"), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/nothing", "{}"), 403);
  EXPECT_EQ(statusOf("GET", "/nothing"), 403);
  EXPECT_EQ(statusOf("GET", "/v1/audit"), 403);
  EXPECT_EQ(statusOf("DELETE", "/v1/test_good/echo"), 403);
}

TEST_F(Access, ThePeerIsJudgedBeforeTheBody) {
  start("");
  EXPECT_EQ(statusOf("POST", "/v1/test_good/change", "{ no json"), 403);
  // The head alone: the body never comes.
  EXPECT_EQ(ask(requestText("POST", "/v1/test_good/change", "", "Content-Length: 10\r\n")).status,
            403);
  EXPECT_EQ(ask(requestText("POST", "/v1/test_good/change", std::string(4U << 20U, 'x'))).status,
            403);
}

TEST_F(Access, ARefusalSaysWhyInJson) {
  start("");
  const auto response = ask(requestText("POST", "/v1/test_good/change", "{}"));
  EXPECT_THAT(response.error(), ::testing::HasSubstr("65534"));
  EXPECT_THAT(response.error(),
              ::testing::HasSubstr("you need to be in the group paddock: usermod -aG paddock "));
  EXPECT_FALSE(response.header("x-request-id").empty());
}

TEST_F(Access, ARefusalSaysWhichGroupToJoin) {
  start("[access]\nadmin_group = \"these\"\nview_group = \"those\"\n");
  const passwd* found = ::getpwuid(kNobody);
  const std::string name = found != nullptr ? found->pw_name : "USER";
  EXPECT_EQ(ask(requestText("GET", "/v1/health")).error(),
            "user 65534 is not allowed to do this: you need to be in the group these (changes) or "
            "those (looking): usermod -aG those " +
                name);
  EXPECT_EQ(ask(requestText("POST", "/v1/test_good/change", "{}")).error(),
            "user 65534 is not allowed to do this: you need to be in the group these: usermod -aG "
            "these " +
                name);
}

TEST_F(Access, AViewerReadsAndChangesNothing) {
  start("[access]\nview_group = \"" + group_ + "\"\n");
  EXPECT_EQ(statusOf("GET", "/v1/health"), 200);
  EXPECT_EQ(statusOf("GET", "/v1/plugins"), 200);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", "{}"), 200);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/change", "{}"), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/change", "{"), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", "{"), 400);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/nothing", "{}"), 404);
  EXPECT_EQ(statusOf("GET", "/v1/test_good/echo"), 405);
  EXPECT_EQ(statusOf("GET", "/v1/audit"), 403);
}

// A read that authenticates would disclose to a viewer whether a password is root's.
TEST_F(Access, AViewerTriesNoPasswords) {
  start("[access]\nview_group = \"" + group_ + "\"\n");
  const std::string body = R"({"node":"/System","type":"t","name":"n","adminUserName":"root",)"
                           R"("adminPassword":"hunter2"})";
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", body), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", R"({"adminUserName":7})"), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", R"({"adminPassword":"x"})"), 403);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", R"({"adminUserName":null})"), 200);
  const auto lines = linesOf(tree_.read("/var/log/paddock/audit.jsonl"));
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_THAT(lines[0], ::testing::AllOf(::testing::HasSubstr("\"refused\":true"),
                                         ::testing::HasSubstr("\"node\":\"/System\""),
                                         ::testing::HasSubstr("\"name\":\"root\""),
                                         ::testing::HasSubstr("\"uid\":65534")));
  EXPECT_EQ(tree_.read("/var/log/paddock/audit.jsonl").find("hunter2"), std::string::npos);
  EXPECT_EQ(daemon_->log().find("hunter2"), std::string::npos);
}

TEST_F(Access, AnAdministratorTriesPasswordsAndLeavesALine) {
  start("[access]\nadmin_group = \"" + group_ + "\"\n");
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", R"({"adminUserName":"root","status":13})"), 200);
  const auto lines = linesOf(tree_.read("/var/log/paddock/audit.jsonl"));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], ::testing::AllOf(::testing::HasSubstr("\"name\":\"root\""),
                                         ::testing::HasSubstr("\"node\":\"/Local\""),
                                         ::testing::HasSubstr("\"status\":13")));
}

TEST_F(Access, RefusalFloodLogsFewLinesWithFullCount) {
  start("");
  constexpr std::int64_t kRequests = 300;
  const auto begun = std::chrono::steady_clock::now();
  for (std::int64_t count = 0; count < kRequests; ++count)
    ASSERT_EQ(statusOf("POST", "/v1/test_good/change", "{}"), 403);
  const auto seconds =
      std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - begun).count();
  std::size_t lines = 0;
  const auto counted = [&] {
    std::int64_t sum = 0;
    lines = 0;
    for (const std::string& line : linesOf(tree_.read("/var/log/paddock/audit.jsonl"))) {
      ++lines;
      std::string problem;
      const auto value = wire::parseJson(line, problem);
      sum += value->dictionary()->integer("count").value_or(1);
    }
    return sum;
  };
  EXPECT_TRUE(eventually([&] { return counted() == kRequests; })) << counted();
  EXPECT_LE(lines, 11U * (static_cast<std::size_t>(seconds) + 1));
}

TEST_F(Access, AnAdministratorDoesEverything) {
  start("[access]\nadmin_group = \"" + group_ + "\"\n");
  EXPECT_EQ(statusOf("GET", "/v1/health"), 200);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", "{}"), 200);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/change", "{}"), 200);
  EXPECT_EQ(statusOf("GET", "/v1/audit"), 200);
}

// A group of the test's own, in the system's list of groups as the daemon of a test sees it.
class FurtherGroup : public Access {
 protected:
  static constexpr gid_t kNumber = 64999;

  void SetUp() override {
    Access::SetUp();
    if (IsSkipped()) return;
    if (const auto why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
    const passwd* found = ::getpwuid(kNobody);
    if (found == nullptr) GTEST_SKIP() << "there is no user with the number 65534";
    user_ = found->pw_name;
  }

  // Calls `body` where the group has these members.
  void withMembers(const std::string& members, const std::function<void()>& body) {
    setMembers(members);
    runInOwnMounts([&] {
      ASSERT_NO_FATAL_FAILURE(bindMount(folder_.path("group"), "/etc/group"));
      body();
    });
  }
  void setMembers(const std::string& members) const {
    writeWholeFile(folder_.path("group"), systemGroups_ + "paddock-test:x:" +
                                              std::to_string(kNumber) + ":" + members + "\n");
  }
  // What a daemon with this configuration answers a user to whose process the group was given, if
  // `given`: reading, then changing.
  std::vector<int> answers(const std::string& configuration, bool given) {
    tree_.configure(configuration);
    const RunningDaemon daemon(tree_);
    EXPECT_TRUE(daemon.running()) << daemon.log();
    std::vector<int> statuses;
    for (const char* operation : {"echo", "change"}) {
      const std::string text = requestText("POST", std::string("/v1/test_good/") + operation, "{}");
      const std::vector<gid_t> further(given ? 1 : 0, kNumber);
      statuses.push_back(requestAs(kNobody, kNoGroup, tree_.socket(), text, further).status);
    }
    return statuses;
  }

  TestFolder folder_;
  const std::string systemGroups_ = readWholeFile("/etc/group");
  std::string user_;
};

constexpr const char* kItIsTheAdministrators = "[access]\nadmin_group = \"paddock-test\"\n";
constexpr const char* kItIsTheViewers = "[access]\nview_group = \"paddock-test\"\n";

TEST_F(FurtherGroup, SupplementaryMembersHaveItsRights) {
  withMembers("root," + user_, [this] {
    EXPECT_EQ(answers(kItIsTheAdministrators, true), (std::vector{200, 200}));
    EXPECT_EQ(answers(kItIsTheViewers, true), (std::vector{200, 403}));
  });
}

TEST_F(FurtherGroup, MemberWithOlderProcessHasItsRights) {
  withMembers(user_, [this] {
    EXPECT_EQ(answers(kItIsTheAdministrators, false), (std::vector{200, 200}));
    EXPECT_EQ(answers(kItIsTheViewers, false), (std::vector{200, 403}));
  });
}

TEST_F(FurtherGroup, NonMembersProcessWithItHasNoRights) {
  withMembers("root", [this] {
    EXPECT_EQ(answers(kItIsTheAdministrators, true), (std::vector{403, 403}));
    EXPECT_EQ(answers(kItIsTheViewers, true), (std::vector{403, 403}));
  });
}

TEST_F(FurtherGroup, MembershipChangesTakeEffectAtOnce) {
  withMembers("root", [this] {
    tree_.configure(kItIsTheAdministrators);
    const RunningDaemon daemon(tree_);
    const auto change = [this] { return statusOf("POST", "/v1/test_good/change", "{}"); };
    EXPECT_EQ(change(), 403);
    setMembers(user_);
    EXPECT_EQ(change(), 200);
    setMembers("root");
    EXPECT_EQ(change(), 403);
  });
}

TEST_F(FurtherGroup, PersistentConnectionEvaluatesRightsPerRequest) {
  withMembers(user_, [this] {
    tree_.configure(kItIsTheViewers);
    const RunningDaemon daemon(tree_);
    const OtherUser user({kNobody, kNoGroup}, tree_.socket());
    const std::string health = requestText("GET", "/v1/health");
    EXPECT_EQ(user.ask(health), 200);
    setMembers("root");
    EXPECT_EQ(user.ask(health), 403);
    setMembers(user_);
    EXPECT_EQ(user.ask(health), 200);
  });
}

TEST_F(FurtherGroup, LostRightsReduceConnectionsToUnprivilegedLimit) {
  withMembers(user_, [this] {
    tree_.configure(kItIsTheViewers);
    const RunningDaemon daemon(tree_);
    const std::string health = requestText("GET", "/v1/health");
    std::list<OtherUser> connections;
    for (int count = 0; count < 6; ++count) {
      connections.emplace_back(Account{kNobody, kNoGroup}, tree_.socket());
      EXPECT_EQ(connections.back().ask(health), 200);
    }
    setMembers("root");
    for (const OtherUser& connection : connections) EXPECT_EQ(connection.ask(health), 403);
    int left = 0;
    for (const OtherUser& connection : connections) left += connection.ask(health) == 403 ? 1 : 0;
    EXPECT_EQ(left, 2) << "the others were ended";
  });
}

TEST_F(Access, GroupsThatDoNotExistHaveNoMembers) {
  start("[access]\nadmin_group = \"no-such-group-1\"\nview_group = \"no-such-group-2\"\n");
  EXPECT_EQ(statusOf("GET", "/v1/health"), 403);
  EXPECT_EQ(daemon_->post("/v1/test_good/change", "{}").status, 200);
}

TEST_F(Access, AUserWithoutAnAccountIsRefused) {
  start("[access]\nadmin_group = \"" + group_ + "\"\n");
  EXPECT_EQ(requestAs(54321, kNoGroup, tree_.socket(), requestText("GET", "/v1/health")).status,
            403);
}

TEST_F(Access, RefusedChangesAreAuditedAndOthersAreNot) {
  start("");
  statusOf("POST", "/v1/test_good/change", R"({"path":"/secret"})");
  statusOf("POST", "/v1/test_good/echo", "{}");
  statusOf("GET", "/v1/test_good/change");
  const auto lines = linesOf(tree_.read("/var/log/paddock/audit.jsonl"));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], ::testing::AllOf(::testing::HasSubstr("\"refused\":true"),
                                         ::testing::HasSubstr("\"uid\":65534"),
                                         ::testing::HasSubstr("\"operation\":\"change\""),
                                         ::testing::Not(::testing::HasSubstr("\"status\"")),
                                         ::testing::Not(::testing::HasSubstr("secret"))));
}

}  // namespace
}  // namespace paddock::testing
