#include "paddock_vsp/vsp_handler.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <future>
#include <thread>

#include "platform/testing/recording_host_services.h"
#include "support/plugin_host.h"
#include "support/temporary_folder.h"

namespace paddock {

namespace {

class PidFiles : public ::testing::Test {
 protected:
  bool runs(const std::string& contents) const {
    writeWholeFile(path_, contents);
    return processOfPidFileRuns(path_);
  }
  static std::string own() { return std::to_string(::getpid()); }

  TestFolder folder_;
  const std::string path_ = folder_.path("server.pid");
};

TEST_F(PidFiles, AProcessThatIsAliveRuns) {
  EXPECT_TRUE(runs(own()));
  EXPECT_TRUE(runs(own() + "\n"));
  EXPECT_TRUE(runs("  " + own() + " \t\r\n"));
  EXPECT_TRUE(runs("+" + own()));
  EXPECT_TRUE(runs("000" + own()));
}

TEST_F(PidFiles, OnlyTheFirstLineCounts) {
  EXPECT_TRUE(runs(own() + "\n/var/lib/server\n5432\n"));
  EXPECT_FALSE(runs("\n" + own()));
}

TEST_F(PidFiles, AProcessThatHasEndedDoesNotRun) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ASSERT_GT(child, 0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(runs(std::to_string(child)));
}

TEST_F(PidFiles, AZombieDoesNotRun) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ASSERT_GT(child, 0);
  siginfo_t ended{};
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
  ASSERT_EQ(::kill(child, 0), 0);
  EXPECT_FALSE(runs(std::to_string(child)));
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST_F(PidFiles, AThreadIsNoProcess) {
  std::promise<long> number;
  std::promise<void> finish;
  std::thread thread([&] {
    number.set_value(::syscall(SYS_gettid));
    finish.get_future().wait();
  });
  EXPECT_FALSE(runs(std::to_string(number.get_future().get())));
  finish.set_value();
  thread.join();
}

TEST_F(PidFiles, WhatIsNoProcessNumberNamesNone) {
  for (const std::string& contents :
       {std::string(), std::string("\n"), std::string("   "), std::string("x"), own() + "x",
        own() + " " + own(), "0x" + own(), std::string("0"), std::string("-1"), "-" + own(),
        std::string("1.5"), std::string("4194305"), std::string("99999999999999999999999"),
        std::string("4294967297"), own() + std::string(1, '\0'), std::string(100, '\xff')}) {
    EXPECT_FALSE(runs(contents)) << contents;
  }
}

TEST_F(PidFiles, AFileThatIsTooLongNamesNone) {
  EXPECT_TRUE(runs(own() + "\n" + std::string(4000, 'x')));
  EXPECT_FALSE(runs(own() + "\n" + std::string(4096, 'x')));
  ASSERT_EQ(::truncate(path_.c_str(), off_t{1} << 40), 0);
  EXPECT_FALSE(processOfPidFileRuns(path_));
}

TEST_F(PidFiles, AMissingFileNamesNone) {
  EXPECT_FALSE(processOfPidFileRuns(path_));
  EXPECT_FALSE(processOfPidFileRuns(path_ + "/below/nothing"));
  EXPECT_FALSE(processOfPidFileRuns(""));
  EXPECT_FALSE(processOfPidFileRuns("/" + std::string(5000, 'x')));
}

TEST_F(PidFiles, NonRegularFileNamesNoProcessWithoutBlocking) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_FALSE(processOfPidFileRuns(path_));
  EXPECT_FALSE(processOfPidFileRuns(folder_.path("")));
  EXPECT_FALSE(processOfPidFileRuns("/dev/zero"));
}

TEST_F(PidFiles, SymlinkIsFollowedButLoopNamesNone) {
  ASSERT_TRUE(runs(own()));
  std::filesystem::create_symlink(path_, folder_.path("link"));
  EXPECT_TRUE(processOfPidFileRuns(folder_.path("link")));
  std::filesystem::create_symlink("loop", folder_.path("loop"));
  EXPECT_FALSE(processOfPidFileRuns(folder_.path("loop")));
}

TEST_F(PidFiles, AnotherUsersProcessRuns) {
  if (::geteuid() != 0) GTEST_SKIP() << "becoming another user needs root";
  const pid_t child = ::fork();
  if (child == 0) {
    constexpr uid_t kNobody = 65534;
    // Init belongs to root: this process may not signal it, and still sees that it runs.
    writeWholeFile(path_, "1\n");
    ::chmod(path_.c_str(), 0644);
    ::chmod(folder_.path("").c_str(), 0755);
    if (::setuid(kNobody) != 0) ::_exit(2);
    ::_exit(processOfPidFileRuns(path_) ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

constexpr const char* kSystemctl = "/usr/bin/systemctl";

class ServerState : public ::testing::Test {
 protected:
  bool runs(const std::string& state) { return vspServerRuns(state, folder_.path(""), runner_); }
  TestFolder folder_;
  RecordingProgramRunner runner_;
};

TEST_F(ServerState, RunningRunsAndStoppedDoesNot) {
  EXPECT_TRUE(runs("running"));
  EXPECT_FALSE(runs("stopped"));
  EXPECT_TRUE(runner_.runs().empty());
}

TEST_F(ServerState, AnythingElseDoesNotRun) {
  for (const char* state : {"", "RUNNING", "running ", "unit", "pidfile"}) {
    EXPECT_FALSE(runs(state)) << state;
  }
}

TEST_F(ServerState, UnitRunsWhenSystemdReportsActive) {
  runner_.setOutcome(kSystemctl, {0, "", "", 0});
  EXPECT_TRUE(runs("unit:vspd.service"));
  for (const int exitStatus : {1, 3, 4, 137}) {
    runner_.setOutcome(kSystemctl, {0, "active\n", "", exitStatus});
    EXPECT_FALSE(runs("unit:vspd.service")) << exitStatus;
  }
}

TEST_F(ServerState, UnitIsStoppedWhenSystemdIsUnavailable) {
  for (const int error : {ENOENT, ETIMEDOUT}) {
    runner_.setOutcome(kSystemctl, {error, "", "", 0});
    EXPECT_FALSE(runs("unit:vspd.service")) << error;
  }
}

TEST_F(ServerState, AUnitsNameIsNeverAnOption) {
  runs("unit:--force; reboot $(x)");
  ASSERT_EQ(runner_.runs().size(), 1U);
  EXPECT_EQ(runner_.runs().front(),
            (RecordingProgramRunner::Run{kSystemctl,
                                         {"is-active", "--quiet", "--", "--force; reboot $(x)"}}));
}

TEST_F(ServerState, APidFileStandsBelowTheRoot) {
  std::filesystem::create_directories(folder_.path("run"));
  writeWholeFile(folder_.path("run/vspd.pid"), std::to_string(::getpid()) + "\n");
  EXPECT_TRUE(runs("pidfile:/run/vspd.pid"));
  EXPECT_FALSE(runs("pidfile:/run/other.pid"));
  EXPECT_FALSE(runs("pidfile:" + folder_.path("run/vspd.pid")));
}

using ::testing::ElementsAre;

class VspHandler : public ::testing::Test {
 protected:
  VspHandler() {
    auto runner = std::make_unique<RecordingProgramRunner>();
    runner_ = runner.get();
    handler_ = std::make_unique<VspRequestHandler>(std::move(runner));
  }

  void configureVsp(const Dictionary& keys) { host_.configure({{"vsp", keys}}); }
  Dictionary call(const char* operation, const Dictionary& request = {}) {
    return handler_->performOperation(operation, request);
  }

  PluginHost host_;
  RecordingProgramRunner* runner_ = nullptr;
  std::unique_ptr<VspRequestHandler> handler_;
};

const Dictionary kRunning{{"state", "RUNNING"}};
const Dictionary kStopped{{"state", "STOPPED"}};

TEST_F(VspHandler, ReadingStateIsViewableButSynchronisingChanges) {
  const auto operations = handler_->operations();
  ASSERT_EQ(operations.size(), 2U);
  EXPECT_EQ(operations[0].name, "getState");
  EXPECT_FALSE(operations[0].changes);
  EXPECT_EQ(operations[1].name, "syncSharePoints");
  EXPECT_TRUE(operations[1].changes);
}

TEST_F(VspHandler, AnUnknownOperationIsAnInvalidArgument) {
  EXPECT_THROW(call("getstate"), std::invalid_argument);
  EXPECT_THROW(call(""), std::invalid_argument);
}

TEST_F(VspHandler, TheServerRunsUnlessTheConfigurationSaysOtherwise) {
  EXPECT_EQ(call("getState"), kRunning);
  configureVsp({});
  EXPECT_EQ(call("getState"), kRunning);
  configureVsp({{"state", "running"}});
  EXPECT_EQ(call("getState"), kRunning);
  configureVsp({{"state", "stopped"}});
  EXPECT_EQ(call("getState"), kStopped);
}

TEST_F(VspHandler, TheStateMayBeAUnits) {
  configureVsp({{"state", "unit:vspd.service"}});
  EXPECT_EQ(call("getState"), kRunning);
  runner_->setOutcomeOfOthers({0, "", "", 3});
  EXPECT_EQ(call("getState"), kStopped);
}

TEST_F(VspHandler, StateFollowsPidFileBelowRoot) {
  configureVsp({{"state", "pidfile:/run/vspd.pid"}});
  EXPECT_EQ(call("getState"), kStopped);
  std::filesystem::create_directories(host_.path("/run"));
  writeWholeFile(host_.path("/run/vspd.pid"), std::to_string(::getpid()));
  EXPECT_EQ(call("getState"), kRunning);
}

TEST_F(VspHandler, WithoutACommandThereIsNothingToSynchronise) {
  EXPECT_EQ(call("syncSharePoints"), (Dictionary{{"status", 0}}));
  configureVsp({{"sync_command", Array{}}});
  EXPECT_EQ(call("syncSharePoints"), (Dictionary{{"status", 0}}));
  EXPECT_TRUE(runner_->runs().empty());
}

TEST_F(VspHandler, SynchronisingRunsCommandAndReturnsExitStatus) {
  configureVsp({{"sync_command", Array{"/usr/bin/vspd-sync", "--all", "a b"}}});
  runner_->setOutcome("/usr/bin/vspd-sync", {0, "out", "", 7});
  EXPECT_EQ(call("syncSharePoints"), (Dictionary{{"status", 7}}));
  EXPECT_THAT(runner_->runs(),
              ElementsAre(RecordingProgramRunner::Run{"/usr/bin/vspd-sync", {"--all", "a b"}}));
}

TEST_F(VspHandler, UnstartableCommandReturnsErrno) {
  configureVsp({{"sync_command", Array{"/usr/bin/vspd-sync"}}});
  runner_->setOutcome("/usr/bin/vspd-sync", {ENOENT, "", "", 0});
  EXPECT_EQ(call("syncSharePoints"),
            (Dictionary{{"status", ENOENT},
                        {"error", std::string("/usr/bin/vspd-sync: ") + std::strerror(ENOENT)}}));
}

TEST_F(VspHandler, NoKeyOfARequestIsRead) {
  configureVsp({{"state", "stopped"}, {"sync_command", Array{"/bin/sync"}}});
  for (const Value& value : {Value(""), Value("running"), Value(7), Value(Array{"/bin/sh"}),
                             Value(Dictionary{{"a", "b"}})}) {
    const Dictionary request{{"state", value}, {"sync_command", value}, {"command", value}};
    EXPECT_EQ(call("getState", request), kStopped);
    EXPECT_EQ(call("syncSharePoints", request), (Dictionary{{"status", 0}}));
  }
  for (const auto& run : runner_->runs()) {
    EXPECT_EQ(run, (RecordingProgramRunner::Run{"/bin/sync", {}}));
  }
}

// With the host's runner: below the root.
TEST(VspPrograms, AreThoseBelowTheRoot) {
  PluginHost host({{"vsp", Dictionary{{"state", "unit:vspd.service"},
                                      {"sync_command", Array{"/bin/sh", "-c", "exit 7"}}}}});
  VspRequestHandler handler;
  EXPECT_EQ(handler.performOperation("getState", {}), kStopped);
  EXPECT_EQ(handler.performOperation("syncSharePoints", {}).integer("status"), ENOENT);
  std::filesystem::create_directories(host.path("/bin"));
  writeWholeFile(host.path("/bin/sh"), "#!/bin/sh\necho said >&2\nexit 5\n");
  std::filesystem::permissions(host.path("/bin/sh"), std::filesystem::perms::owner_all);
  EXPECT_EQ(handler.performOperation("syncSharePoints", {}),
            (Dictionary{{"status", 5}, {"errorOutput", "said\n"}}));
}

}  // namespace

}  // namespace paddock
