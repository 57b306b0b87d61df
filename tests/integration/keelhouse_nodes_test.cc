// Directory nodes through the running daemon: which there are, who may ask, who may write to one.
#include <gmock/gmock.h>
#include <grp.h>

#include <cerrno>

#include "integration/keelhouse_fixture.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr uid_t kNobody = 65534;
constexpr gid_t kNoGroup = 65534;
constexpr const char* kPassword = "open-sesame-7";

class KeelhouseNodes : public KeelhouseFixture {
 protected:
  // root of "/Local" may write there, anna may not.
  void addUsers() const {
    for (const char* user : {"root", "anna"}) {
      done({"record", "put", "users", user});
      ASSERT_EQ(keelhouse({"record", "password", user}, kPassword + std::string("\n")).status, 0);
    }
  }
  EndedProgram authenticate(const std::string& node, const std::string& user,
                            const std::string& password = kPassword) const {
    return keelhouse({"auth", node, user}, password + "\n");
  }
  // The last line of the audit log.
  Dictionary auditLine() const {
    const auto lines = linesOf(tree_.read("/var/log/paddock/audit.jsonl"));
    std::string problem;
    const auto value = wire::parseJson(lines.empty() ? "{}" : lines.back(), problem);
    EXPECT_TRUE(value) << problem;
    return value ? *value->dictionary() : Dictionary();
  }
};

TEST_F(KeelhouseNodes, AreListedWithTheirStates) {
  const std::string nodes = done({"nodes"});
  const auto lines = linesOf(nodes);
  ASSERT_EQ(lines.size(), 3U) << nodes;
  EXPECT_THAT(lines[0], HasSubstr("NODE"));
  EXPECT_THAT(lines[1], HasSubstr("/Local   writable  "));
  EXPECT_THAT(lines[2], HasSubstr("/System  readable  "));
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/getDSNodes", "{}").body,
            "{\"dsNodeArray\":[\"/Local\"]}\n");
}

TEST_F(KeelhouseNodes, DamagedDatabaseIsListedBrokenWithReason) {
  done({"record", "list", "users"});
  tree_.write("/var/lib/paddock/directory.sqlite", std::string(8192, 'x'));
  const auto listed = keelhouse({"nodes"});
  EXPECT_EQ(listed.status, 1);
  EXPECT_THAT(listed.output, HasSubstr("/Local   broken    "));
  EXPECT_THAT(listed.output, HasSubstr("directory.sqlite"));
  EXPECT_THAT(listed.output, HasSubstr("/System  readable  "));
  const auto status = keelhouse({"status"});
  EXPECT_EQ(status.status, 1);
  EXPECT_THAT(status.output, ContainsRegex("node /Local +broken, [0-9]+ ms: .*directory.sqlite"));
  // The host's users are there all the same.
  const Response found = daemon_->post("/v1/paddock_directory/listRecords",
                                       R"({"node":"/Search","type":"dsRecTypeStandard:Users"})");
  EXPECT_EQ(found.dictionary().integer("status"), 0);
  EXPECT_THAT(wire::writeJson(*found.dictionary().find("records")), HasSubstr("\"root\""));
  EXPECT_THAT(daemon_->get("/v1/requests/" + found.header("x-request-id") + "/log").body,
              HasSubstr("the directory node /Local cannot be read and is left out: "));
  EXPECT_THAT(daemon_->get("/v1/health").body, HasSubstr(R"("state":"broken")"));
  EXPECT_THAT(daemon_->log(), Not(HasSubstr("does not answer")));
}

TEST_F(KeelhouseNodes, AuthTellsWhoMayWrite) {
  addUsers();
  EXPECT_EQ(authenticate("/Local", "root").output, "root may change records on /Local.\n");
  EXPECT_EQ(authenticate("/Local", "root").status, 0);
  for (const auto& refused : {authenticate("/Local", "root", "wrong"),
                              authenticate("/Local", "anna"), authenticate("/Local", "nobody")}) {
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.output, "");
    EXPECT_THAT(refused.error,
                HasSubstr("cannot change records on /Local: Permission denied (EACCES, 13)\n"));
  }
  EXPECT_EQ(done({"record", "list", "mounts"}), "") << "a trial leaves nothing";
}

TEST_F(KeelhouseNodes, AuthOnMissingNodeReturnsHttpError) {
  const auto refused = authenticate("/LDAP/nowhere", "root");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, HasSubstr("there is no directory node \"/LDAP/nowhere\""));
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/canAuthDSNode", "{}").status, 500);
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/getDSNodes", "{}").status, 200)
      << "the lock is free";
}

TEST_F(KeelhouseNodes, EveryTrialIsAuditedWithStatusWithoutPassword) {
  addUsers();
  authenticate("/Local", "root");
  EXPECT_EQ(*auditLine().string("operation"), "canAuthDSNode");
  EXPECT_EQ(auditLine().integer("status"), 0);
  authenticate("/Local", "anna");
  EXPECT_EQ(auditLine().integer("status"), EACCES);
  authenticate("/Nowhere", "root");
  EXPECT_EQ(auditLine().integer("status"), ENOENT);
  for (const std::string& text : {tree_.read("/var/log/paddock/audit.jsonl"), daemon_->log()})
    EXPECT_THAT(text, Not(HasSubstr(kPassword)));
}

TEST_F(KeelhouseNodes, ViewerListsNodesButTriesNoPasswords) {
  const group* viewers = ::getgrgid(kNoGroup);
  if (viewers == nullptr) GTEST_SKIP() << "there is no group with the number 65534";
  ASSERT_EQ(daemon_->stop(), 0);
  tree_.configure("[access]\nview_group = \"" + std::string(viewers->gr_name) + "\"\n");
  startDaemon();
  const auto ask = [&](const std::string& target, const std::string& body) {
    return requestAs(kNobody, kNoGroup, tree_.socket(), requestText("POST", target, body)).status;
  };
  EXPECT_EQ(ask("/v1/paddock_directory/listNodes", "{}"), 200);
  EXPECT_EQ(ask("/v1/paddock_sharing/getDSNodes", "{}"), 200);
  EXPECT_EQ(ask("/v1/paddock_sharing/canAuthDSNode", R"({"dsNodeName":"/Local"})"), 403);
  EXPECT_EQ(auditLine().boolean("refused"), true);
  // A read would also disclose whether a password is root's.
  const std::string record = R"("node":"/System","type":"dsRecTypeStandard:Users","name":"root")";
  EXPECT_EQ(ask("/v1/paddock_directory/getRecord", "{" + record + "}"), 200);
  EXPECT_EQ(ask("/v1/paddock_directory/getRecord",
                "{" + record + R"(,"adminUserName":"root","adminPassword":"x"})"),
            403);
  EXPECT_EQ(*auditLine().string("operation"), "getRecord");
  EXPECT_EQ(*auditLine().string("name"), "root");
  EXPECT_EQ(auditLine().boolean("refused"), true);
}

TEST_F(KeelhouseNodes, EveryKeyMayBeMissingEmptyOrMistyped) {
  for (const char* key : {"dsNodeName", "dsAdminName", "dsAdminPW"}) {
    for (const Value& other : {Value(), Value(""), Value(7), Value(true), Value(Array{"/Local"}),
                               Value(Dictionary{{"a", 1}})}) {
      Dictionary request{
          {"dsNodeName", "/Local"}, {"dsAdminName", "root"}, {"dsAdminPW", kPassword}};
      request.erase(key);
      if (!other.isNull()) request.set(key, other);
      const bool unknownNode = key == std::string("dsNodeName");
      const Response response =
          daemon_->post("/v1/paddock_sharing/canAuthDSNode", wire::writeJson(request));
      EXPECT_EQ(response.status, unknownNode ? 500 : 200) << key << response.body;
      const auto expected = unknownNode ? std::nullopt : std::optional(false);
      EXPECT_EQ(response.dictionary().boolean("canAuth"), expected) << key;
    }
  }
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/getDSNodes", R"({"dsNodeName":[]})").status, 200);
}

}  // namespace
}  // namespace paddock::testing
