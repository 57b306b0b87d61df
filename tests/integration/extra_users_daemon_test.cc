// Users and groups of "/Local" in the files of libnss-extrausers, through the running daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <thread>

#include "integration/sharing_daemon.h"
#include "platform/directory.h"
#include "platform/linux/directory/linux_directory.h"
#include "platform/linux/files/managed_block.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

const std::vector<std::string> kPlugins = {"paddock_directory", "paddock_sharing"};
constexpr const char* kOn = "[accounts]\nextrausers = true\n";
constexpr const char* kFolder = "/var/lib/extrausers";

// The daemon checks for changes once a second.
bool comesTrue(const std::function<bool()>& condition) {
  constexpr int kTries = 200;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

class PublishedAccounts : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may administer the daemon without a group";
  }

  void start(const std::string& configuration) { daemon_.emplace(configuration, kPlugins); }
  Status ask(const std::string& operation, Dictionary request) {
    const Dictionary reply = daemon_->askPlugin("paddock_directory", operation, request);
    return static_cast<Status>(reply.integer("status").value_or(-1));
  }
  Status putUser(const std::string& name, const std::string& id) {
    return ask(
        "putRecord",
        {{"type", schema::kUsers},
         {"name", name},
         {"attributes", Dictionary{{schema::kUniqueID, id}, {schema::kUserShell, "/bin/sh"}}}});
  }
  std::string passwd(const std::string& folder = kFolder) {
    return daemon_->tree().read(folder + "/passwd");
  }
  // Without the daemon's knowledge.
  void putUserByOtherMeans(const std::string& name, const std::string& id) {
    LinuxDirectoryOptions options;
    options.databasePath = daemon_->tree().path("/var/lib/paddock/directory.sqlite");
    LinuxDirectoryService service(options);
    service.openLocalNode()->newRecord(name, schema::kUsers)->setAttribute(schema::kUniqueID, id);
  }

  std::optional<SharingDaemon> daemon_;
};

std::string lineOf(const std::string& name, const std::string& id) {
  return name + ":x:" + id + ":65534::/nonexistent:/bin/sh\n";
}

TEST_F(PublishedAccounts, AreWrittenBeforeRequestIsAnswered) {
  start(kOn);
  for (int number = 5001; number < 5006; ++number) {
    const std::string id = std::to_string(number);
    ASSERT_EQ(putUser("user" + id, id), 0);
    ASSERT_THAT(passwd(), HasSubstr(lineOf("user" + id, id)));
  }
  ASSERT_EQ(ask("putRecord", {{"type", schema::kGroups},
                              {"name", "crew"},
                              {"attributes",
                               Dictionary{{schema::kPrimaryGroupID, "5100"},
                                          {schema::kGroupMembership, Array{"user5001", "root"}}}}}),
            0);
  EXPECT_THAT(daemon_->tree().read(std::string(kFolder) + "/group"),
              HasSubstr("crew:x:5100:user5001,root\n"));
  ASSERT_EQ(ask("setPassword", {{"name", "user5001"}, {"password", "opensesame"}}), 0);
  EXPECT_THAT(daemon_->tree().read(std::string(kFolder) + "/shadow"), HasSubstr("user5001:$"));
  ASSERT_EQ(ask("deleteRecord", {{"type", schema::kUsers}, {"name", "user5001"}}), 0);
  EXPECT_THAT(passwd(), Not(HasSubstr("user5001")));
  EXPECT_THAT(daemon_->tree().read(std::string(kFolder) + "/shadow"), Not(HasSubstr("user5001")));
  EXPECT_THAT(daemon_->log(), Not(HasSubstr("opensesame")));
}

// Trying passwords, which readings with credentials are for as well.
class PasswordTrials : public PublishedAccounts {
 protected:
  void SetUp() override {
    PublishedAccounts::SetUp();
    if (IsSkipped()) return;
    start("");
    ASSERT_EQ(putUser("anna", "5001"), 0);
    ASSERT_EQ(ask("setPassword", {{"name", "anna"}, {"password", "opensesame"}}), 0);
  }
  Status trial(const std::string& password) {
    return ask("getRecord", {{"type", schema::kUsers},
                             {"name", "anna"},
                             {"adminUserName", "anna"},
                             {"adminPassword", password}});
  }
};

TEST_F(PasswordTrials, EachIsAuditedAndLoggedWithoutThePassword) {
  EXPECT_EQ(trial("opensesame"), 0);
  EXPECT_EQ(trial("hunter2"), EACCES);
  const auto lines = linesOf(daemon_->tree().read("/var/log/paddock/audit.jsonl"));
  ASSERT_EQ(lines.size(), 4U);
  for (const auto& [line, status] : {std::pair{lines[2], "0"}, std::pair{lines[3], "13"}}) {
    EXPECT_THAT(line, HasSubstr(R"("name":"anna","node":"/Local","operation":"getRecord")"));
    EXPECT_THAT(line, HasSubstr(std::string("\"status\":") + status + ","));
    EXPECT_THAT(line, Not(HasSubstr("\"type\"")));
  }
  EXPECT_THAT(daemon_->log(),
              HasSubstr("the password of \"anna\" did not match on the directory node /Local"));
  for (const char* secret : {"opensesame", "hunter2"}) {
    EXPECT_THAT(daemon_->log(), Not(HasSubstr(secret)));
    for (const std::string& line : lines) EXPECT_THAT(line, Not(HasSubstr(secret)));
  }
}

TEST_F(PasswordTrials, ManyTrialsAreDelayedAndThenAnsweredCorrectly) {
  const auto begun = std::chrono::steady_clock::now();
  for (int count = 0; count < 6; ++count) EXPECT_EQ(trial("hunter2"), EACCES);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(1750));
  const auto then = std::chrono::steady_clock::now();
  EXPECT_EQ(trial("opensesame"), 0);
  EXPECT_GE(std::chrono::steady_clock::now() - then, std::chrono::milliseconds(1900));
}

TEST_F(PasswordTrials, AuthenticationTestsAndRecordWritesCountToo) {
  const Dictionary test{
      {"dsNodeName", "/Local"}, {"dsAdminName", "anna"}, {"dsAdminPW", "hunter2"}};
  for (int count = 0; count < 2; ++count)
    EXPECT_EQ(daemon_->ask("canAuthDSNode", test).boolean("canAuth"), false);
  const Dictionary put{{"type", "dsRecTypeStandard:Mounts"},
                       {"name", "a:/b"},
                       {"adminUserName", "anna"},
                       {"adminPassword", "hunter2"}};
  for (int count = 0; count < 2; ++count) EXPECT_EQ(ask("putRecord", put), EACCES);
  const auto then = std::chrono::steady_clock::now();
  EXPECT_EQ(trial("hunter2"), EACCES);
  EXPECT_GE(std::chrono::steady_clock::now() - then, std::chrono::milliseconds(450));
}

TEST_F(PublishedAccounts, AreInTheFolderThatIsConfigured) {
  start("[accounts]\nextrausers = \"/srv/accounts of mine\"\n");
  ASSERT_EQ(putUser("anna", "5001"), 0);
  EXPECT_THAT(passwd("/srv/accounts of mine"), HasSubstr(lineOf("anna", "5001")));
  EXPECT_FALSE(daemon_->tree().has(kFolder));
}

TEST_F(PublishedAccounts, AreWrittenInPrivateTreeOnlyIfConfigured) {
  for (const char* configuration : {"", "[accounts]\n", "[accounts]\nextrausers = false\n"}) {
    start(configuration);
    ASSERT_EQ(putUser("anna", "5001"), 0);
    EXPECT_FALSE(daemon_->tree().has(kFolder)) << configuration;
    daemon_.reset();
  }
}

TEST_F(PublishedAccounts, OfHostAreSkippedAndLogged) {
  start(kOn);
  ASSERT_EQ(putUser("root", "5001"), 0);
  ASSERT_EQ(putUser("toor", "0"), 0);
  EXPECT_EQ(passwd(), "");
  daemon_->stop();
  EXPECT_THAT(daemon_->log(),
              HasSubstr("accounts: user \"root\" is left out: the host has a user of this name"));
  EXPECT_THAT(daemon_->log(), HasSubstr("accounts: user \"toor\" is left out: its id is 0"));
}

TEST_F(PublishedAccounts, ChangedDuringDowntimeAreUpdatedAtStart) {
  start(kOn);
  ASSERT_EQ(putUser("anna", "5001"), 0);
  daemon_->stop();
  putUserByOtherMeans("bert", "5002");
  EXPECT_THAT(passwd(), Not(HasSubstr("bert")));
  daemon_->restart();
  EXPECT_THAT(passwd(), HasSubstr("bert:x:5002:"));
}

TEST_F(PublishedAccounts, ThatAnotherProgramChangesAreNoticed) {
  start(kOn);
  ASSERT_EQ(putUser("anna", "5001"), 0);
  putUserByOtherMeans("bert", "5002");
  EXPECT_TRUE(comesTrue([&] { return passwd().find("bert:x:5002:") != std::string::npos; }));
}

TEST_F(PublishedAccounts, WriteFailureIsLoggedWithoutFailingRequest) {
  start(kOn);
  daemon_->tree().write(kFolder, "not a folder");
  EXPECT_EQ(putUser("anna", "5001"), 0);
  EXPECT_EQ(ask("setPassword", {{"name", "anna"}, {"password", "opensesame"}}), 0);
  daemon_->stop();
  EXPECT_THAT(daemon_->log(), HasSubstr("accounts: open folder "));
  EXPECT_EQ(daemon_->tree().read(kFolder), "not a folder");
}

}  // namespace
}  // namespace paddock::testing
