#include "platform/program_runner.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "platform/testing/recording_host_services.h"

namespace paddock {
namespace {

using Texts = std::vector<std::string>;

TEST(ConfiguredTexts, AreTheTextsOfTheArray) {
  const Dictionary configuration{{"vsp", Dictionary{{"sync_command", Array{"/bin/a", "b", ""}}}}};
  EXPECT_EQ(configuredTexts(configuration, "vsp", "sync_command"), (Texts{"/bin/a", "b", ""}));
}

TEST(ConfiguredTexts, AreNoneInAnEmptyArray) {
  EXPECT_EQ(configuredTexts({{"t", Dictionary{{"k", Array{}}}}}, "t", "k"), Texts());
}

TEST(ConfiguredTexts, AreAbsentWithoutTableKeyOrArray) {
  const Dictionary configuration{{"vsp", Dictionary{{"state", "running"}}}, {"nfs", "text"}};
  EXPECT_EQ(configuredTexts(configuration, "vsp", "sync_command"), std::nullopt);
  EXPECT_EQ(configuredTexts(configuration, "vsp", "state"), std::nullopt);
  EXPECT_EQ(configuredTexts(configuration, "nfs", "update_command"), std::nullopt);
  EXPECT_EQ(configuredTexts({}, "nfs", "update_command"), std::nullopt);
}

TEST(ConfiguredTexts, LeaveOutWhatIsNoText) {
  const Dictionary configuration{{"t", Dictionary{{"k", Array{7, "a", true, Array{"b"}}}}}};
  EXPECT_EQ(configuredTexts(configuration, "t", "k"), (Texts{"a"}));
}

class ConfiguredCommands : public ::testing::Test {
 protected:
  Dictionary runWith(const ProgramOutcome& outcome) {
    runner_.setOutcome("/sbin/sync", outcome);
    return runConfiguredCommand(runner_, {"/sbin/sync", "a b", ""});
  }
  RecordingProgramRunner runner_;
};

TEST_F(ConfiguredCommands, RunsProgramWithVerbatimArguments) {
  EXPECT_EQ(runWith({}), (Dictionary{{"status", 0}}));
  ASSERT_EQ(runner_.runs().size(), 1U);
  EXPECT_EQ(runner_.runs().front(), (RecordingProgramRunner::Run{"/sbin/sync", {"a b", ""}}));
}

TEST_F(ConfiguredCommands, RunsNothingWithoutACommand) {
  EXPECT_EQ(runConfiguredCommand(runner_, {}), (Dictionary{{"status", 0}}));
  EXPECT_TRUE(runner_.runs().empty());
}

TEST_F(ConfiguredCommands, TellsTheExitStatusAndStandardError) {
  EXPECT_EQ(runWith({0, "out", "no\nway\n", 3}),
            (Dictionary{{"status", 3}, {"errorOutput", "no\nway\n"}}));
  EXPECT_EQ(runWith({0, "", "a warning\n", 0}),
            (Dictionary{{"status", 0}, {"errorOutput", "a warning\n"}}));
  EXPECT_EQ(runWith({0, "", "", 128 + 9}), (Dictionary{{"status", 137}}));
}

TEST_F(ConfiguredCommands, TellsTheBeginningOfALongStandardError) {
  constexpr std::size_t kTold = 65536;
  const Dictionary whole = runWith({0, "", std::string(kTold, 'x'), 1});
  EXPECT_EQ(*whole.string("errorOutput"), std::string(kTold, 'x'));
  const Dictionary cut = runWith({0, "", std::string(kTold, 'x') + "y", 1});
  EXPECT_EQ(*cut.string("errorOutput"), std::string(kTold, 'x'));
}

TEST_F(ConfiguredCommands, TellsWhyTheProgramDidNotRun) {
  for (const int error : {ENOENT, EACCES, ETIMEDOUT}) {
    EXPECT_EQ(runWith({error, "", "", 0}),
              (Dictionary{{"status", error},
                          {"error", std::string("/sbin/sync: ") + std::strerror(error)}}));
  }
}

TEST_F(ConfiguredCommands, ReportsOutputOfTimedOutProgram) {
  EXPECT_EQ(runWith({ETIMEDOUT, "", "waiting for a lock\n", 137}),
            (Dictionary{{"status", ETIMEDOUT},
                        {"error", std::string("/sbin/sync: ") + std::strerror(ETIMEDOUT)},
                        {"errorOutput", "waiting for a lock\n"}}));
}

}  // namespace
}  // namespace paddock
