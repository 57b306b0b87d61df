// The daemon's command line and its configuration file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "integration/running_daemon.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class CommandLine : public ::testing::Test {
 protected:
  DaemonTree tree_;
};

TEST_F(CommandLine, CheckConfigIsContentWithAMissingFile) {
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root(), "--check-config"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output + run.errorOutput, "");
}

TEST_F(CommandLine, CheckConfigSaysWhatIsWrongByLine) {
  tree_.configure("[limits]\nbody_bytes = \"big\"\nconections = 3\n\n[acces]\nx = 1\n");
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root(), "--check-config"});
  EXPECT_EQ(run.status, 1);
  const std::string file = tree_.path("/etc/paddock/paddockd.toml");
  const auto lines = linesOf(run.output);
  ASSERT_EQ(lines.size(), 3U) << run.output;
  EXPECT_EQ(lines[0], file + ":2: \"limits.body_bytes\" must be an integer");
  EXPECT_EQ(lines[1], file + ":3: unknown key \"limits.conections\"");
  EXPECT_EQ(lines[2], file + ":5: unknown key \"acces\"");
}

TEST_F(CommandLine, AnotherFileCanBeNamed) {
  tree_.write("/other.toml", "[vsp]\nstate = \"sometimes\"\n");
  const EndedRun run = runToEnd(tree_, {"--check-config", "--config", tree_.path("/other.toml")});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, StartsWith(tree_.path("/other.toml") + ":2: \"vsp.state\" must be "));
}

TEST_F(CommandLine, MissingNamedFileFails) {
  const EndedRun run = runToEnd(tree_, {"--check-config", "--config", tree_.path("/none.toml")});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, StartsWith(tree_.path("/none.toml: ")));
}

TEST_F(CommandLine, ABadConfigurationKeepsItFromStarting) {
  tree_.configure("[limits\n");
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errorOutput, StartsWith(tree_.path("/etc/paddock/paddockd.toml:1: ")));
  EXPECT_FALSE(tree_.has("/run/paddock"));
}

TEST_F(CommandLine, HelpAndVersionEndWithStatus0) {
  EXPECT_EQ(runToEnd(tree_, {"--help"}).status, 0);
  const EndedRun version = runToEnd(tree_, {"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_THAT(version.output, HasSubstr("paddockd "));
}

TEST_F(CommandLine, WrongUsageEndsWithStatus2) {
  EXPECT_EQ(runToEnd(tree_, {"--what"}).status, 2);
  EXPECT_EQ(runToEnd(tree_, {"--root"}).status, 2);
  EXPECT_EQ(runToEnd(tree_, {"--root", tree_.path("/missing")}).status, 2);
}

}  // namespace
}  // namespace paddock::testing
