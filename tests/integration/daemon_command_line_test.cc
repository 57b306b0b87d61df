// The daemon's command line and its configuration file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "base/trusted_path.h"
#include "integration/running_daemon.h"
#include "support/run_to_end.h"

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

class EnvironmentVariable {
 public:
  EnvironmentVariable(const char* name, const std::string& value) : name_(name) {
    ::setenv(name, value.c_str(), 1);
  }
  EnvironmentVariable(const EnvironmentVariable&) = delete;
  EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;
  ~EnvironmentVariable() { ::unsetenv(name_); }

 private:
  const char* name_;
};

// What an ordinary user could have changed decides nothing: the daemon neither starts with it, nor
// is content with it when it checks.
class Trust : public CommandLine {
 protected:
  static constexpr const char* kFile = "/etc/paddock/paddockd.toml";
  static constexpr const char* kBundles = "/usr/share/paddockd/bundles";

  void SetUp() override {
    if (const auto why = whyUntrusted(PADDOCKD_PROGRAM); !why.empty())
      GTEST_SKIP() << "others could change the program itself: " << why;
  }
  void expectRefused(const std::string& line) const {
    const std::vector<std::string> arguments{"--root", tree_.root()};
    const EndedRun run = runToEnd(tree_, arguments);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errorOutput, line + "\n");
    EXPECT_FALSE(tree_.has("/run/paddock"));
    const EndedRun check = runToEnd(tree_, {"--root", tree_.root(), "--check-config"});
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(check.output, line + "\n");
    std::filesystem::remove(tree_.path("/run.out"));
    std::filesystem::remove(tree_.path("/run.err"));
  }
  static std::string othersCan(const std::string& place) {
    return "others can change " + place + " (mode 0777): chmod go-w " + place;
  }
};

TEST_F(Trust, ConfigurationThatOthersCanWriteIsRefused) {
  tree_.configure("");
  for (const std::string place : {"/etc/paddock/paddockd.toml", "/etc/paddock", "/etc"}) {
    ASSERT_EQ(::chmod(tree_.path(place).c_str(), 0777), 0);
    expectRefused(tree_.path(kFile) + ": not read, because " + othersCan(tree_.path(place)));
    ASSERT_EQ(::chmod(tree_.path(place).c_str(), 0755), 0);
  }
}

TEST_F(Trust, ConfigurationOfSomebodyElseIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a file away needs root";
  tree_.configure("");
  const std::string file = tree_.path(kFile);
  ASSERT_EQ(::chown(file.c_str(), 65534, 65534), 0);
  expectRefused(file + ": not read, because " + file +
                " belongs to user 65534, not to root: chown root " + file);
}

TEST_F(Trust, FolderOfPluginsThatOthersCanWriteIsRefused) {
  for (const std::string place : {"/usr/share/paddockd/bundles", "/usr/share", "/usr"}) {
    ASSERT_EQ(::chmod(tree_.path(place).c_str(), 0777), 0);
    expectRefused(tree_.path(kBundles) + ": not used, because " + othersCan(tree_.path(place)));
    ASSERT_EQ(::chmod(tree_.path(place).c_str(), 0755), 0);
  }
}

TEST_F(Trust, HostLibraryThatOthersCanWriteIsRefused) {
  const std::string library = tree_.path("/lib/libpaddockhost.so");
  std::filesystem::create_directory(tree_.path("/lib"));
  std::filesystem::copy_file(HOST_LIBRARY, library);
  const EnvironmentVariable place("LD_LIBRARY_PATH", tree_.path("/lib"));
  EXPECT_EQ(runToEnd(tree_, {"--root", tree_.root(), "--check-config"}).status, 0);
  for (const std::string& changeable : {library, tree_.path("/lib")}) {
    ASSERT_EQ(::chmod(changeable.c_str(), 0777), 0);
    expectRefused(library + ": not used, because " + othersCan(changeable));
    ASSERT_EQ(::chmod(changeable.c_str(), 0755), 0);
  }
}

// Nothing is gained by refusing what lies beside a program that others could have changed.
TEST_F(Trust, TreeThatOthersCanChangeRunsWhereItStands) {
  const std::string folder = tree_.path("/open");
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(PADDOCKD_PROGRAM, folder + "/paddockd");
  const EnvironmentVariable place("LD_LIBRARY_PATH",
                                  std::filesystem::path(HOST_LIBRARY).parent_path().string());
  tree_.configure("");
  ASSERT_EQ(::chmod(tree_.path("/etc").c_str(), 0777), 0);
  const std::vector<std::string> words{folder + "/paddockd", "--root", tree_.root(),
                                       "--check-config"};
  EXPECT_EQ(runProgram(words).status, 1);
  ASSERT_EQ(::chmod(folder.c_str(), 0777), 0);
  const EndedProgram ended = runProgram(words);
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.output + ended.error, "");
}

TEST_F(Trust, ConfigurationThatBecomesWritableIsNotReadAgain) {
  tree_.configure("[limits]\nidle_seconds = 20\n");
  RunningDaemon daemon(tree_);
  ASSERT_TRUE(daemon.running()) << daemon.log();
  ASSERT_EQ(::chmod(tree_.path("/etc/paddock").c_str(), 0777), 0);
  tree_.configure("[access]\nadmin_group = \"nogroup\"\n");
  daemon.signal(SIGHUP);
  EXPECT_TRUE(eventually([&] {
    return daemon.log().find(
               "configuration not read again, the one in force stays: " + tree_.path(kFile) +
               ": not read, because " + othersCan(tree_.path("/etc/paddock"))) != std::string::npos;
  })) << daemon.log();
  EXPECT_EQ(daemon.stop(), 0);
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
