#include "paddock_nfs/nfs_handler.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/testing/recording_host_services.h"
#include "support/plugin_host.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ProgramRun = RecordingProgramRunner::Run;

class NfsHandler : public ::testing::Test {
 protected:
  NfsHandler() {
    auto runner = std::make_unique<RecordingProgramRunner>();
    runner_ = runner.get();
    handler_ = std::make_unique<NfsRequestHandler>(std::move(runner));
  }

  Dictionary call(const char* operation, const Dictionary& request = {}) {
    return handler_->performOperation(operation, request);
  }
  // The state when the server's file of its threads holds this.
  std::string stateWith(const std::string& threads) {
    std::filesystem::create_directories(host_.path("/proc/fs/nfsd"));
    writeWholeFile(threadsFile(), threads);
    return state();
  }
  std::string state() {
    const Dictionary reply = call("getState");
    EXPECT_EQ(reply.size(), 1U);
    return *reply.string("state");
  }
  std::string threadsFile() const { return host_.path("/proc/fs/nfsd/threads"); }

  PluginHost host_;
  RecordingProgramRunner* runner_ = nullptr;
  std::unique_ptr<NfsRequestHandler> handler_;
};

TEST_F(NfsHandler, ReadingStateIsViewableButUpdatingChanges) {
  const auto operations = handler_->operations();
  ASSERT_EQ(operations.size(), 2U);
  EXPECT_EQ(operations[0].name, "getState");
  EXPECT_FALSE(operations[0].changes);
  EXPECT_EQ(operations[1].name, "updateNFS");
  EXPECT_TRUE(operations[1].changes);
}

TEST_F(NfsHandler, AnUnknownOperationIsAnInvalidArgument) {
  EXPECT_THROW(call("updateNfs"), std::invalid_argument);
}

TEST_F(NfsHandler, UpdatingRunsExportfs) {
  EXPECT_EQ(call("updateNFS", {{"count", 0}}), (Dictionary{{"status", 0}}));
  EXPECT_THAT(runner_->runs(), ElementsAre(ProgramRun{"/usr/sbin/exportfs", {"-ra"}}));
}

TEST_F(NfsHandler, UpdatingTellsTheExitStatusAndStandardError) {
  runner_->setOutcome("/usr/sbin/exportfs",
                      {0, "", "exportfs: /srv/a does not support NFS export\n", 1});
  EXPECT_EQ(call("updateNFS"),
            (Dictionary{{"status", 1},
                        {"errorOutput", "exportfs: /srv/a does not support NFS export\n"}}));
}

TEST_F(NfsHandler, ExportfsThatIsMissingTellsItsErrno) {
  runner_->setOutcome("/usr/sbin/exportfs", {ENOENT, "", "", 0});
  EXPECT_EQ(call("updateNFS"),
            (Dictionary{{"status", ENOENT},
                        {"error", std::string("/usr/sbin/exportfs: ") + std::strerror(ENOENT)}}));
}

TEST_F(NfsHandler, TheConfigurationMayNameAnotherCommand) {
  host_.configure({{"nfs", Dictionary{{"update_command", Array{"/bin/reload", "nfs"}}}}});
  runner_->setOutcome("/bin/reload", {0, "", "", 2});
  EXPECT_EQ(call("updateNFS"), (Dictionary{{"status", 2}}));
  EXPECT_THAT(runner_->runs(), ElementsAre(ProgramRun{"/bin/reload", {"nfs"}}));
}

TEST_F(NfsHandler, AnEmptyCommandTellsNobody) {
  host_.configure({{"nfs", Dictionary{{"update_command", Array{}}}}});
  EXPECT_EQ(call("updateNFS"), (Dictionary{{"status", 0}}));
  EXPECT_TRUE(runner_->runs().empty());
}

TEST_F(NfsHandler, NoKeyOfARequestIsRead) {
  for (const Value& value :
       {Value(""), Value(7), Value(-1), Value("x"), Value(Array{"/bin/sh"}), Value(Dictionary{})}) {
    const Dictionary request{{"count", value}, {"update_command", value}};
    EXPECT_EQ(call("updateNFS", request), (Dictionary{{"status", 0}}));
    EXPECT_EQ(call("getState", request), (Dictionary{{"state", "STOPPED"}}));
  }
  for (const auto& run : runner_->runs())
    EXPECT_EQ(run, (ProgramRun{"/usr/sbin/exportfs", {"-ra"}}));
}

TEST_F(NfsHandler, TheServerRunsWhenItHasThreads) {
  EXPECT_EQ(stateWith("8\n"), "RUNNING");
  EXPECT_EQ(stateWith("1"), "RUNNING");
  EXPECT_EQ(stateWith("0\n"), "STOPPED");
}

TEST_F(NfsHandler, MissingOrInvalidThreadCountMeansStopped) {
  EXPECT_EQ(state(), "STOPPED");
  for (const char* contents : {"", "\n", "eight", "-8", "8x"}) {
    EXPECT_EQ(stateWith(contents), "STOPPED") << contents;
  }
  EXPECT_EQ(stateWith("8\n" + std::string(100, ' ')), "STOPPED");
  std::filesystem::remove(threadsFile());
  ASSERT_EQ(::mkfifo(threadsFile().c_str(), 0600), 0);
  EXPECT_EQ(state(), "STOPPED");
}

// With the host's runner: below the root.
TEST(NfsPrograms, AreThoseBelowTheRoot) {
  PluginHost host;
  NfsRequestHandler handler;
  EXPECT_EQ(handler.performOperation("updateNFS", {}).integer("status"), ENOENT);
  std::filesystem::create_directories(host.path("/usr/sbin"));
  writeWholeFile(host.path("/usr/sbin/exportfs"), "#!/bin/sh\necho \"$@\" >&2\nexit 1\n");
  std::filesystem::permissions(host.path("/usr/sbin/exportfs"), std::filesystem::perms::owner_all);
  EXPECT_EQ(handler.performOperation("updateNFS", {}),
            (Dictionary{{"status", 1}, {"errorOutput", "-ra\n"}}));
}

}  // namespace
}  // namespace paddock
