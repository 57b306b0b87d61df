// keelhouse and paddockd with its own plug-ins, installed below a tree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

#include "integration/keelhouse_fixture.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class Keelhouse : public KeelhouseFixture {};

TEST_F(Keelhouse, SharesReadsChangesAndUnsharesAFolder) {
  const std::string folder = makeFolder("my files");
  const auto added = keelhouse({"share", "add", folder, "--nfs", "10.0.0.0/8(rw,sync)"});
  EXPECT_EQ(added.status, 0) << added.error;
  EXPECT_THAT(added.output, HasSubstr("path: " + folder + "\nname: my files\n"));
  EXPECT_THAT(tree_.read("/etc/exports"), HasSubstr("my\\040files 10.0.0.0/8(rw,sync)\n"));

  EXPECT_THAT(keelhouse({"share", "list"}).output,
              HasSubstr("  my files  my files  my files  my files  10.0.0.0/8(rw,sync)\n"));

  const auto changed =
      keelhouse({"share", "set", folder, "--no-ftp", "--smb-name", "X", "--no-nfs"});
  EXPECT_EQ(changed.status, 0) << changed.error;
  EXPECT_THAT(keelhouse({"share", "list"}).output,
              HasSubstr("  my files  my files  X    -    -\n"));
  EXPECT_THAT(tree_.read("/etc/exports"), Not(HasSubstr("my\\040files")));

  const auto removed = keelhouse({"share", "remove", folder});
  EXPECT_EQ(removed.status, 0) << removed.error;
  EXPECT_EQ(keelhouse({"share", "list"}).output, "No folder is shared.\n");
  EXPECT_EQ(keelhouse({"share", "show", folder}).status, 1);
  EXPECT_TRUE(fs::is_directory(folder));
}

TEST_F(Keelhouse, SharesEquallyNamedFoldersUnderDistinctNames) {
  EXPECT_EQ(keelhouse({"share", "add", makeFolder("a/docs")}).status, 0);
  const auto second = keelhouse({"share", "add", makeFolder("b/docs")});
  EXPECT_EQ(second.status, 0) << second.error;
  EXPECT_THAT(second.output, Not(HasSubstr("name: docs\n")));
}

TEST_F(Keelhouse, ReportsANameThatAnotherShareHas) {
  const std::string first = makeFolder("a");
  const std::string second = makeFolder("b");
  ASSERT_EQ(keelhouse({"share", "add", first}).status, 0);
  ASSERT_EQ(keelhouse({"share", "add", second}).status, 0);
  const auto renamed = keelhouse({"share", "set", second, "--name", "a"});
  EXPECT_EQ(renamed.status, 1);
  EXPECT_THAT(renamed.error, HasSubstr("\"a\" is taken by the share " + first + " (name)\n"));
}

TEST_F(Keelhouse, SendsBackWhatItReads) {
  const std::string folder = makeFolder("a");
  ASSERT_EQ(keelhouse({"share", "add", folder, "--nfs", "*(ro)"}).status, 0);
  const std::string before = keelhouse({"share", "show", folder, "--json"}).output;
  const auto written = keelhouse({"request", "paddock_sharing", "writeSettings", "-"},
                                 R"({"configuration":{"sharePointRecord":)" + before +
                                     R"(},"optionalArguments":{"path":")" + folder + R"("}})");
  EXPECT_EQ(written.status, 0) << written.output;
  EXPECT_EQ(keelhouse({"share", "show", folder, "--json"}).output, before);
}

TEST_F(Keelhouse, PrintsTheLeavesOfACommand) {
  const auto state = keelhouse({"command", "sharing:command", "=", "getState"});
  EXPECT_EQ(state.status, 0);
  EXPECT_EQ(state.output, "sharing:readWriteSettingsVersion = 1\nsharing:state = \"UNKNOWN\"\n");
  EXPECT_EQ(state.error, "");

  const auto read = keelhouse({"command", "sharing:command", "=", "readSettings",
                               "sharing:optionalArguments:path", "=", makeFolder("a")});
  EXPECT_THAT(read.output, HasSubstr("sharing:configuration:sharePointRecord:isShared = false\n"));
}

TEST_F(Keelhouse, SaysThatThereIsNoSuchOperation) {
  const auto asked = keelhouse({"command", "sharing:command", "=", "frobnicate"});
  EXPECT_EQ(asked.status, 1);
  EXPECT_EQ(asked.output, "");
  EXPECT_THAT(asked.error, HasSubstr("HTTP 404"));
}

TEST_F(Keelhouse, KeepsRecords) {
  EXPECT_EQ(keelhouse({"record", "put", "users", "anna", "RealName=Anna B", "dsAttrTypeNative:x=1",
                       "dsAttrTypeNative:x=2"})
                .status,
            0);
  EXPECT_EQ(keelhouse({"record", "list", "users"}).output, "anna\n");
  const auto shown = keelhouse({"record", "show", "users", "anna"});
  EXPECT_THAT(shown.output, HasSubstr("dsAttrTypeNative:x: 1\ndsAttrTypeNative:x: 2\n"
                                      "dsAttrTypeStandard:RealName: Anna B\n"));
  EXPECT_EQ(keelhouse({"record", "delete", "users", "anna"}).status, 0);
  EXPECT_EQ(keelhouse({"record", "show", "users", "anna"}).status, 1);
}

TEST_F(Keelhouse, SetsAPasswordThatAuthenticates) {
  ASSERT_EQ(keelhouse({"record", "put", "users", "root"}).status, 0);
  EXPECT_EQ(keelhouse({"record", "password", "root"}, "s3cret\n").status, 0);
  const std::vector<std::string> list = {
      "record", "list", "users", "--admin", "root", "--admin-password-fd", "0"};
  EXPECT_EQ(keelhouse(list, "s3cret\n").output, "root\n");
  const auto refused = keelhouse(list, "wrong\n");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, HasSubstr("the administrator cannot be authenticated (EACCES, 13)"));
  EXPECT_THAT(tree_.read("/var/log/paddock/audit.jsonl"), Not(HasSubstr("s3cret")));
  EXPECT_THAT(daemon_->log(), Not(HasSubstr("s3cret")));
}

TEST_F(Keelhouse, TellsOfTheDaemon) {
  const auto status = keelhouse({"status"});
  EXPECT_EQ(status.status, 0) << status.error;
  EXPECT_THAT(status.output, HasSubstr("plug-in paddock_directory  "));
  EXPECT_THAT(status.output, HasSubstr("node /Local                writable, "));
  EXPECT_THAT(status.output, HasSubstr("node /System               readable, "));
}

TEST_F(Keelhouse, TellsWhichConfigurationIsNotInForce) {
  EXPECT_THAT(keelhouse({"status"}).output, ContainsRegex("configuration +read 20"));
  tree_.configure("[indexing]\ncommand = [\"/bin/true\"]\n");
  daemon_->signal(SIGHUP);
  ASSERT_TRUE(eventually([this] {
    return keelhouse({"status"}).output.find("is needed for indexing.command\n") !=
           std::string::npos;
  }));
  EXPECT_EQ(keelhouse({"status"}).status, 0);
  tree_.configure("bogus\n");
  daemon_->signal(SIGHUP);
  ASSERT_TRUE(eventually([this] {
    return keelhouse({"status"}).output.find("not read again, the one before stays: ") !=
           std::string::npos;
  }));
  EXPECT_EQ(keelhouse({"status"}).status, 1);
  EXPECT_THAT(keelhouse({"status"}).output, HasSubstr("paddockd.toml:1: "));
}

TEST_F(Keelhouse, PrintsDaemonsLogOfOwnFailedRequest) {
  // A record that no list of the shares has, since it is of no folder.
  ASSERT_EQ(keelhouse({"record", "put", "sharepoints", "a"}).status, 0);
  ASSERT_EQ(keelhouse({"share", "add", makeFolder("c")}).status, 0);
  const auto refused = keelhouse({"share", "set", folder_.path("c"), "--name", "a"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, ContainsRegex("^keelhouse: [^\n]*\\([A-Z_]+, [0-9]+\\)\n  error: "));
  EXPECT_THAT(refused.error, HasSubstr("path " + folder_.path("c") + " was not saved: "));
  EXPECT_THAT(refused.error, HasSubstr("\nNothing was changed.\n"));
  // Of several changes those that are made are said.
  const auto partly =
      keelhouse({"share", "set", folder_.path("c"), "--name", "a", "--nfs", "192.0.2.1(ro)"});
  EXPECT_EQ(partly.status, 1);
  EXPECT_THAT(partly.error,
              HasSubstr("nevertheless: --nfs '192.0.2.1(ro)'\nThis is not: --name a"));
  EXPECT_THAT(tree_.read("/etc/exports"), HasSubstr(folder_.path("c") + " 192.0.2.1(ro)\n"));
  // Nothing beneath what it refuses by itself.
  EXPECT_THAT(keelhouse({"share", "show", folder_.path("b")}).error, Not(HasSubstr("  error: ")));
}

TEST_F(Keelhouse, CannotReachADaemonThatHasEnded) {
  EXPECT_EQ(daemon_->stop(), 0);
  const auto listed = keelhouse({"share", "list"});
  EXPECT_EQ(listed.status, 3);
  EXPECT_THAT(listed.error, HasSubstr(tree_.socket()));
}

}  // namespace
}  // namespace paddock::testing
