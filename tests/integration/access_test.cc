// Who may call what, judged by the uid at the other end of the socket.

#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "integration/running_daemon.h"

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
  EXPECT_FALSE(response.header("x-request-id").empty());
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
}

TEST_F(Access, AnAdministratorDoesEverything) {
  start("[access]\nadmin_group = \"" + group_ + "\"\n");
  EXPECT_EQ(statusOf("GET", "/v1/health"), 200);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/echo", "{}"), 200);
  EXPECT_EQ(statusOf("POST", "/v1/test_good/change", "{}"), 200);
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
