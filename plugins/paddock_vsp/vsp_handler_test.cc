#include "paddock_vsp/vsp_handler.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/testing/recording_program_runner.h"
#include "support/plugin_host.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;

class VspHandlerTest : public ::testing::Test {
 protected:
  VspHandlerTest() {
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

TEST_F(VspHandlerTest, AskingTheStateMayBeViewedAndSynchronisingChanges) {
  const auto operations = handler_->operations();
  ASSERT_EQ(operations.size(), 2U);
  EXPECT_EQ(operations[0].name, "getState");
  EXPECT_FALSE(operations[0].changes);
  EXPECT_EQ(operations[1].name, "syncSharePoints");
  EXPECT_TRUE(operations[1].changes);
}

TEST_F(VspHandlerTest, AnUnknownOperationIsAnInvalidArgument) {
  EXPECT_THROW(call("getstate"), std::invalid_argument);
  EXPECT_THROW(call(""), std::invalid_argument);
}

TEST_F(VspHandlerTest, TheServerRunsUnlessTheConfigurationSaysOtherwise) {
  EXPECT_EQ(call("getState"), kRunning);
  configureVsp({});
  EXPECT_EQ(call("getState"), kRunning);
  configureVsp({{"state", "running"}});
  EXPECT_EQ(call("getState"), kRunning);
  configureVsp({{"state", "stopped"}});
  EXPECT_EQ(call("getState"), kStopped);
}

TEST_F(VspHandlerTest, TheStateMayBeAUnits) {
  configureVsp({{"state", "unit:vspd.service"}});
  EXPECT_EQ(call("getState"), kRunning);
  runner_->setOutcomeOfOthers({0, "", "", 3});
  EXPECT_EQ(call("getState"), kStopped);
}

TEST_F(VspHandlerTest, TheStateMayBeThatOfAPidFileBelowTheRoot) {
  configureVsp({{"state", "pidfile:/run/vspd.pid"}});
  EXPECT_EQ(call("getState"), kStopped);
  std::filesystem::create_directories(host_.path("/run"));
  writeWholeFile(host_.path("/run/vspd.pid"), std::to_string(::getpid()));
  EXPECT_EQ(call("getState"), kRunning);
}

TEST_F(VspHandlerTest, WithoutACommandThereIsNothingToSynchronise) {
  EXPECT_EQ(call("syncSharePoints"), (Dictionary{{"status", 0}}));
  configureVsp({{"sync_command", Array{}}});
  EXPECT_EQ(call("syncSharePoints"), (Dictionary{{"status", 0}}));
  EXPECT_TRUE(runner_->runs().empty());
}

TEST_F(VspHandlerTest, SynchronisingRunsTheCommandAndTellsItsExitStatus) {
  configureVsp({{"sync_command", Array{"/usr/bin/vspd-sync", "--all", "a b"}}});
  runner_->setOutcome("/usr/bin/vspd-sync", {0, "out", "", 7});
  EXPECT_EQ(call("syncSharePoints"), (Dictionary{{"status", 7}}));
  EXPECT_THAT(runner_->runs(),
              ElementsAre(RecordingProgramRunner::Run{"/usr/bin/vspd-sync", {"--all", "a b"}}));
}

TEST_F(VspHandlerTest, ACommandThatCannotBeStartedTellsItsErrno) {
  configureVsp({{"sync_command", Array{"/usr/bin/vspd-sync"}}});
  runner_->setOutcome("/usr/bin/vspd-sync", {ENOENT, "", "", 0});
  EXPECT_EQ(call("syncSharePoints"),
            (Dictionary{{"status", ENOENT},
                        {"error", std::string("/usr/bin/vspd-sync: ") + std::strerror(ENOENT)}}));
}

TEST_F(VspHandlerTest, NoKeyOfARequestIsRead) {
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
TEST(VspProgramsTest, AreThoseBelowTheRoot) {
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
