// `keelhouse nodes`, `keelhouse auth` and `keelhouse status` against a scripted daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* kNodes =
    R"({"status":0,"nodes":[{"path":"/Local","state":"writable","milliseconds":1},)"
    R"({"path":"/System","state":"readable","milliseconds":0}]})";
constexpr const char* kAwayNode =
    R"({"status":0,"nodes":[{"path":"/Local","state":"writable","milliseconds":1},)"
    R"({"path":"/LDAP/a\u001b[31m","state":"unreachable","milliseconds":5001,)"
    R"("error":"connect: Connection\ntimed out"}]})";

class NodeCommands : public CommandFixture {
 protected:
  // Runs `auth` with a password on a descriptor.
  int authenticate(const std::string& password, const std::string& node = "/LDAP/site",
                   const std::string& user = "anna", bool json = false) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    EXPECT_EQ(::write(ends[1], password.data(), password.size()),
              static_cast<ssize_t>(password.size()));
    ::close(ends[1]);
    std::vector<std::string> words = {"auth", node, user, "--password-fd", std::to_string(ends[0])};
    if (json) words.emplace_back("--json");
    const int status = run(words);
    ::close(ends[0]);
    return status;
  }
};

TEST_F(NodeCommands, NodesPrintsEachStateAndLatency) {
  daemon_.answer(kNodes);
  EXPECT_EQ(run({"nodes"}), 0) << error_;
  EXPECT_EQ(out_,
            "NODE     STATE     MS  ERROR\n"
            "/Local   writable  1   -\n"
            "/System  readable  0   -\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_directory/listNodes");
  EXPECT_EQ(body(0), "{}");
}

TEST_F(NodeCommands, NodesFailsWithReasonWhenOneIsUnreachable) {
  daemon_.answer(kAwayNode);
  EXPECT_EQ(run({"nodes"}), 1);
  EXPECT_EQ(out_,
            "NODE             STATE        MS    ERROR\n"
            "/Local           writable     1     -\n"
            "/LDAP/a\\x1B[31m  unreachable  5001  connect: Connection\\x0Atimed out\n");
  EXPECT_EQ(error_, "");
}

TEST_F(NodeCommands, NodesAsJsonReturnsPlainList) {
  daemon_.answer(kAwayNode);
  EXPECT_EQ(run({"--json", "nodes"}), 1);
  EXPECT_THAT(out_, HasSubstr(R"("path": "/Local")"));
  EXPECT_THAT(out_, HasSubstr(R"("error": "connect: Connection\ntimed out")"));
  EXPECT_THAT(out_, HasSubstr(R"("milliseconds": 5001)"));
}

TEST_F(NodeCommands, NodesForwardsDaemonErrors) {
  daemon_.answer(R"({"status":5,"error":"Input/output error"})");
  EXPECT_EQ(run({"nodes"}), 1);
  EXPECT_THAT(error_, HasSubstr("the directory nodes cannot be listed: Input/output error"));
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"nodes"}), 1);
  EXPECT_THAT(error_, HasSubstr("no list of nodes"));
  daemon_.answer(R"({"error":"user 7 is not allowed to do this"})", 403);
  EXPECT_EQ(run({"nodes"}), 1);
  EXPECT_THAT(error_, HasSubstr("user 7 is not allowed to do this"));
}

TEST_F(NodeCommands, AuthSendsPasswordFromDescriptor) {
  daemon_.answer(R"({"canAuth":true})");
  EXPECT_EQ(authenticate("open sesame\nmore"), 0) << error_;
  EXPECT_EQ(out_, "anna may change records on /LDAP/site.\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_sharing/canAuthDSNode");
  EXPECT_EQ(body(0),
            R"({"dsAdminName":"anna","dsAdminPW":"open sesame","dsNodeName":"/LDAP/site"})");
}

TEST_F(NodeCommands, AuthExplainsRefusal) {
  daemon_.answer(R"({"canAuth":false,"error":"Permission denied"})");
  EXPECT_EQ(authenticate("secret\n"), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_,
              HasSubstr("anna cannot change records on /LDAP/site: Permission denied (EACCES, 13)\n"
                        "The name or the password is wrong, or"));
  EXPECT_THAT(error_, Not(HasSubstr("secret")));
}

TEST_F(NodeCommands, AuthExplainsRemovalOfTrialRecord) {
  daemon_.answer(R"({"canAuth":false,"error":"File exists"})");
  EXPECT_EQ(authenticate("x\n"), 1);
  EXPECT_THAT(error_,
              HasSubstr("keelhouse record delete mounts verifyAuthTempName --node /LDAP/site"));
}

TEST_F(NodeCommands, AuthExplainsOtherErrors) {
  daemon_.answer(R"({"canAuth":false,"error":"No space left on device"})");
  EXPECT_EQ(authenticate("x\n"), 1);
  EXPECT_THAT(error_, HasSubstr("No space left on device (ENOSPC, 28)\nMake room"));
  daemon_.answer("{}");
  EXPECT_EQ(authenticate("x\n"), 1);
  EXPECT_THAT(error_, HasSubstr("does not say why"));
}

TEST_F(NodeCommands, AuthOnUnknownNodePrintsDaemonText) {
  daemon_.answer(R"({"error":"there is no directory node \"/LDAP/x\""})", 500);
  EXPECT_EQ(authenticate("x\n", "/LDAP/x"), 1);
  EXPECT_THAT(error_, HasSubstr("there is no directory node \"/LDAP/x\""));
}

TEST_F(NodeCommands, AuthAsJsonPrintsReplyWithSameStatus) {
  daemon_.answer(R"({"canAuth":true})");
  EXPECT_EQ(authenticate("x\n", "/Local", "anna", true), 0) << error_;
  EXPECT_EQ(out_, "{\n  \"canAuth\": true\n}\n");
  daemon_.answer(R"({"canAuth":false,"error":"Permission denied"})");
  EXPECT_EQ(authenticate("x\n", "/Local", "anna", true), 1);
  EXPECT_THAT(out_, HasSubstr("\"canAuth\": false"));
}

TEST_F(NodeCommands, AuthEscapesNamesForTerminal) {
  daemon_.answer(R"({"canAuth":true})");
  EXPECT_EQ(authenticate("x\n", "/LDAP/\x1b[2J", "an\nna"), 0) << error_;
  EXPECT_EQ(out_, "an\\x0Ana may change records on /LDAP/\\x1B[2J.\n");
}

TEST_F(NodeCommands, AuthRejectsBadWordsAndPasswordsBeforeRequest) {
  EXPECT_EQ(authenticate("\n"), 2);
  EXPECT_EQ(authenticate("\xFF\n"), 2);
  EXPECT_EQ(authenticate(std::string(2000, 'x') + "\n"), 2);
  EXPECT_EQ(authenticate("x\n", ""), 2);
  EXPECT_EQ(authenticate("x\n", "/Local", ""), 2);
  EXPECT_EQ(authenticate("x\n", "\xFF"), 2);
  EXPECT_EQ(authenticate("x\n", "/Local", "\xFF"), 2);
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"auth"},
                                             {"auth", "/Local"},
                                             {"auth", "/Local", "anna", "secret"},
                                             {"auth", "/Local", "anna", "--password", "secret"},
                                             {"auth", "/Local", "anna", "--password-fd", "-2"},
                                             {"nodes", "/Local"}}) {
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words);
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(NodeCommands, StatusReportsDaemonPluginsAndNodes) {
  daemon_.answer(R"({"status":"ok","version":"1.2"})");
  daemon_.answer(R"({"plugins":[{"name":"paddock_directory","operations":["listNodes"]},)"
                 R"({"name":"paddock_vsp","operations":["getState","syncSharePoints"]}]})");
  daemon_.answer(R"({"state":"RUNNING"})");
  daemon_.answer(kNodes);
  EXPECT_EQ(run({"status"}), 0) << error_;
  EXPECT_EQ(out_, "daemon                     ok, version 1.2, " + daemon_.socketPath() +
                      "\nplug-in paddock_directory  1 operation\n"
                      "plug-in paddock_vsp        2 operations, state RUNNING\n"
                      "node /Local                writable, 1 ms\n"
                      "node /System               readable, 0 ms\n");
  EXPECT_EQ(target(0), "GET /v1/health");
  EXPECT_EQ(target(1), "GET /v1/plugins");
}

TEST_F(NodeCommands, StatusFailsWhenNodeIsUnreachable) {
  daemon_.answer(R"({"status":"ok"})");
  daemon_.answer(R"({"plugins":[{"name":"paddock_directory","operations":[]}]})");
  daemon_.answer(kAwayNode);
  EXPECT_EQ(run({"status"}), 1);
  EXPECT_THAT(out_, HasSubstr("node /Local                writable, 1 ms\n"));
  EXPECT_THAT(out_, HasSubstr("unreachable, 5001 ms: connect: Connection\\x0Atimed out; left out "
                              "of searches\n"));
}

TEST_F(NodeCommands, StatusReportsSinceWhenNodeIsExcluded) {
  daemon_.answer(R"({"status":"ok","nodes":[{"path":"/LDAP/site","state":"unreachable",)"
                 R"("error":"gone","since":"2026-01-31T12:00:00Z"}]})");
  daemon_.answer(R"({"plugins":[{"name":"paddock_directory","operations":[]}]})");
  daemon_.answer(R"({"status":0,"nodes":[{"path":"/LDAP/site","state":"unreachable",)"
                 R"("error":"gone","milliseconds":2}]})");
  EXPECT_EQ(run({"status"}), 1);
  EXPECT_THAT(out_, HasSubstr("node /LDAP/site            unreachable, 2 ms: gone; left out of "
                              "searches since 2026-01-31T12:00:00Z\n"));
}

TEST_F(NodeCommands, StatusFailsWhenNodesAreUnknown) {
  daemon_.answer(R"({"status":"ok"})");
  daemon_.answer(R"({"plugins":[{"name":"paddock_directory","operations":[]}]})");
  daemon_.answer(R"({"status":5})");
  EXPECT_EQ(run({"status"}), 1);
  EXPECT_THAT(out_, HasSubstr("cannot be listed: Input/output error (EIO, 5)"));
  daemon_.answer(R"({"status":"ok"})");
  daemon_.answer(R"({"plugins":[]})");
  EXPECT_EQ(run({"status", "--json"}), 1);
  EXPECT_THAT(out_, HasSubstr("paddock_directory is not loaded"));
}

TEST_F(NodeCommands, StatusAsJsonIncludesNodes) {
  daemon_.answer(R"({"status":"ok"})");
  daemon_.answer(R"({"plugins":[{"name":"paddock_directory","operations":[]}]})");
  daemon_.answer(kNodes);
  EXPECT_EQ(run({"status", "--json"}), 0);
  EXPECT_THAT(out_, HasSubstr(R"("node": "/System")"));
  EXPECT_THAT(out_, HasSubstr(R"("reachable": true)"));
  EXPECT_THAT(out_, Not(HasSubstr("nodesError")));
}

}  // namespace
}  // namespace paddock::keelhouse
