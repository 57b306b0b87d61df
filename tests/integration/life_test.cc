// The daemon's start and end, its socket, its signals, and what outlives it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "integration/running_daemon.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;

class Life : public ::testing::Test {
 protected:
  std::string blockBody(const std::string& name) const {
    return wire::writeJson(
        Dictionary{{"begun", tree_.path("/begun-" + name)}, {"until", tree_.path("/go")}});
  }
  mode_t modeOf(const std::string& below) const {
    struct stat status {};
    EXPECT_EQ(::lstat(tree_.path(below).c_str(), &status), 0) << below;
    return status.st_mode & 07777U;
  }

  DaemonTree tree_;
};

TEST_F(Life, SigtermExitsWithStatus0AndDestroysHandlers) {
  RunningDaemon daemon(tree_);
  ASSERT_TRUE(daemon.running()) << daemon.log();
  EXPECT_FALSE(tree_.has("/destroyed"));
  EXPECT_EQ(daemon.stop(), 0);
  EXPECT_TRUE(tree_.has("/destroyed"));
  EXPECT_FALSE(tree_.has("/run/paddock/paddockd.sock"));
}

TEST_F(Life, StartCreatesFoldersAndWorldAccessibleSocket) {
  const mode_t previous = ::umask(077);
  RunningDaemon daemon(tree_);
  ::umask(previous);
  ASSERT_TRUE(daemon.running()) << daemon.log();
  EXPECT_EQ(modeOf("/run/paddock/paddockd.sock"), 0666U);
  EXPECT_EQ(modeOf("/run/paddock"), 0755U);
  EXPECT_EQ(modeOf("/var/lib/paddock"), 0700U);
  EXPECT_EQ(modeOf("/var/lib/paddock/context"), 0700U);
  EXPECT_EQ(modeOf("/var/log/paddock/audit.jsonl"), 0640U);
}

TEST_F(Life, RunningRequestsAreAnsweredBeforeItEnds) {
  RunningDaemon daemon(tree_);
  auto blocked = std::async(std::launch::async,
                            [&] { return daemon.post("/v1/test_good/block", blockBody("a")); });
  ASSERT_TRUE(eventually([this] { return tree_.has("/begun-a"); }));
  daemon.signal(SIGTERM);
  // New requests are refused from now on, with an error reply.
  ASSERT_TRUE(eventually([&] { return daemon.get("/v1/health").status == 503; }));
  // A second one changes nothing.
  daemon.signal(SIGTERM);
  EXPECT_FALSE(tree_.has("/destroyed"));
  tree_.write("/go", "");
  EXPECT_EQ(blocked.get().status, 200);
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_TRUE(tree_.has("/destroyed"));
}

TEST_F(Life, ProgramOfRunningRequestIsAnsweredDuringShutdown) {
  RunningDaemon daemon(tree_);
  // The program waits for the file, then calls back.
  const std::string script = tree_.path("/bin/late_caller");
  tree_.write("/bin/late_caller", "#!/bin/sh\necho begun > " + tree_.path("/begun-program") +
                                      "\nwhile [ ! -e " + tree_.path("/go") +
                                      " ]; do sleep 0.02; done\nexec " +
                                      tree_.path("/bin/call_daemon") + " \"$@\"\n");
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  const std::string body = wire::writeJson(
      Dictionary{{"program", "/bin/late_caller"},
                 {"arguments", Array{tree_.socket(), "/v1/test_sibling/echo", "{}"}}});
  auto running =
      std::async(std::launch::async, [&] { return daemon.post("/v1/test_good/run", body); });
  ASSERT_TRUE(eventually([this] { return tree_.has("/begun-program"); }));
  daemon.signal(SIGTERM);
  ASSERT_TRUE(eventually([&] { return daemon.get("/v1/health").status == 503; }));
  tree_.write("/go", "");
  const auto response = running.get();
  ASSERT_EQ(response.status, 200);
  EXPECT_EQ(*response.dictionary().string("output"), "200 {}\n");
  EXPECT_EQ(daemon.wait(), 0);
}

TEST_F(Life, RequestWithoutBodyDoesNotBlockShutdown) {
  RunningDaemon daemon(tree_);
  SocketClient client(tree_.socket());
  client.send(requestText("POST", "/v1/test_good/echo", "", "Content-Length: 10\r\n"));
  EXPECT_EQ(daemon.get("/v1/health").status, 200);
  EXPECT_EQ(daemon.stop(), 0);
}

// The kernel sends it for leases, which may come late.
TEST_F(Life, SigioDoesNotEndIt) {
  RunningDaemon daemon(tree_);
  daemon.signal(SIGIO);
  EXPECT_EQ(daemon.get("/v1/health").status, 200);
  EXPECT_EQ(daemon.stop(), 0);
}

TEST_F(Life, SighupOpensTheAuditLogAgain) {
  RunningDaemon daemon(tree_);
  daemon.post("/v1/test_good/change", "{}");
  std::filesystem::rename(tree_.auditLog(), tree_.auditLog() + ".1");
  daemon.post("/v1/test_good/change", "{}");
  EXPECT_EQ(linesOf(tree_.read("/var/log/paddock/audit.jsonl.1")).size(), 2U);
  daemon.signal(SIGHUP);
  ASSERT_TRUE(eventually([this] { return tree_.has("/var/log/paddock/audit.jsonl"); }));
  daemon.post("/v1/test_good/change", "{}");
  EXPECT_EQ(linesOf(tree_.read("/var/log/paddock/audit.jsonl")).size(), 1U);
  EXPECT_EQ(linesOf(tree_.read("/var/log/paddock/audit.jsonl.1")).size(), 2U);
}

TEST_F(Life, SighupTakesOverWhatCanChange) {
  tree_.configure("[limits]\nbody_bytes = 100\n");
  RunningDaemon daemon(tree_);
  const std::string body = R"({"text":")" + std::string(200, 'x') + R"("})";
  EXPECT_EQ(daemon.post("/v1/test_good/echo", body).status, 413);
  tree_.configure("[limits]\nbody_bytes = 1000\n[acl]\nprojection = false\n");
  daemon.signal(SIGHUP);
  ASSERT_TRUE(eventually([&] { return daemon.post("/v1/test_good/echo", body).status == 200; }));
  const auto told = daemon.post("/v1/test_good/surroundings", "{}").dictionary();
  EXPECT_EQ(*told.dictionary("configuration"),
            (Dictionary{{"limits", Dictionary{{"body_bytes", 1000}}}}));
  EXPECT_THAT(daemon.log(), HasSubstr("configuration read again; changed: limits.body_bytes"));
  EXPECT_THAT(daemon.log(), HasSubstr("is needed for acl.projection"));
  const auto health = daemon.get("/v1/health").dictionary();
  EXPECT_EQ(*health.dictionary("configuration")->array("awaitingRestart"), Array{"acl.projection"});
}

TEST_F(Life, RunsInRootAndRereadsRelativeConfigurationPath) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(tree_.root());
  tree_.write("/other.toml", "[limits]\nbody_bytes = 100\n");
  RunningDaemon daemon(tree_, {"--config", "other.toml"});
  std::filesystem::current_path(before);
  ASSERT_TRUE(daemon.running()) << daemon.log();
  const std::string process = "/proc/" + std::to_string(daemon.process());
  EXPECT_EQ(std::filesystem::read_symlink(process + "/cwd"), "/");
  const std::string body = R"({"text":")" + std::string(200, 'x') + R"("})";
  EXPECT_EQ(daemon.post("/v1/test_good/echo", body).status, 413);
  tree_.write("/other.toml", "[limits]\nbody_bytes = 1000\n");
  daemon.signal(SIGHUP);
  EXPECT_TRUE(eventually([&] { return daemon.post("/v1/test_good/echo", body).status == 200; }));
}

TEST_F(Life, SighupChangesLimitsOfConnections) {
  tree_.configure("[limits]\nconnections = 1\n");
  RunningDaemon daemon(tree_);
  std::optional<SocketClient> first;
  // The connection by which the start was seen may not be gone yet.
  ASSERT_TRUE(eventually([&] {
    first.emplace(tree_.socket());
    first->send(requestText("GET", "/v1/health"));
    return first->receive().status == 200;
  }));
  EXPECT_EQ(daemon.get("/v1/health").status, 503);
  tree_.configure("[limits]\nconnections = 8\nidle_seconds = 1\n");
  daemon.signal(SIGHUP);
  ASSERT_TRUE(eventually([&] { return daemon.get("/v1/health").status == 200; }));
  SocketClient silent(tree_.socket());
  EXPECT_TRUE(silent.ends(std::chrono::seconds(15)));
}

TEST_F(Life, SighupWithBrokenConfigurationKeepsCurrentOne) {
  tree_.configure("[limits]\nbody_bytes = 100\n");
  RunningDaemon daemon(tree_);
  tree_.configure("[limits]\nbody_bytes = 1000\nbogus = 1\n");
  daemon.signal(SIGHUP);
  const std::string problem =
      tree_.path("/etc/paddock/paddockd.toml") + ":3: unknown key \"limits.bogus\"";
  ASSERT_TRUE(eventually([&] {
    return daemon.log().find("the one in force stays: " + problem) != std::string::npos;
  }));
  const std::string body = R"({"text":")" + std::string(200, 'x') + R"("})";
  EXPECT_EQ(daemon.post("/v1/test_good/echo", body).status, 413);
  const auto health = daemon.get("/v1/health").dictionary();
  EXPECT_EQ(*health.dictionary("configuration")->array("problems"), Array{problem});
  // Mended, it is taken over.
  tree_.configure("[limits]\nbody_bytes = 1000\n");
  daemon.signal(SIGHUP);
  EXPECT_TRUE(eventually([&] { return daemon.post("/v1/test_good/echo", body).status == 200; }));
}

TEST_F(Life, AKilledDaemonsSocketIsReplaced) {
  RunningDaemon first(tree_);
  first.signal(SIGKILL);
  EXPECT_EQ(first.wait(), 128 + SIGKILL);
  ASSERT_TRUE(tree_.has("/run/paddock/paddockd.sock"));
  RunningDaemon second(tree_);
  ASSERT_TRUE(second.running()) << second.log();
  EXPECT_EQ(second.get("/v1/health").status, 200);
}

TEST_F(Life, ASecondDaemonSaysThatOneIsRunning) {
  RunningDaemon daemon(tree_);
  const EndedRun second = runToEnd(tree_, {"--root", tree_.root()});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.errorOutput, HasSubstr("already running"));
  EXPECT_EQ(daemon.get("/v1/health").status, 200);
}

TEST_F(Life, ForeignObjectAtSocketPathIsLeftUntouched) {
  tree_.write("/run/paddock/paddockd.sock", "precious");
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errorOutput, HasSubstr("is not a socket"));
  EXPECT_EQ(tree_.read("/run/paddock/paddockd.sock"), "precious");
}

TEST_F(Life, OverlongSocketPathFailsAtStart) {
  const std::string root = tree_.path("/" + std::string(100, 'x'));
  std::filesystem::create_directories(root);
  const EndedRun run = runToEnd(tree_, {"--root", root});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errorOutput, HasSubstr("too long"));
}

TEST_F(Life, FolderWritableByOthersIsRefused) {
  std::filesystem::create_directories(tree_.path("/var/lib/paddock"));
  std::filesystem::permissions(tree_.path("/var/lib/paddock"), std::filesystem::perms::all);
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errorOutput, HasSubstr("/var/lib/paddock"));
}

TEST_F(Life, SymlinkReplacingAuditLogIsNotFollowed) {
  std::filesystem::create_directories(tree_.path("/var/log/paddock"));
  std::filesystem::create_symlink(tree_.path("/elsewhere"), tree_.auditLog());
  const EndedRun run = runToEnd(tree_, {"--root", tree_.root()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errorOutput, HasSubstr("audit.jsonl"));
  EXPECT_FALSE(tree_.has("/elsewhere"));
}

TEST_F(Life, AContextOutlivesTheDaemon) {
  {
    RunningDaemon daemon(tree_);
    daemon.post("/v1/test_good/remember", R"({"pid":7,"file":"/tmp/\u00e4"})");
    // Saved with the request, so that even this does not lose it.
    daemon.signal(SIGKILL);
    daemon.wait();
  }
  EXPECT_EQ(modeOf("/var/lib/paddock/context/test_good.plist"), 0600U);
  RunningDaemon daemon(tree_);
  EXPECT_EQ(daemon.post("/v1/test_good/recall", "{}").dictionary(),
            (Dictionary{{"pid", 7}, {"file", "/tmp/\u00e4"}}));
  EXPECT_TRUE(daemon.post("/v1/test_sibling/recall", "{}").dictionary().empty());
}

TEST_F(Life, DamagedContextIsPutAsideAndStartsEmpty) {
  for (const char* damaged : {"<plist><dict><key>a</key>", "<plist><array/></plist>", "\xff"}) {
    tree_.write("/var/lib/paddock/context/test_good.plist", damaged);
    std::filesystem::permissions(tree_.path("/var/lib/paddock"), std::filesystem::perms::owner_all);
    RunningDaemon daemon(tree_);
    ASSERT_TRUE(daemon.running()) << daemon.log();
    EXPECT_TRUE(daemon.post("/v1/test_good/recall", "{}").dictionary().empty());
    EXPECT_THAT(daemon.log(), HasSubstr("context of plug-in test_good is damaged"));
    EXPECT_EQ(tree_.read("/var/lib/paddock/context/test_good.plist.damaged"), damaged);
    EXPECT_EQ(daemon.stop(), 0);
  }
}

TEST_F(Life, UnsavedContextStaysDirtyUntilSaveSucceeds) {
  RunningDaemon daemon(tree_);
  const std::string file = "/var/lib/paddock/context/test_good.plist";
  // A folder of that name: nothing can take its place.
  std::filesystem::create_directories(tree_.path(file + "/in/the/way"));
  EXPECT_EQ(daemon.post("/v1/test_good/remember", R"({"a":1})").status, 200);
  EXPECT_THAT(daemon.log(), HasSubstr("context of plug-in test_good not saved"));
  std::filesystem::remove_all(tree_.path(file));
  // The next idle tick saves it.
  EXPECT_TRUE(
      eventually([&] { return tree_.read(file).find("<key>a</key>") != std::string::npos; }));
}

TEST_F(Life, IdleTicksCountFromOneOnceASecond) {
  RunningDaemon daemon(tree_);
  const auto last = [&] {
    return daemon.post("/v1/test_good/ticks", "{}").dictionary().integer("last").value_or(-1);
  };
  EXPECT_LE(last(), 1);
  ASSERT_TRUE(eventually([&] { return last() == 1; }));
  const auto started = std::chrono::steady_clock::now();
  ASSERT_TRUE(eventually([&] { return last() >= 3; }));
  EXPECT_GT(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(1500));
}

TEST_F(Life, ThrowingTickIsLoggedAndOthersContinue) {
  RunningDaemon daemon(tree_);
  daemon.post("/v1/test_good/setIdle", R"({"throws":true})");
  EXPECT_TRUE(eventually([&] {
    return daemon.log().find("of plug-in test_good failed: idle failure") != std::string::npos;
  }));
  EXPECT_TRUE(eventually([&] {
    return daemon.post("/v1/test_sibling/ticks", "{}").dictionary().integer("last").value_or(0) >=
           2;
  }));
}

TEST_F(Life, SlowTickDelaysShutdownButNoRequest) {
  RunningDaemon daemon(tree_);
  daemon.post("/v1/test_good/setIdle", R"({"milliseconds":1500})");
  ASSERT_TRUE(eventually([&] {
    return daemon.post("/v1/test_good/ticks", "{}").dictionary().integer("last").value_or(0) >= 1;
  }));
  EXPECT_EQ(daemon.get("/v1/health").status, 200);
  daemon.signal(SIGTERM);
  EXPECT_TRUE(eventually([&] { return daemon.get("/v1/health").status != 200; }));
  EXPECT_EQ(daemon.wait(), 0);
  EXPECT_TRUE(tree_.has("/destroyed"));
}

TEST_F(Life, NothingOutsideItsTreeIsTouched) {
  RunningDaemon daemon(tree_);
  daemon.post("/v1/test_good/remember", "{}");
  EXPECT_EQ(daemon.stop(), 0);
  EXPECT_FALSE(std::filesystem::exists("/run/paddock/paddockd.sock"));
}

TEST_F(Life, AnInstalledDaemonFindsItsTreeByItself) {
  std::filesystem::create_directories(tree_.path("/usr/sbin"));
  std::filesystem::copy_file(
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "paddockd",
      tree_.path("/usr/sbin/paddockd"));
  const pid_t process = ::fork();
  if (process == 0) {
    const FileDescriptor log(::open(tree_.path("/stderr").c_str(), O_WRONLY | O_CREAT, 0644));
    ::dup2(log.get(), STDERR_FILENO);
    ::execl(tree_.path("/usr/sbin/paddockd").c_str(), "paddockd", nullptr);
    ::_exit(127);
  }
  EXPECT_TRUE(eventually([this] {
    return request(tree_.socket(), "GET", "/v1/health").status == 200;
  })) << tree_.read("/stderr");
  ::kill(process, SIGTERM);
  int status = 0;
  ::waitpid(process, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace paddock::testing
