#include "store/sharing_services.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <stdexcept>
#include <string>

#include "platform/services.h"
#include "platform/testing/recording_host_services.h"
#include "support/module_fixture.h"

namespace paddock {

namespace {

using Names = std::vector<std::string>;

constexpr const char* kTool = "/usr/sbin/keelhouse";
constexpr const char* kSmb = "/usr/libexec/samba/synchronize-shares";
constexpr Status kHighest = std::numeric_limits<Status>::max();
constexpr Status kLowest = std::numeric_limits<Status>::min();

class ServiceSynchronisation : public ModuleFixture {
 protected:
  Status withVspOutput(const std::string& output) {
    programs.setOutcome(kTool, {0, output, ""});
    return sync_share_point_services();
  }
  Names steps() const { return trace.sequence({"run", "doCommand"}); }
  const Names allSteps_ = {"run /usr/sbin/keelhouse", "doCommand paddock_nfs",
                           "run /usr/libexec/samba/synchronize-shares"};
};

TEST_F(ServiceSynchronisation, TellsVspThenNfsThenSmb) {
  EXPECT_EQ(sync_share_point_services(), 0);
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisation, TheAdministrationToolIsRunWithFourArguments) {
  sync_share_point_services();
  ASSERT_EQ(programs.runs().size(), 2U);
  EXPECT_EQ(programs.runs()[0], (RecordingProgramRunner::Run{
                                    kTool, {"command", "vsp:command", "=", "syncSharePoints"}}));
}

TEST_F(ServiceSynchronisation, TheSmbSynchroniserIsRunWithoutArguments) {
  sync_share_point_services();
  ASSERT_EQ(programs.runs().size(), 2U);
  EXPECT_EQ(programs.runs()[1], (RecordingProgramRunner::Run{kSmb, {}}));
}

TEST_F(ServiceSynchronisation, NfsPluginReceivesUpdateNfsWithoutUser) {
  sync_share_point_services();
  ASSERT_EQ(plugins.sent().size(), 1U);
  EXPECT_EQ(
      plugins.sent().front(),
      (RecordingPluginCommands::Sent{
          "paddock_nfs", {{"command", "updateNFS"}, {"count", 0}}, "paddock_nfs", std::nullopt}));
}

TEST_F(ServiceSynchronisation, VspStatusIsNumberPrintedByTool) {
  EXPECT_EQ(withVspOutput("vsp:status = 0\n"), 0);
  EXPECT_EQ(withVspOutput("vsp:status = 5\n"), 5);
  EXPECT_EQ(withVspOutput("vsp:status = 5"), 5);
  EXPECT_EQ(withVspOutput("vsp:status = -7\n"), -7);
  EXPECT_EQ(withVspOutput("vsp:status = +7\n"), 7);
  EXPECT_EQ(withVspOutput("vsp:status = 007\n"), 7);
}

TEST_F(ServiceSynchronisation, LeadingWhitespaceAndTrailingTextAreIgnored) {
  EXPECT_EQ(withVspOutput("vsp:status =  \t\n\v\f\r12"), 12);
  EXPECT_EQ(withVspOutput("vsp:status = 12 13"), 12);
  EXPECT_EQ(withVspOutput("vsp:status = 12abc\nvsp:error = \"x\"\n"), 12);
  EXPECT_EQ(withVspOutput("vsp:status = 1.5"), 1);
  EXPECT_EQ(withVspOutput(std::string("vsp:status = 3\0"
                                      "4",
                                      15)),
            3);
}

TEST_F(ServiceSynchronisation, ATextThatIsNoNumberIsZero) {
  for (const char* text : {"vsp:status = ", "vsp:status = \n", "vsp:status = x5",
                           "vsp:status = - 5", "vsp:status = +-5", "vsp:status = true"}) {
    EXPECT_EQ(withVspOutput(text), 0) << text;
  }
}

TEST_F(ServiceSynchronisation, OutputWithoutLeadingStatusReturnsZero) {
  for (const char* text : {"", "5", "vsp:status=5", "vsp:status =5", " vsp:status = 5",
                           "VSP:status = 5", "vsp:state = 5\nvsp:status = 5"}) {
    EXPECT_EQ(withVspOutput(text), 0) << text;
  }
}

TEST_F(ServiceSynchronisation, NumberBeyond32BitsIsClamped) {
  EXPECT_EQ(withVspOutput("vsp:status = 2147483647"), kHighest);
  EXPECT_EQ(withVspOutput("vsp:status = 2147483648"), kHighest);
  EXPECT_EQ(withVspOutput("vsp:status = -2147483648"), kLowest);
  EXPECT_EQ(withVspOutput("vsp:status = -2147483649"), kLowest);
  EXPECT_EQ(withVspOutput("vsp:status = " + std::string(100000, '9')), kHighest);
  EXPECT_EQ(withVspOutput("vsp:status = -" + std::string(100000, '9')), kLowest);
}

TEST_F(ServiceSynchronisation, StandardErrorOfToolReturnsMinusOne) {
  programs.setOutcome(kTool, {0, "vsp:status = 0\n", " "});
  EXPECT_EQ(sync_share_point_services(), -1);
  programs.setOutcome(kTool, {0, "vsp:status = 5\n", "keelhouse: no daemon\n"});
  EXPECT_EQ(sync_share_point_services(), -1);
}

TEST_F(ServiceSynchronisation, FailedToolLaunchReturnsItsStatus) {
  programs.setOutcome(kTool, {ENOENT, "vsp:status = 5\n", "noise"});
  EXPECT_EQ(sync_share_point_services(), ENOENT);
  programs.setOutcome(kTool, {ETIMEDOUT, "vsp:status = 0\n", ""});
  EXPECT_EQ(sync_share_point_services(), ETIMEDOUT);
}

TEST_F(ServiceSynchronisation, MissingSmbSynchroniserReturnsLaunchStatusAfterOthers) {
  programs.setOutcome(kSmb, {ENOENT, "", ""});
  EXPECT_EQ(sync_share_point_services(), ENOENT);
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisation, StandardErrorOfSmbSynchroniserReturnsMinusOne) {
  programs.setOutcome(kSmb, {0, "", "left out: print$\n"});
  EXPECT_EQ(sync_share_point_services(), -1);
}

TEST_F(ServiceSynchronisation, StandardOutputOfSmbSynchroniserIsIgnored) {
  programs.setOutcome(kSmb, {0, "vsp:status = 5\n", ""});
  EXPECT_EQ(sync_share_point_services(), 0);
}

TEST_F(ServiceSynchronisation, ResultIsSumOfVspAndSmb) {
  programs.setOutcome(kTool, {0, "vsp:status = 5\n", ""});
  programs.setOutcome(kSmb, {ENOENT, "", ""});
  EXPECT_EQ(sync_share_point_services(), 5 + ENOENT);
  programs.setOutcome(kTool, {0, "", "x"});
  programs.setOutcome(kSmb, {0, "", "x"});
  EXPECT_EQ(sync_share_point_services(), -2);
}

TEST_F(ServiceSynchronisation, SumBeyond32BitsIsClamped) {
  programs.setOutcome(kSmb, {ENOENT, "", ""});
  EXPECT_EQ(withVspOutput("vsp:status = 2147483647"), kHighest);
  programs.setOutcome(kSmb, {0, "", "x"});
  EXPECT_EQ(withVspOutput("vsp:status = -2147483648"), kLowest);
}

TEST_F(ServiceSynchronisation, TheReplyOfTheNfsPluginIsIgnored) {
  for (const Dictionary& reply :
       {Dictionary{}, Dictionary{{"status", 1}, {"errorOutput", "exportfs: no"}},
        Dictionary{{"error", "there is no plug-in"}}}) {
    plugins.setPlugin("paddock_nfs", [reply](const Dictionary&) { return reply; });
    EXPECT_EQ(sync_share_point_services(), 0);
  }
}

TEST_F(ServiceSynchronisation, EveryStepRunsWhateverTheOthersGave) {
  programs.setOutcomeOfOthers({ENOENT, "", "no such program"});
  EXPECT_EQ(sync_share_point_services(), 2 * ENOENT);
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisation, NothingIsLogged) {
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

TEST_F(ServiceSynchronisation, ThrowingStepDoesNotStopOthers) {
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

TEST_F(ServiceSynchronisation, FirstOfSeveralExceptionsIsThrownAfterSteps) {
  const ServiceTrace::Effect raise = [](const ServiceCall& call) -> int {
    throw std::runtime_error(call.operation + " " + call.subject);
  };
  trace.when("run", raise, ServiceTrace::kEveryTime, 1);
  trace.when("doCommand", raise);
  EXPECT_EQ(thrown(), "doCommand paddock_nfs");
  EXPECT_EQ(steps(), allSteps_);
}

TEST_F(ServiceSynchronisation, ReturnsFailedServicesWithReasonsAndLogsNothing) {
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

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ServedReport : public ::testing::Test {
 protected:
  ServedReport() {
    services_.logger = &logger_;
    services_.pluginCommands = &commands_;
  }

  void answer(Dictionary reply) {
    commands_.setPlugin("paddock_services", [reply](const Dictionary&) { return reply; });
  }
  static Dictionary state(const char* path, bool isShared, bool isServed, const char* sentence) {
    return {{"path", path}, {"isShared", isShared}, {"isServed", isServed}, {"sentence", sentence}};
  }
  void write(std::size_t count) {
    const ServicesGuard guard(services_);
    std::vector<SharePointRecord> sharePoints;
    for (std::size_t number = 0; number < count; ++number) {
      sharePoints.push_back(SharePointRecord::record());
      sharePoints.back().setPath("/srv/" + std::to_string(number));
    }
    log_what_is_served(sharePoints);
  }
  static Dictionary served(Dictionary state) {
    state.set("protocols", Dictionary{{"smb", Dictionary{{"state", "served"}}}});
    return state;
  }
  // "PRIORITY text".
  std::vector<std::string> logged() const {
    std::vector<std::string> lines;
    for (const auto& line : logger_.lines())
      lines.push_back(std::to_string(line.priority) + " " + line.text);
    return lines;
  }

  RecordingLogger logger_;
  RecordingPluginCommands commands_;
  Services services_;
};

TEST_F(ServedReport, ServedIsInformationAndTheRestAWarning) {
  answer({{"sharePoints",
           Array{state("/srv/0", true, true, "Shared over SMB as a"),
                 state("/srv/1", true, false, "NFS: not served: it is stopped"),
                 served(state("/srv/2", false, true, "Shared over SMB as b")),
                 state("/srv/3", true, true, ""), state("/srv/4", false, true, ""), Value(7),
                 state("/srv/5", false, false, "SMB: not known: nobody answers")}}});
  write(5);
  EXPECT_THAT(logged(),
              ElementsAre("6 paddock_sharing: /srv/0: Shared over SMB as a",
                          "4 paddock_sharing: /srv/1: NFS: not served: it is stopped",
                          "4 paddock_sharing: /srv/2 is not shared, and still served: Shared over "
                          "SMB as b",
                          "4 paddock_sharing: /srv/5 is not shared; who may serve it still: SMB: "
                          "not known: nobody answers"));
}

TEST_F(ServedReport, AsksOfThePathsDuringTheChange) {
  write(2);
  ASSERT_EQ(commands_.sent().size(), 1U);
  EXPECT_EQ(commands_.sent()[0].module, "paddock_services");
  EXPECT_EQ(commands_.sent()[0].command, (Dictionary{{"command", "getServed"},
                                                     {"paths", Array{"/srv/0", "/srv/1"}},
                                                     {"duringChange", true}}));
}

TEST_F(ServedReport, AsksNobodyWithoutSharePoints) {
  write(0);
  EXPECT_THAT(commands_.sent(), IsEmpty());
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ServedReport, RecordsWithoutAbsolutePathAreNotQueried) {
  const ServicesGuard guard(services_);
  std::vector<SharePointRecord> sharePoints(3, SharePointRecord::record());
  sharePoints[1].setPath("srv/relative");
  sharePoints[2].setPath("/srv/a");
  log_what_is_served(sharePoints);
  ASSERT_EQ(commands_.sent().size(), 1U);
  EXPECT_EQ(*commands_.sent()[0].command.array("paths"), Array{"/srv/a"});
  sharePoints.pop_back();
  log_what_is_served(sharePoints);
  EXPECT_EQ(commands_.sent().size(), 1U);
}

TEST_F(ServedReport, WhatCannotBeAskedIsNotKnown) {
  write(1);
  answer({{"error", "no such plug-in"}});
  write(1);
  commands_.setPlugin("paddock_services",
                      [](const Dictionary&) -> Dictionary { throw std::runtime_error("away"); });
  write(1);
  EXPECT_THAT(logged(),
              ElementsAre("4 paddock_sharing: whether the share points are served is not known",
                          "4 paddock_sharing: whether the share points are served is not known: no "
                          "such plug-in",
                          "4 paddock_sharing: whether the share points are served is not known: "
                          "away"));
}

TEST_F(ServedReport, AsksOfTheFirstHundredAlone) {
  answer({{"sharePoints", Array{}}});
  write(103);
  EXPECT_EQ(commands_.sent()[0].command.array("paths")->size(), 100U);
  EXPECT_THAT(logged(), ElementsAre("6 paddock_sharing: whether the other 3 share points are "
                                    "served: keelhouse share list --check"));
}

}  // namespace

}  // namespace paddock
