// What the audit log holds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <regex>
#include <thread>

#include "integration/running_daemon.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

class Audit : public ::testing::Test {
 protected:
  Audit() : daemon_(tree_) {}
  void SetUp() override { ASSERT_TRUE(daemon_.running()) << daemon_.log(); }

  // The lines as dictionaries.
  std::vector<Dictionary> lines() const {
    std::vector<Dictionary> result;
    for (const std::string& line : linesOf(tree_.read("/var/log/paddock/audit.jsonl"))) {
      std::string problem;
      const auto value = wire::parseJson(line, problem);
      EXPECT_TRUE(value.has_value()) << line << ": " << problem;
      if (value && value->dictionary() != nullptr) result.push_back(*value->dictionary());
    }
    return result;
  }
  // The one line that a changing request with this body leaves.
  Dictionary lineOf(const std::string& body, const std::string& operation = "change") {
    daemon_.post("/v1/test_good/" + operation, body);
    const auto all = lines();
    return all.empty() ? Dictionary() : all.back();
  }

  DaemonTree tree_;
  RunningDaemon daemon_;
  std::string problem_;
};

TEST_F(Audit, ChangingRequestLogsOneLineWithExactKeys) {
  const auto response = daemon_.post("/v1/test_good/change", R"({"path":"/srv/a","password":"x"})");
  const auto all = lines();
  ASSERT_EQ(all.size(), 1U);
  Dictionary line = all[0];
  ASSERT_NE(line.string("time"), nullptr);
  EXPECT_TRUE(std::regex_match(*line.string("time"),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)")));
  EXPECT_GE(line.integer("ms").value_or(-1), 0);
  line.erase("time");
  line.erase("ms");
  line.erase("loginuid");  // of who runs the tests
  EXPECT_EQ(line, (Dictionary{{"request", response.header("x-request-id")},
                              {"uid", ::geteuid()},
                              {"pid", ::getpid()},
                              {"plugin", "test_good"},
                              {"operation", "change"},
                              {"path", "/srv/a"},
                              {"status", 0}}));
}

TEST_F(Audit, ReadingRequestsLeaveNone) {
  daemon_.post("/v1/test_good/echo", "{}");
  daemon_.post("/v1/test_good/nothing", "{}");
  daemon_.post("/v1/nothing/change", "{}");
  daemon_.get("/v1/health");
  daemon_.get("/v1/test_good/change");
  EXPECT_TRUE(lines().empty());
}

TEST_F(Audit, PathPrefersOptionalArgumentsOverRequestPath) {
  EXPECT_EQ(*lineOf(R"({"optionalArguments":{"path":"/a"},"path":"/b"})").string("path"), "/a");
  EXPECT_EQ(*lineOf(R"({"path":"/b","paths":["/c"]})").string("path"), "/b");
  EXPECT_FALSE(lineOf("{}").contains("path"));
  EXPECT_FALSE(lineOf(R"({"path":7,"paths":[],"optionalArguments":"x"})").contains("path"));
}

TEST_F(Audit, PathsOfAListAreNamed) {
  const Dictionary line = lineOf(R"({"paths":["/c","/d"]})");
  EXPECT_FALSE(line.contains("path"));
  EXPECT_EQ(*line.array("paths"), (Array{"/c", "/d"}));
}

// Anybody who may make a folder names it; what is read on a terminal must not be rewritten by that.
TEST_F(Audit, NamesCannotReorderOrControlTheirLine) {
  constexpr const char* kAttack = R"(/srv/a\u202egpj\u2066\u200f\u061c\u009b2J\u001b[2J)";
  const std::string body = std::string(R"({"path":")") + kAttack + R"("})";
  daemon_.post("/v1/test_good/change", body);
  const std::string log = tree_.read("/var/log/paddock/audit.jsonl");
  EXPECT_NE(log.find(kAttack), std::string::npos) << log;
  EXPECT_EQ(std::count_if(log.begin(), log.end(), [](char c) { return c < ' ' || c > '~'; }), 1)
      << "the line's own end";
  // It is the same name for programs.
  const auto sent = wire::parseJson(body, problem_);
  EXPECT_EQ(*lines().back().string("path"), *sent->dictionary()->string("path"));
}

TEST_F(Audit, ProgramsRequestNamesItsParentRequest) {
  const std::string body = wire::writeJson(
      Dictionary{{"program", "/bin/call_daemon"},
                 {"arguments", Array{tree_.socket(), "/v1/test_good/change", "{}"}}});
  const std::string parent = daemon_.post("/v1/test_good/run", body).header("x-request-id");
  const auto all = lines();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(*all[0].string("parent"), parent);
  EXPECT_NE(*all[0].string("request"), parent);
}

TEST_F(Audit, StatusPrefersWriteStatusOverStatus) {
  EXPECT_EQ(lineOf(R"({"writeStatus":100076,"status":2})").integer("status"), 100076);
  EXPECT_EQ(lineOf(R"({"status":-1})").integer("status"), -1);
  EXPECT_EQ(lineOf(R"({"status":"13"})").integer("status"), 0);
  EXPECT_EQ(lineOf(R"({"status":0,"error":"Permission denied"})").integer("status"), 0);
}

TEST_F(Audit, ErrorTextAloneDeterminesStatus) {
  EXPECT_EQ(lineOf(R"({"canAuth":false,"error":"Permission denied"})").integer("status"), EACCES);
  EXPECT_EQ(lineOf(R"({"error":"CANNOT_PROPAGATE_PRIVS_ERR"})").integer("status"), 100054);
  EXPECT_EQ(lineOf(R"({"error":"something else"})").integer("status"), EIO);
  EXPECT_EQ(lineOf(R"({"error":7})").integer("status"), 0);
}

TEST_F(Audit, FailedRequestsHaveFailureNumber) {
  EXPECT_EQ(lineOf("{").integer("status"), EINVAL);
  EXPECT_EQ(lineOf("[]").integer("status"), EINVAL);
  EXPECT_EQ(lineOf("{}", "fail").integer("status"), EIO);
  EXPECT_EQ(lineOf(R"({"how":"odd"})", "fail").integer("status"), EIO);
  const Dictionary line = lineOf(R"({"how":"number","path":"/p"})", "fail");
  EXPECT_EQ(line.integer("status"), ENOSPC);
  EXPECT_EQ(*line.string("path"), "/p");
  EXPECT_FALSE(line.contains("refused"));
}

TEST_F(Audit, ATooLongBodyIsAuditedToo) {
  daemon_.post("/v1/test_good/change", "", "Content-Length: 99999999\r\n");
  ASSERT_EQ(lines().size(), 1U);
  EXPECT_EQ(lines()[0].integer("status"), EFBIG);
}

TEST_F(Audit, PathsWithOddBytesStayOneLine) {
  EXPECT_EQ(*lineOf(R"({"path":"/a\nb\u0000\"c"})").string("path"), std::string("/a\nb\0\"c", 7));
  EXPECT_EQ(lines().size(), 1U);
}

TEST_F(Audit, NothingElseOfABodyIsWritten) {
  lineOf(R"({"dsCredentials":{"user":"u","password":"hunter2"},"adminPassword":"hunter2",)"
         R"("configuration":{"x":"hunter2"}})");
  lineOf(R"({"password":"hunter2)");
  EXPECT_EQ(tree_.read("/var/log/paddock/audit.jsonl").find("hunter2"), std::string::npos);
  EXPECT_EQ(daemon_.log().find("hunter2"), std::string::npos);
}

TEST_F(Audit, RequestsOfProgramsLeaveTheirOwnLines) {
  const std::string body = wire::writeJson(
      Dictionary{{"program", "/bin/call_daemon"},
                 {"arguments", Array{tree_.socket(), "/v1/test_sibling/change", "{}"}}});
  daemon_.post("/v1/test_good/run", body);
  const auto all = lines();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(*all[0].string("plugin"), "test_sibling");
  EXPECT_NE(all[0].integer("pid"), ::getpid());
}

TEST_F(Audit, NextStartAuditsChangeInterruptedByKill) {
  const std::string body = wire::writeJson(Dictionary{{"path", "/srv/a"},
                                                      {"password", "hunter2"},
                                                      {"begun", tree_.path("/begun")},
                                                      {"until", tree_.path("/until")}});
  std::thread request([&] { daemon_.post("/v1/test_good/blockChange", body); });
  EXPECT_TRUE(eventually([this] { return tree_.has("/begun"); }));
  daemon_.signal(SIGKILL);
  daemon_.wait();
  request.join();
  EXPECT_TRUE(lines().empty());
  const RunningDaemon next(tree_);
  const auto all = lines();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].boolean("interrupted"), true);
  EXPECT_EQ(*all[0].string("operation"), "blockChange");
  EXPECT_EQ(*all[0].string("path"), "/srv/a");
  EXPECT_EQ(all[0].integer("uid"), ::geteuid());
  EXPECT_FALSE(all[0].contains("status"));
  EXPECT_EQ(tree_.read("/var/log/paddock/audit.jsonl").find("hunter2"), std::string::npos);
}

TEST_F(Audit, UnauditableChangeIsRefusedWhereAuditingIsRequired) {
  tree_.configure("[audit]\nrequired = true\n");
  daemon_.signal(SIGHUP);
  ASSERT_TRUE(eventually([this] {
    return daemon_.log().find("changed: audit.required") != std::string::npos;
  })) << daemon_.log();
  EXPECT_EQ(daemon_.post("/v1/test_good/remember", R"({"first":1})").status, 200);
  std::filesystem::remove(tree_.auditLog());
  std::filesystem::create_directory(tree_.auditLog());
  const auto refused = daemon_.post("/v1/test_good/remember", R"({"second":1})");
  EXPECT_EQ(refused.status, 503);
  EXPECT_THAT(refused.error(), ::testing::HasSubstr("[audit] required"));
  EXPECT_THAT(refused.error(), ::testing::HasSubstr("audit.jsonl"));
  EXPECT_EQ(daemon_.post("/v1/test_good/echo", "{}").status, 200);
  std::filesystem::remove(tree_.auditLog());
  EXPECT_EQ(daemon_.post("/v1/test_good/remember", R"({"third":1})").status, 200);
  const Dictionary remembered = daemon_.post("/v1/test_good/recall", "{}").dictionary();
  EXPECT_TRUE(remembered.contains("first"));
  EXPECT_FALSE(remembered.contains("second"));
  EXPECT_TRUE(remembered.contains("third"));
  EXPECT_EQ(lines().back().integer("status"), 0);
}

TEST_F(Audit, TheNewestLinesAreToldToAdministrators) {
  for (const char* path : {"/srv/a", "/srv/b", "/srv/c"})
    lineOf(wire::writeJson(Dictionary{{"path", path}}));
  const auto all = lines();
  const auto told = [this](const std::string& query) {
    return *daemon_.get("/v1/audit" + query).dictionary().array("lines");
  };
  EXPECT_EQ(told("").size(), 3U);
  const Array newest = told("?limit=2");
  ASSERT_EQ(newest.size(), 2U);
  EXPECT_EQ(*newest[0].dictionary(), all[1]);
  EXPECT_EQ(*newest[1].dictionary(), all[2]);
  // Reading leaves no line.
  EXPECT_EQ(lines().size(), 3U);
}

TEST_F(Audit, ALimitThatIsNoneIsSaid) {
  for (const char* query : {"?limit=0", "?limit=-1", "?limit=", "?limit=x", "?limit=10001"}) {
    const auto response = daemon_.get(std::string("/v1/audit") + query);
    EXPECT_EQ(response.status, 400) << query;
    EXPECT_EQ(response.error(), "\"limit\" must be an integer from 1 to 10000");
  }
  EXPECT_EQ(daemon_.post("/v1/audit", "{}").status, 405);
}

TEST_F(Audit, ALineThatIsDamagedIsLeftOut) {
  lineOf(R"({"path":"/srv/a"})");
  tree_.write("/var/log/paddock/audit.jsonl",
              tree_.read("/var/log/paddock/audit.jsonl") + "{\"half\n[]\n");
  EXPECT_EQ(daemon_.get("/v1/audit").dictionary().array("lines")->size(), 1U);
}

}  // namespace
}  // namespace paddock::testing
