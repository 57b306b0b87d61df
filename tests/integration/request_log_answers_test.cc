// The log of a request is available to its caller.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "integration/running_daemon.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

constexpr uid_t kNobody = 65534;
constexpr gid_t kNoGroup = 65534;

std::string logTarget(const std::string& id) { return "/v1/requests/" + id + "/log"; }

class RequestLogs : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(daemon_.running()) << daemon_.log(); }

  // Makes the request and gives what it logged, "LEVEL TEXT" each.
  std::vector<std::string> linesAfter(const std::string& target, const std::string& body) {
    return linesOfRequest(daemon_.post(target, body).header("x-request-id"));
  }
  std::vector<std::string> linesOfRequest(const std::string& id) {
    const Response response = daemon_.get(logTarget(id));
    EXPECT_EQ(response.status, 200) << response.body;
    const Dictionary reply = response.dictionary();
    EXPECT_EQ(*reply.string("request"), id);
    std::vector<std::string> lines;
    for (const Value& line : *reply.array("lines")) {
      EXPECT_EQ(line.dictionary()->size(), 3U);
      EXPECT_THAT(*line.dictionary()->string("time"),
                  MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{3}Z"));
      lines.push_back(*line.dictionary()->string("level") + " " +
                      *line.dictionary()->string("text"));
    }
    return lines;
  }
  static std::string logBody(int priority, const std::string& text) {
    return wire::writeJson(Dictionary{{"priority", priority}, {"text", text}});
  }

  DaemonTree tree_;
  RunningDaemon daemon_{tree_};
};

TEST_F(RequestLogs, HaveWhatTheOperationSaid) {
  EXPECT_THAT(linesAfter("/v1/test_good/log", logBody(3, "it broke")),
              ElementsAre("error it broke"));
  EXPECT_THAT(linesAfter("/v1/test_good/log", logBody(4, "careful")),
              ElementsAre("warning careful"));
  EXPECT_THAT(linesAfter("/v1/test_good/log", logBody(6, "a\nb")), ElementsAre("info a\\x0Ab"));
}

TEST_F(RequestLogs, AreEmptyWhenNothingWasLogged) {
  EXPECT_THAT(linesAfter("/v1/test_good/echo", "{}"), IsEmpty());
  EXPECT_THAT(linesOfRequest(daemon_.get("/v1/health").header("x-request-id")), IsEmpty());
  EXPECT_THAT(linesOfRequest(daemon_.post("/v1/none/none", "{}").header("x-request-id")),
              IsEmpty());
}

TEST_F(RequestLogs, HaveWhyAnOperationFailed) {
  EXPECT_THAT(linesAfter("/v1/test_good/fail", "{}"),
              ElementsAre("error operation fail of plug-in test_good failed: on purpose"));
}

TEST_F(RequestLogs, HaveWhatANestedCommandSaid) {
  const Dictionary command{{"command", "log"}, {"priority", 4}, {"text", "from the sibling"}};
  const std::string body =
      wire::writeJson(Dictionary{{"module", "test_sibling"}, {"request", command}});
  EXPECT_THAT(linesAfter("/v1/test_good/command", body), ElementsAre("warning from the sibling"));
}

TEST_F(RequestLogs, IncludeProgramsOutputAndItsRequests) {
  const std::string body = wire::writeJson(Dictionary{
      {"program", "/bin/call_daemon"},
      {"arguments", Array{tree_.socket(), "/v1/test_sibling/log", logBody(3, "asked by it")}}});
  EXPECT_THAT(linesAfter("/v1/test_good/run", body), ElementsAre("error asked by it"));
  const std::string missing = wire::writeJson(Dictionary{{"program", "/bin/none"}});
  EXPECT_THAT(linesAfter("/v1/test_good/run", missing), ElementsAre(HasSubstr("cannot be run")));
  const std::string complaining = wire::writeJson(Dictionary{{"program", "/bin/call_daemon"}});
  EXPECT_THAT(linesAfter("/v1/test_good/run", complaining),
              ElementsAre(HasSubstr("exited with status 2")));
}

TEST_F(RequestLogs, OfRequestsThatNobodyKnowsAreNotFound) {
  EXPECT_EQ(daemon_.get(logTarget("none")).status, 404);
  EXPECT_THAT(daemon_.get(logTarget("none")).error(), HasSubstr("\"none\""));
  EXPECT_EQ(daemon_.get("/v1/requests/none").status, 404);
  EXPECT_EQ(daemon_.get("/v1/requests/none/other").status, 404);
  const std::string id = daemon_.get("/v1/health").header("x-request-id");
  EXPECT_EQ(daemon_.post(logTarget(id), "{}").status, 405);
}

TEST_F(RequestLogs, AreThereForTheLastThousandRequests) {
  const std::string id =
      daemon_.post("/v1/test_good/log", logBody(3, "old")).header("x-request-id");
  for (int count = 0; count < 998; ++count) daemon_.get("/v1/health");
  EXPECT_THAT(linesOfRequest(id), ElementsAre("error old"));
  for (int count = 0; count < 3; ++count) daemon_.get("/v1/health");
  EXPECT_TRUE(eventually([&] { return daemon_.get(logTarget(id)).status == 404; }));
}

// Other users than the daemon's own.
class OthersRequestLogs : public RequestLogs {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
    RequestLogs::SetUp();
  }
  Response askAsNobody(const std::string& method, const std::string& target,
                       const std::string& body = {}) {
    return requestAs(kNobody, kNoGroup, tree_.socket(), requestText(method, target, body));
  }
};

TEST_F(OthersRequestLogs, AreReadableByAdministratorsAndRequester) {
  const std::string roots = daemon_.get("/v1/health").header("x-request-id");
  const std::string nobodys = askAsNobody("GET", "/v1/health").header("x-request-id");
  EXPECT_EQ(askAsNobody("GET", logTarget(roots)).status, 403);
  EXPECT_EQ(askAsNobody("GET", logTarget("none")).status, 403);
  EXPECT_EQ(askAsNobody("GET", logTarget(nobodys)).status, 200);
  EXPECT_EQ(daemon_.get(logTarget(nobodys)).status, 200);
}

TEST_F(OthersRequestLogs, AreNotPushedOutByUsersWithoutRights) {
  const std::string id =
      daemon_.post("/v1/test_good/log", logBody(3, "kept")).header("x-request-id");
  const std::string text = requestText("GET", "/v1/health");
  for (int count = 0; count < 50; ++count) {
    EXPECT_EQ(requestAs(kNobody, kNoGroup, tree_.socket(), text).status, 403);
  }
  for (int count = 0; count < 990; ++count) daemon_.get("/v1/health");
  EXPECT_THAT(linesOfRequest(id), ElementsAre("error kept"));
}

}  // namespace
}  // namespace paddock::testing
