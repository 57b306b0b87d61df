#include "store/service_synchronisation.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <stdexcept>

#include "support/module_fixture.h"

namespace paddock {
namespace {

using Names = std::vector<std::string>;

constexpr const char* kTool = "/usr/sbin/keelhouse";
constexpr const char* kSmb = "/usr/libexec/samba/synchronize-shares";
constexpr Status kHighest = std::numeric_limits<Status>::max();
constexpr Status kLowest = std::numeric_limits<Status>::min();

class ServiceSynchronisationTest : public ModuleFixture {
 protected:
  Status withVspOutput(const std::string& output) {
    programs.setOutcome(kTool, {0, output, ""});
    return sync_share_point_services();
  }
  Names steps() const { return trace.sequence({"run", "doCommand"}); }
  const Names allSteps_ = {"run /usr/sbin/keelhouse", "doCommand paddock_nfs",
                           "run /usr/libexec/samba/synchronize-shares"};
};

TEST_F(ServiceSynchronisationTest, TellsVspThenNfsThenSmb) {
  EXPECT_EQ(sync_share_point_services(), 0);
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisationTest, TheAdministrationToolIsRunWithFourArguments) {
  sync_share_point_services();
  ASSERT_EQ(programs.runs().size(), 2U);
  EXPECT_EQ(programs.runs()[0], (RecordingProgramRunner::Run{
                                    kTool, {"command", "vsp:command", "=", "syncSharePoints"}}));
}

TEST_F(ServiceSynchronisationTest, TheSmbSynchroniserIsRunWithoutArguments) {
  sync_share_point_services();
  ASSERT_EQ(programs.runs().size(), 2U);
  EXPECT_EQ(programs.runs()[1], (RecordingProgramRunner::Run{kSmb, {}}));
}

TEST_F(ServiceSynchronisationTest, TheNfsPluginIsSentUpdateNfsForNobody) {
  sync_share_point_services();
  ASSERT_EQ(plugins.sent().size(), 1U);
  EXPECT_EQ(
      plugins.sent().front(),
      (RecordingPluginCommands::Sent{
          "paddock_nfs", {{"command", "updateNFS"}, {"count", 0}}, "paddock_nfs", std::nullopt}));
}

TEST_F(ServiceSynchronisationTest, TheVspStatusIsTheNumberOfTheTool) {
  EXPECT_EQ(withVspOutput("vsp:status = 0\n"), 0);
  EXPECT_EQ(withVspOutput("vsp:status = 5\n"), 5);
  EXPECT_EQ(withVspOutput("vsp:status = 5"), 5);
  EXPECT_EQ(withVspOutput("vsp:status = -7\n"), -7);
  EXPECT_EQ(withVspOutput("vsp:status = +7\n"), 7);
  EXPECT_EQ(withVspOutput("vsp:status = 007\n"), 7);
}

TEST_F(ServiceSynchronisationTest, WhiteSpaceBeforeTheNumberAndWhatFollowsItDoNotCount) {
  EXPECT_EQ(withVspOutput("vsp:status =  \t\n\v\f\r12"), 12);
  EXPECT_EQ(withVspOutput("vsp:status = 12 13"), 12);
  EXPECT_EQ(withVspOutput("vsp:status = 12abc\nvsp:error = \"x\"\n"), 12);
  EXPECT_EQ(withVspOutput("vsp:status = 1.5"), 1);
  EXPECT_EQ(withVspOutput(std::string("vsp:status = 3\0"
                                      "4",
                                      15)),
            3);
}

TEST_F(ServiceSynchronisationTest, ATextThatIsNoNumberIsZero) {
  for (const char* text : {"vsp:status = ", "vsp:status = \n", "vsp:status = x5",
                           "vsp:status = - 5", "vsp:status = +-5", "vsp:status = true"}) {
    EXPECT_EQ(withVspOutput(text), 0) << text;
  }
}

TEST_F(ServiceSynchronisationTest, OutputThatDoesNotBeginWithTheStatusIsZero) {
  for (const char* text : {"", "5", "vsp:status=5", "vsp:status =5", " vsp:status = 5",
                           "VSP:status = 5", "vsp:state = 5\nvsp:status = 5"}) {
    EXPECT_EQ(withVspOutput(text), 0) << text;
  }
}

TEST_F(ServiceSynchronisationTest, ANumberBeyond32BitsIsTheNearestThatFits) {
  EXPECT_EQ(withVspOutput("vsp:status = 2147483647"), kHighest);
  EXPECT_EQ(withVspOutput("vsp:status = 2147483648"), kHighest);
  EXPECT_EQ(withVspOutput("vsp:status = -2147483648"), kLowest);
  EXPECT_EQ(withVspOutput("vsp:status = -2147483649"), kLowest);
  EXPECT_EQ(withVspOutput("vsp:status = " + std::string(100000, '9')), kHighest);
  EXPECT_EQ(withVspOutput("vsp:status = -" + std::string(100000, '9')), kLowest);
}

TEST_F(ServiceSynchronisationTest, AnythingOnTheToolsStandardErrorIsMinusOne) {
  programs.setOutcome(kTool, {0, "vsp:status = 0\n", " "});
  EXPECT_EQ(sync_share_point_services(), -1);
  programs.setOutcome(kTool, {0, "vsp:status = 5\n", "keelhouse: no daemon\n"});
  EXPECT_EQ(sync_share_point_services(), -1);
}

TEST_F(ServiceSynchronisationTest, AToolThatDidNotRunGivesItsLaunchStatus) {
  programs.setOutcome(kTool, {ENOENT, "vsp:status = 5\n", "noise"});
  EXPECT_EQ(sync_share_point_services(), ENOENT);
  programs.setOutcome(kTool, {ETIMEDOUT, "vsp:status = 0\n", ""});
  EXPECT_EQ(sync_share_point_services(), ETIMEDOUT);
}

TEST_F(ServiceSynchronisationTest,
       ASmbSynchroniserThatIsMissingGivesItsLaunchStatusAfterTheOthers) {
  programs.setOutcome(kSmb, {ENOENT, "", ""});
  EXPECT_EQ(sync_share_point_services(), ENOENT);
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisationTest, AnythingOnTheSmbSynchronisersStandardErrorIsMinusOne) {
  programs.setOutcome(kSmb, {0, "", "left out: print$\n"});
  EXPECT_EQ(sync_share_point_services(), -1);
}

TEST_F(ServiceSynchronisationTest, WhatTheSmbSynchroniserWritesOnStandardOutputDoesNotCount) {
  programs.setOutcome(kSmb, {0, "vsp:status = 5\n", ""});
  EXPECT_EQ(sync_share_point_services(), 0);
}

TEST_F(ServiceSynchronisationTest, TheResultIsTheSumOfVspAndSmb) {
  programs.setOutcome(kTool, {0, "vsp:status = 5\n", ""});
  programs.setOutcome(kSmb, {ENOENT, "", ""});
  EXPECT_EQ(sync_share_point_services(), 5 + ENOENT);
  programs.setOutcome(kTool, {0, "", "x"});
  programs.setOutcome(kSmb, {0, "", "x"});
  EXPECT_EQ(sync_share_point_services(), -2);
}

TEST_F(ServiceSynchronisationTest, ASumBeyond32BitsIsTheNearestThatFits) {
  programs.setOutcome(kSmb, {ENOENT, "", ""});
  EXPECT_EQ(withVspOutput("vsp:status = 2147483647"), kHighest);
  programs.setOutcome(kSmb, {0, "", "x"});
  EXPECT_EQ(withVspOutput("vsp:status = -2147483648"), kLowest);
}

TEST_F(ServiceSynchronisationTest, TheReplyOfTheNfsPluginIsIgnored) {
  for (const Dictionary& reply :
       {Dictionary{}, Dictionary{{"status", 1}, {"errorOutput", "exportfs: no"}},
        Dictionary{{"error", "there is no plug-in"}}}) {
    plugins.setPlugin("paddock_nfs", [reply](const Dictionary&) { return reply; });
    EXPECT_EQ(sync_share_point_services(), 0);
  }
}

TEST_F(ServiceSynchronisationTest, EveryStepRunsWhateverTheOthersGave) {
  programs.setOutcomeOfOthers({ENOENT, "", "no such program"});
  EXPECT_EQ(sync_share_point_services(), 2 * ENOENT);
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisationTest, NothingIsLogged) {
  programs.setOutcomeOfOthers({ENOENT, "", "no such program"});
  sync_share_point_services();
  EXPECT_TRUE(logger.lines().empty());
}

// The text of what the call throws; "nothing" when it does not.
std::string thrown() {
  try {
    sync_share_point_services();
    return "nothing";
  } catch (const std::exception& error) {
    return error.what();
  }
}

TEST_F(ServiceSynchronisationTest, AStepThatThrowsKeepsNoOtherFromRunning) {
  for (const std::string& step : allSteps_) {
    ServiceTrace::Match match = [step](const ServiceCall& call) {
      return call.operation + " " + call.subject == step;
    };
    trace.forgetCalls();
    trace.when(match, [step](const ServiceCall&) -> int { throw std::runtime_error(step); });
    EXPECT_EQ(thrown(), step);
    EXPECT_EQ(steps(), allSteps_);
    trace.forgetRules();
  }
}

TEST_F(ServiceSynchronisationTest, OfSeveralExceptionsTheFirstIsThrownOnceAllStepsRan) {
  const ServiceTrace::Effect raise = [](const ServiceCall& call) -> int {
    throw std::runtime_error(call.operation + " " + call.subject);
  };
  trace.when("run", raise, ServiceTrace::kEveryTime, 1);
  trace.when("doCommand", raise);
  EXPECT_EQ(thrown(), "doCommand paddock_nfs");
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisationTest, HandsOutWhoFailedAndWhyAndLogsNothing) {
  const auto failures = [] {
    Names texts;
    sync_share_point_services(&texts);
    return texts;
  };
  EXPECT_EQ(failures(), Names());
  programs.setOutcome(kTool, {.status = 0, .output = "vsp:status = 5\n", .errorOutput = ""});
  programs.setOutcome(kSmb, {.status = ETIMEDOUT, .output = "", .errorOutput = ""});
  plugins.setPlugin("paddock_nfs", [](const Dictionary&) {
    return Dictionary{{"error", "no such plug-in"}};
  });
  EXPECT_EQ(failures(),
            (Names{std::string(kTool) + ": its status is 5", "paddock_nfs: no such plug-in",
                   std::string(kSmb) + ": Connection timed out"}));
  programs.setOutcome(kTool,
                      {.status = 0, .output = "", .errorOutput = "no\nmore", .exitStatus = 1});
  programs.setOutcome(kSmb, {.status = 0, .output = "", .errorOutput = "", .exitStatus = 137});
  plugins.setPlugin("paddock_nfs", [](const Dictionary&) { return Dictionary{{"status", 2}}; });
  EXPECT_EQ(failures(), (Names{std::string(kTool) + ": no", "paddock_nfs: it exited with status 2",
                               std::string(kSmb) + ": it exited with status 137"}));
  EXPECT_TRUE(logger.lines().empty());
}

}  // namespace
}  // namespace paddock
