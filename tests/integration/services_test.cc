// How a write notifies the services that publish share points: with the running daemon, its
// plug-ins and real programs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "integration/services_fixture.h"
#include "support/own_mounts.h"

namespace paddock::testing {
namespace {

using std::chrono::steady_clock;
using ::testing::AllOf;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::StartsWith;

class Services : public ServicesFixture {};

TEST_F(Services, AreNotifiedInOrderAfterWrite) {
  startDaemon();
  writtenList({share("/srv/a")});
  EXPECT_THAT(calls(), ElementsAre("vsp", "nfs -ra", "smb"));
  writtenList({});
  EXPECT_EQ(calls().size(), 6U);
}

TEST_F(Services, AreNotToldByReading) {
  startDaemon();
  daemon_->post("/v1/paddock_sharing/getSharePointList", "{}");
  daemon_->post("/v1/paddock_sharing/readSettings", "{}");
  EXPECT_THAT(calls(), IsEmpty());
}

// What each program sees when it runs: the paths of the exports file and the records.
TEST_F(Services, SeeDeletionsAtOnceAndRestAtEnd) {
  const std::string exports = "$(sed -n 's/^\\(\\/srv[^ ]*\\) .*/\\1/p' '" +
                              tree_.path("/etc/exports") + "' | tr '\\n' ' ')";
  const std::string records = "$('" + tree_.path("/usr/sbin/keelhouse") +
                              "' --json record list dsRecTypeStandard:SharePoints | "
                              "grep -o '/srv/[a-z]*' | sort | tr '\\n' ' ')";
  addScript(kVspSync, note("vsp records " + records + "exports " + exports));
  addScript(kExportfs, note("nfs exports " + exports));
  addScript(kSmbSync, note("smb records " + records));
  startDaemon();
  const auto exported = [](const std::string& path) {
    Dictionary settings = share(path);
    const Dictionary everybody{{"host", "*"}, {"options", Array{"ro"}}};
    settings.set("nfsExportRecord", Dictionary{{"clients", Array{everybody}}});
    return settings;
  };
  writtenList({exported("/srv/a"), exported("/srv/b"), share("/srv/c")});
  forgetCalls();
  writtenList({exported("/srv/d"), deletion("/srv/b"), deletion("/srv/a")});
  EXPECT_THAT(calls(),
              ElementsAre("vsp records /srv/a /srv/c exports /srv/b /srv/a ",
                          "nfs exports /srv/b /srv/a ", "smb records /srv/a /srv/c ",
                          "vsp records /srv/c exports /srv/b /srv/a ", "nfs exports /srv/b /srv/a ",
                          "smb records /srv/c ", "vsp records /srv/c /srv/d exports /srv/d ",
                          "nfs exports /srv/d ", "smb records /srv/c /srv/d "));
}

TEST_F(Services, AreCalledThroughDaemonWhileModuleHoldsLock) {
  startDaemon();
  writtenList({share("/srv/a")});
  EXPECT_EQ(audited("syncSharePoints"), 1U);
  EXPECT_EQ(audited("writeSettings"), 1U);
  EXPECT_THAT(daemon_->log(), Not(HasSubstr("keelhouse")));
}

TEST_F(Services, MissingServicesAreReportedWithoutHarm) {
  for (const char* program : {"/usr/sbin/keelhouse", kExportfs, kSmbSync}) {
    std::filesystem::remove(tree_.path(program));
  }
  startDaemon();
  writtenList({share("/srv/a")});
  EXPECT_THAT(calls(), IsEmpty());
  for (const char* program : {"/usr/sbin/keelhouse", kExportfs, kSmbSync}) {
    EXPECT_TRUE(logged(std::string(program) + " cannot be run: No such file or directory"))
        << program;
  }
}

TEST_F(Services, FailingServicesDoNotBlockNotifyingOthers) {
  addScript(kVspSync, note("vsp") + "; echo no such share >&2; exit 3");
  addScript(kExportfs, note("nfs") + "; echo no kernel server >&2; exit 1");
  addScript(kSmbSync, note("smb") + "; kill -9 $$");
  startDaemon();
  writtenList({share("/srv/a")});
  EXPECT_THAT(calls(), ElementsAre("vsp", "nfs", "smb"));
  EXPECT_THAT(daemon_->log(),
              AllOf(HasSubstr("vsp-sync: no such share"), HasSubstr("exportfs: no kernel server"),
                    HasSubstr("synchronize-shares was ended by signal 9")));
}

TEST_F(Services, FailuresReturnRequestErrorNamingSharePoint) {
  addScript(kVspSync, "exit 3");
  addScript(kExportfs, "echo no kernel server >&2; exit 1");
  std::filesystem::remove(tree_.path(kSmbSync));
  startDaemon();
  const std::string beginning =
      "paddock_sharing: A service was not told of the share point a for path /srv/a: ";
  EXPECT_THAT(errorsOf(writeList({share("/srv/a")})),
              IsSupersetOf({beginning + "/usr/sbin/keelhouse: its status is 3",
                            beginning + "paddock_nfs: no kernel server",
                            beginning + kSmbSync + ": No such file or directory"}));
}

TEST_F(Services, UnreadableExportsFileReturnsErrorNamingSharePoint) {
  startDaemon();
  std::filesystem::create_directories(tree_.path("/etc/exports"));
  EXPECT_THAT(errorsOf(writeList({share("/srv/a")})),
              Contains("paddock_sharing: The exports file does not follow the change of the share "
                       "point a for path /srv/a: cannot read " +
                       tree_.path("/etc/exports") + ": Is a directory"));
}

TEST_F(Services, MissingAutomountNodeIsNamedWithSharePoint) {
  startDaemon();
  Dictionary settings = share("/srv/a");
  settings.set("isAutomounted", true);
  settings.set("automountDSPath", "/LDAP/none");
  EXPECT_THAT(errorsOf(writeList({settings})),
              ElementsAre(StartsWith("paddock_sharing: The automount of the share point a for path "
                                     "/srv/a was not written to the node /LDAP/none: "),
                          "paddock_sharing write_sharepoints exception: 2"));
}

TEST_F(Services, RequestBehindHangingServiceReturns503NamingHolder) {
  addScript(kVspSync, "touch '" + tree_.path("/begun") + "'; while [ ! -e '" + tree_.path("/go") +
                          "' ]; do sleep 0.05; done");
  startDaemon("[limits]\nlock_seconds = 1\n");
  const std::string folder = makeFolder("a");
  auto slow = std::async(std::launch::async, [&] {
    return daemon_->post(
        "/v1/paddock_sharing/writeSettings",
        wire::writeJson(Dictionary{
            {"optionalArguments", Dictionary{{"path", folder}}},
            {"configuration", Dictionary{{"sharePointRecord", share(folder)}, {"isShared", 1}}}}));
  });
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(tree_.path("/begun")); }));
  const auto begun = std::chrono::steady_clock::now();
  for (const char* operation : {"readSettings", "writeSettings", "getSharePointList"}) {
    const Response refused = daemon_->post(std::string("/v1/paddock_sharing/") + operation, "{}");
    EXPECT_EQ(refused.status, 503) << operation;
    EXPECT_THAT(refused.body, HasSubstr("in use by writeSettings of " + folder + " for "));
    EXPECT_THAT(refused.body, HasSubstr("nothing was done"));
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(20));
  // What does not take the lock answers.
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/getState", "{}").status, 200);
  EXPECT_EQ(daemon_->get("/v1/health").status, 200);
  tree_.write("/go", "");
  EXPECT_EQ(slow.get().status, 200);
  EXPECT_EQ(daemon_->post("/v1/paddock_sharing/readSettings", "{}").status, 200);
  EXPECT_THAT(tree_.read("/var/log/paddock/audit.jsonl"),
              HasSubstr("\"status\":" + std::to_string(EBUSY)));
}

TEST_F(Services, HangingServicesAreTerminatedAtDeadline) {
  addScript(kSmbSync, note("smb") + "; sleep 1000");
  startDaemon("[limits]\nprogram_seconds = 4\n");
  const auto started = steady_clock::now();
  writtenList({share("/srv/a")});
  EXPECT_GE(steady_clock::now() - started, std::chrono::seconds(4));
  EXPECT_LT(steady_clock::now() - started, std::chrono::seconds(60));
  EXPECT_THAT(calls(), ElementsAre("vsp", "nfs -ra", "smb"));
  EXPECT_TRUE(logged("synchronize-shares took too long and was ended"));
  EXPECT_EQ(daemon_->stop(), 0);
}

TEST_F(Services, CommandCallingLockedModuleIsTerminatedDaemonContinues) {
  addScript(kVspSync, "'" + tree_.path("/usr/sbin/keelhouse") + "' share list; " + note("vsp"));
  startDaemon("[limits]\nprogram_seconds = 4\n");
  writtenList({share("/srv/a")});
  // Its time began after that of the command that it runs in: when the writing is over before it is
  // ended, it is answered at last.
  EXPECT_THAT(calls(), AnyOf(ElementsAre("nfs -ra", "smb"), ElementsAre("nfs -ra", "smb", "vsp")));
  const Response list = daemon_->post("/v1/paddock_sharing/getSharePointList", "{}");
  EXPECT_THAT(list.body, HasSubstr("/srv/a"));
  EXPECT_EQ(daemon_->stop(), 0);
}

long highestMemoryOf(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stol(line.substr(6));
  }
  return 0;
}

TEST_F(Services, AGigabyteOnAProgramsOutputIsDropped) {
  addScript(kSmbSync, "head -c 1000000000 /dev/zero; " + note("smb"));
  addScript(kVspSync, "head -c 1000000000 /dev/zero >&2; " + note("vsp"));
  startDaemon();
  const long before = highestMemoryOf(daemon_->process());
  ASSERT_GT(before, 0);
  writtenList({share("/srv/a")});
  EXPECT_THAT(calls(), ElementsAre("vsp", "nfs -ra", "smb"));
  constexpr long kFarBelowAGigabyte = 128 << 10;
  EXPECT_LT(highestMemoryOf(daemon_->process()) - before, kFarBelowAGigabyte);
}

TEST_F(Services, ReportStateAndCommandStatus) {
  startDaemon("state = \"pidfile:/run/vspd.pid\"\n");
  EXPECT_EQ(done({"command", "vsp:command", "=", "getState"}), "vsp:state = \"STOPPED\"\n");
  tree_.write("/run/vspd.pid", std::to_string(::getpid()));
  EXPECT_EQ(done({"command", "vsp:command", "=", "getState"}), "vsp:state = \"RUNNING\"\n");
  EXPECT_THAT(done({"status"}),
              AllOf(HasSubstr("plug-in paddock_vsp "), HasSubstr("state RUNNING"),
                    HasSubstr("plug-in paddock_nfs "), HasSubstr("state STOPPED")));
  EXPECT_EQ(done({"command", "vsp:command", "=", "syncSharePoints"}), "vsp:status = 0\n");
  addScript(kVspSync, "echo no >&2; exit 7");
  const auto failing = keelhouse({"command", "vsp:command", "=", "syncSharePoints"});
  EXPECT_EQ(failing.output, "vsp:status = 7\nvsp:errorOutput = \"no\\n\"\n");
  EXPECT_EQ(failing.error, "");
  EXPECT_EQ(failing.status, 1);
  EXPECT_EQ(done({"command", "nfs:command", "=", "updateNFS", "nfs:count", "=", "0"}),
            "nfs:status = 0\n");
}

TEST_F(Services, UnitStateIsQueriedFromSystemctlBelowRoot) {
  startDaemon("state = \"unit:vspd.service\"\n");
  EXPECT_EQ(done({"command", "vsp:command", "=", "getState"}), "vsp:state = \"STOPPED\"\n");
  addScript("/usr/bin/systemctl", note("systemctl $*"));
  EXPECT_EQ(done({"command", "vsp:command", "=", "getState"}), "vsp:state = \"RUNNING\"\n");
  EXPECT_THAT(calls(), AllOf(Not(IsEmpty()), Each("systemctl is-active --quiet -- vspd.service")));
}

// The advertisement asks whether VSP runs: at the end of a write, and once at the first idle tick.
TEST_F(Services, FollowFinalAdvertisementButPrecedeThatOfDeletions) {
  addScript("/usr/bin/systemctl", note("advertisement"));
  startDaemon("state = \"unit:vspd.service\"\n");
  const auto deadline = steady_clock::now() + std::chrono::seconds(60);
  while (calls().empty() && steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ASSERT_THAT(calls(), ElementsAre("advertisement"));
  forgetCalls();
  writtenList({share("/srv/a"), share("/srv/b")});
  EXPECT_THAT(calls(), ElementsAre("advertisement", "vsp", "nfs -ra", "smb"));
  forgetCalls();
  writtenList({share("/srv/c"), deletion("/srv/a"), deletion("/srv/b")});
  EXPECT_THAT(calls(), ElementsAre("vsp", "nfs -ra", "smb", "vsp", "nfs -ra", "smb",
                                   "advertisement", "vsp", "nfs -ra", "smb"));
}

// Every operation with every key missing, of a wrong type and empty.
TEST_F(Services, AnswerEveryRequestWithStatusOrState) {
  startDaemon();
  const char* const operations[] = {"paddock_vsp/getState", "paddock_vsp/syncSharePoints",
                                    "paddock_nfs/getState", "paddock_nfs/updateNFS",
                                    "paddock_filebrowser/nfsWriteMountRec"};
  const char* const keys[] = {"count", "nfsServerHostName", "nfsExportPath", "nfsResharePath"};
  for (const char* operation : operations) {
    for (const char* key : keys) {
      for (const char* value :
           {R"("")", R"("x")", "7", "true", "[]", "{}", R"({"$data":"eA=="})"}) {
        const Response response = daemon_->post(std::string("/v1/") + operation,
                                                std::string("{\"") + key + "\":" + value + "}");
        EXPECT_EQ(response.status, 200) << operation << key << value;
        const Dictionary reply = response.dictionary();
        EXPECT_TRUE(reply.contains("status") || reply.contains("state")) << response.body;
      }
    }
  }
}

// In mounts of its own, a root folder in which "/nfs_reshares/r" can be made: what there is in the
// machine's, and that.
void enterRootWithReshare(const std::string& newRoot) {
  namespace fs = std::filesystem;
  mountTmpfs(newRoot, "1m");
  for (const auto& entry : fs::directory_iterator("/")) {
    const std::string target = newRoot + "/" + entry.path().filename().string();
    if (entry.is_symlink()) {
      fs::copy_symlink(entry.path(), target);
    } else if (entry.is_directory()) {
      fs::create_directory(target);
      ASSERT_EQ(::mount(entry.path().c_str(), target.c_str(), "", MS_BIND | MS_REC, ""), 0);
    }
  }
  ASSERT_EQ(::chroot(newRoot.c_str()), 0);
  fs::create_directories("/nfs_reshares/r");
  ASSERT_EQ(::mount("server:/export", "/nfs_reshares/r", "tmpfs", 0, "size=64k"), 0);
}

TEST_F(Services, ReshareIsRecordedOnceUntilSharePointRemoval) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  const std::string newRoot = makeFolder("root");
  runInOwnMounts([&] {
    enterRootWithReshare(newRoot);
    startDaemon();
    const auto mounts = [this] {
      return done({"--json", "record", "list", "dsRecTypeStandard:Mounts"});
    };
    writtenList({share("/nfs_reshares/r")});
    EXPECT_THAT(mounts(), AllOf(HasSubstr("\"server:/export\""), HasSubstr("\"/nfs_reshares/r\""),
                                HasSubstr("\"nfs\"")));
    EXPECT_EQ(audited("nfsWriteMountRec"), 0U) << "a command of a sibling is no request";
    const std::string before = mounts();
    writtenList({share("/nfs_reshares/r")});
    EXPECT_EQ(mounts(), before);
    writtenList({deletion("/nfs_reshares/r")});
    EXPECT_THAT(mounts(), Not(HasSubstr("server:/export")));
    EXPECT_EQ(daemon_->stop(), 0);
  });
}

}  // namespace
}  // namespace paddock::testing
