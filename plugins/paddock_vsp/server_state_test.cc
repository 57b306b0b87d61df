#include "paddock_vsp/server_state.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/testing/recording_program_runner.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

constexpr const char* kSystemctl = "/usr/bin/systemctl";

class ServerStateTest : public ::testing::Test {
 protected:
  bool runs(const std::string& state) { return vspServerRuns(state, folder_.path(""), runner_); }
  TestFolder folder_;
  RecordingProgramRunner runner_;
};

TEST_F(ServerStateTest, RunningRunsAndStoppedDoesNot) {
  EXPECT_TRUE(runs("running"));
  EXPECT_FALSE(runs("stopped"));
  EXPECT_TRUE(runner_.runs().empty());
}

TEST_F(ServerStateTest, AnythingElseDoesNotRun) {
  for (const char* state : {"", "RUNNING", "running ", "unit", "pidfile"}) {
    EXPECT_FALSE(runs(state)) << state;
  }
}

TEST_F(ServerStateTest, AUnitRunsWhenSystemdSaysThatItIsActive) {
  runner_.setOutcome(kSystemctl, {0, "", "", 0});
  EXPECT_TRUE(runs("unit:vspd.service"));
  for (const int exitStatus : {1, 3, 4, 137}) {
    runner_.setOutcome(kSystemctl, {0, "active\n", "", exitStatus});
    EXPECT_FALSE(runs("unit:vspd.service")) << exitStatus;
  }
}

TEST_F(ServerStateTest, AUnitDoesNotRunWhereSystemdCannotBeAsked) {
  for (const int error : {ENOENT, ETIMEDOUT}) {
    runner_.setOutcome(kSystemctl, {error, "", "", 0});
    EXPECT_FALSE(runs("unit:vspd.service")) << error;
  }
}

TEST_F(ServerStateTest, AUnitsNameIsNeverAnOption) {
  runs("unit:--force; reboot $(x)");
  ASSERT_EQ(runner_.runs().size(), 1U);
  EXPECT_EQ(runner_.runs().front(),
            (RecordingProgramRunner::Run{kSystemctl,
                                         {"is-active", "--quiet", "--", "--force; reboot $(x)"}}));
}

TEST_F(ServerStateTest, APidFileStandsBelowTheRoot) {
  std::filesystem::create_directories(folder_.path("run"));
  writeWholeFile(folder_.path("run/vspd.pid"), std::to_string(::getpid()) + "\n");
  EXPECT_TRUE(runs("pidfile:/run/vspd.pid"));
  EXPECT_FALSE(runs("pidfile:/run/other.pid"));
  EXPECT_FALSE(runs("pidfile:" + folder_.path("run/vspd.pid")));
}

}  // namespace
}  // namespace paddock
