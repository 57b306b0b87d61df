#include "daemon/running_configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ConfigurationReload : public ::testing::Test {
 protected:
  void write(const std::string& text) { writeWholeFile(file_, text); }
  RunningConfiguration start(const std::string& text) {
    write(text);
    std::vector<ConfigurationProblem> problems;
    Configuration read = readConfigurationFile(file_, true, problems);
    EXPECT_THAT(problems, IsEmpty());
    return {file_, true, std::move(read)};
  }

  TestFolder folder_;
  std::string file_ = folder_.path("paddockd.toml");
};

TEST_F(ConfigurationReload, TakesOverWhatCanChange) {
  RunningConfiguration running = start("[limits]\nbody_bytes = 10\n[vsp]\nstate = \"stopped\"\n");
  const auto before = running.current();
  write("[access]\nview_group = \"those\"\n[limits]\nconnections = 7\n");
  const ConfigurationState state = running.reload();
  EXPECT_THAT(state.problems, IsEmpty());
  EXPECT_THAT(state.applied, ElementsAre("access.view_group", "limits.body_bytes",
                                         "limits.connections", "vsp.state"));
  EXPECT_THAT(state.awaitingRestart, IsEmpty());
  EXPECT_EQ(running.current()->viewGroup, "those");
  EXPECT_EQ(running.current()->connections, 7U);
  EXPECT_EQ(running.current()->bodyBytes, Configuration().bodyBytes);
  EXPECT_FALSE(running.current()->tree.contains("vsp"));
  EXPECT_EQ(before->bodyBytes, 10U);
}

TEST_F(ConfigurationReload, NamesTheKeysThatTakeARestart) {
  const std::string server = "[[ldap]]\nname = \"a\"\nuri = \"ldap://a\"\nbase = \"\"\n";
  RunningConfiguration running = start("[acl]\nprojection = false\n" + server);
  write("[acl]\nwinbind = false\n[indexing]\ncommand = [\"/bin/true\"]\n");
  EXPECT_THAT(running.reload().awaitingRestart,
              ElementsAre("acl.projection", "acl.winbind", "indexing.command", "ldap"));
  // They are as they were, and stay named until they are what they were at start.
  EXPECT_TRUE(running.current()->tree.contains("ldap"));
  EXPECT_FALSE(running.current()->tree.contains("indexing"));
  EXPECT_EQ(running.reload().awaitingRestart.size(), 4U);
  write("[acl]\nprojection = false\n" + server);
  EXPECT_THAT(running.reload().awaitingRestart, IsEmpty());
}

TEST_F(ConfigurationReload, TheAdministratorsGroupIsOnlyPartlyTakenOver) {
  RunningConfiguration running = start("");
  write("[access]\nadmin_group = \"these\"\n");
  const ConfigurationState state = running.reload();
  EXPECT_THAT(state.applied, ElementsAre("access.admin_group"));
  EXPECT_THAT(state.awaitingRestart, ElementsAre(HasSubstr("access.admin_group (for users")));
  EXPECT_EQ(running.current()->adminGroup, "these");
}

TEST_F(ConfigurationReload, InvalidFileKeepsCurrentConfiguration) {
  RunningConfiguration running = start("[limits]\nbody_bytes = 10\n");
  write("[limits]\nbody_bytes = 20\nbogus = 1\n");
  const ConfigurationState state = running.reload();
  EXPECT_THAT(state.problems, ElementsAre(file_ + ":3: unknown key \"limits.bogus\""));
  EXPECT_THAT(state.applied, IsEmpty());
  EXPECT_EQ(running.current()->bodyBytes, 10U);
  EXPECT_EQ(running.state().problems, state.problems);
  write("[limits]\nbody_bytes = 20\n");
  EXPECT_THAT(running.reload().problems, IsEmpty());
  EXPECT_EQ(running.current()->bodyBytes, 20U);
}

TEST_F(ConfigurationReload, AFileThatMustBeThereIsMissed) {
  RunningConfiguration running = start("[limits]\nbody_bytes = 10\n");
  ASSERT_EQ(std::remove(file_.c_str()), 0);
  EXPECT_THAT(running.reload().problems, ElementsAre(file_ + ": there is no such file"));
  EXPECT_EQ(running.current()->bodyBytes, 10U);
}

}  // namespace
}  // namespace paddock
