// `paddockd --check-config --try-ldap`: the configured directory servers are asked.
#include <gmock/gmock.h>

#include "integration/keelhouse_fixture.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

// No server listens there; a system without certificates is no other answer.
constexpr const char* kServers =
    "[[ldap]]\nname = \"one\"\nuri = \"ldap://127.0.0.1:1\"\ntls = \"none\"\nbase = \"dc=one\"\n"
    "timeout = 1\n"
    "[[ldap]]\nname = \"two\"\nuri = \"ldap://127.0.0.1:1\"\ntls = \"none\"\nbase = \"dc=two\"\n"
    "timeout = 1\n";

class LdapTrial : public KeelhouseTree {
 protected:
  EndedRun check(const std::vector<std::string>& more = {"--try-ldap"}) const {
    std::vector<std::string> arguments{"--root", tree_.root(), "--check-config"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runToEnd(tree_, arguments);
  }
};

TEST_F(LdapTrial, WithoutServersThereIsNothingToTry) {
  const EndedRun run = check();
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output + run.errorOutput, "");
}

TEST_F(LdapTrial, EveryUnresponsiveServerPrintsLineWithStatus1) {
  tree_.configure(kServers);
  const EndedRun run = check();
  EXPECT_EQ(run.status, 1);
  const auto lines = linesOf(run.output);
  ASSERT_EQ(lines.size(), 2U) << run.output << run.errorOutput;
  EXPECT_THAT(lines[0], StartsWith("/LDAP/one: unreachable, "));
  EXPECT_THAT(lines[0], HasSubstr(" ms: "));
  EXPECT_THAT(lines[1], StartsWith("/LDAP/two: unreachable, "));
}

TEST_F(LdapTrial, ServersAreNotAskedUnlessThatIsWanted) {
  tree_.configure(kServers);
  const EndedRun run = check({});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output + run.errorOutput, "");
}

TEST_F(LdapTrial, AWrongConfigurationIsSaidAndNothingTried) {
  tree_.configure(std::string(kServers) + "[limits]\nx = 1\n");
  const EndedRun run = check();
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, HasSubstr("unknown key \"limits.x\""));
  EXPECT_EQ(linesOf(run.output).size(), 1U) << run.output;
}

TEST_F(LdapTrial, UnloadablePluginIsNamedInError) {
  tree_.configure(kServers);
  std::filesystem::remove_all(tree_.path("/usr/share/paddockd/bundles/paddock_directory.bundle"));
  const EndedRun run = check();
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "");
  EXPECT_THAT(run.errorOutput, StartsWith("paddockd: plug-in paddock_directory refused: "));
}

TEST_F(LdapTrial, NothingIsMade) {
  tree_.configure(kServers);
  check();
  for (const char* path : {"/var/lib/paddock", "/run/paddock", "/var/log/paddock"})
    EXPECT_FALSE(tree_.has(path)) << path;
}

TEST_F(LdapTrial, WithoutTheCheckItIsAUsageError) {
  EXPECT_EQ(runToEnd(tree_, {"--root", tree_.root(), "--try-ldap"}).status, 2);
}

}  // namespace
}  // namespace paddock::testing
