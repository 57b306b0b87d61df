// Quotas of real volumes, switched and read through the running daemon.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "base/status.h"
#include "integration/sharing_daemon.h"
#include "support/loop_volume.h"
#include "support/volume_fixture.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kAccounting =
    "[volumes]\nquota_backend = \"accounting\"\nquota_checker = \"/usr/sbin/checker\"\n";

// The daemon with a quota checker that says for what it ran.
class Server : public SharingDaemon {
 public:
  explicit Server(const std::string& configuration) : SharingDaemon(configuration) {
    setChecker("echo \"$@\" >>'" + checkerLog() + "'");
  }

  // What the checker does from now on.
  void setChecker(const std::string& script) const {
    tree().write("/usr/sbin/checker", "#!/bin/sh\n" + script + "\n");
    ASSERT_EQ(::chmod(tree().path("/usr/sbin/checker").c_str(), 0755), 0);
  }
  std::string checkerLog() const { return tree().path("/checked"); }

  Dictionary switchTo(const std::string& path, bool on) const {
    return writeSettings(path, {{"volumeQuotas", Dictionary{{"isEnabled", on}}}});
  }
  static Dictionary quotasIn(const Dictionary& reply) {
    const Dictionary* configuration = reply.dictionary("configuration");
    const Dictionary* quotas =
        configuration != nullptr ? configuration->dictionary("volumeQuotas") : nullptr;
    EXPECT_NE(quotas, nullptr);
    return quotas != nullptr ? *quotas : Dictionary();
  }
};

class VolumeQuotasOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoLoopVolumes(); !why.empty()) GTEST_SKIP() << why;
  }
};

// What a quota checker would have found.
void writeUsage(const LoopVolume& volume) {
  writeWholeFile(volume.path(".quota.user"),
                 quotaFileBytes(kUserQuota, 2048,
                                {usage(1, 5000), usage(2, 7000, 10'000), usage(0x80000001, 9)}));
}

// "name", "used" and "limit" of each user, as "NAME USED LIMIT", in the order of the names.
std::set<std::string> usersIn(const Dictionary& reply) {
  std::set<std::string> users;
  const Dictionary quotas = Server::quotasIn(reply);
  const Array* listed = quotas.array("usr");
  if (listed == nullptr) return {"none"};
  for (const Value& value : *listed) {
    const Dictionary& entry = *value.dictionary();
    users.insert(*entry.string("name") + " " + std::to_string(*entry.integer("used")) + " " +
                 std::to_string(*entry.integer("limit")));
  }
  return users;
}
const std::set<std::string> kUsers = {"2147483649 9 0", "bin 7000 10000", "daemon 5000 0"};

TEST_F(VolumeQuotasOnDisk, AreListedByNameAndSurviveRestart) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    Server server(kAccounting);
    EXPECT_EQ(Server::quotasIn(server.readSettings(volume.path())),
              (Dictionary{{"isEnabled", false}}));
    const Dictionary reply = server.switchTo(volume.path(), true);
    EXPECT_EQ(reply.integer("writeStatus"), 0);
    EXPECT_EQ(Server::quotasIn(reply), (Dictionary{{"isEnabled", true}, {"usr", Array{}}}));
    writeUsage(volume);
    EXPECT_EQ(usersIn(server.readSettings(volume.path())), kUsers);
    server.restart();
    const Dictionary after = server.readSettings(volume.path());
    EXPECT_EQ(after.integer("readStatus"), 0);
    EXPECT_EQ(Server::quotasIn(after).boolean("isEnabled"), true);
    EXPECT_EQ(usersIn(after), kUsers);
  });
}

TEST_F(VolumeQuotasOnDisk, AreSwitchedOffWithTheirLimitsKept) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    Server server(kAccounting);
    server.switchTo(volume.path(), true);
    writeUsage(volume);
    EXPECT_EQ(Server::quotasIn(server.switchTo(volume.path(), false)),
              (Dictionary{{"isEnabled", false}}));
    EXPECT_FALSE(fs::exists(volume.path(".quota.ops.user")));
    EXPECT_EQ(usersIn(server.switchTo(volume.path(), true)), kUsers);
  });
}

TEST_F(VolumeQuotasOnDisk, FilesAreCreatedPrivateAndHidden) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    Server server(kAccounting);
    server.switchTo(volume.path(), true);
    struct stat status {};
    ASSERT_EQ(::stat(volume.path(".quota.user").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0640U);
    EXPECT_EQ(status.st_uid, 0U);
    EXPECT_EQ(status.st_gid, 80U);
    EXPECT_EQ(status.st_size, 131'136);
    for (const char* name : {".quota.user", ".quota.ops.user"}) {
      BrowserInformation information{};
      ASSERT_EQ(::getxattr(volume.path(name).c_str(), "user.paddock.browserinfo",
                           information.data(), information.size()),
                32);
      std::uint16_t flags = 0;
      std::memcpy(&flags, information.data() + 8, sizeof flags);
      EXPECT_EQ(flags, 0x4000);
    }
    EXPECT_EQ(server.tree().read("/var/lib/paddock/quota-accounting"),
              "user " + volume.path() + "\n");
  });
}

TEST_F(VolumeQuotasOnDisk, CheckerIsStartedBelowRootAndReaped) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    Server server(kAccounting);
    server.switchTo(volume.path(), true);
    EXPECT_TRUE(
        eventually([&] { return readWholeFile(server.checkerLog()) == volume.path() + "\n"; }));
    const std::string process = std::to_string(server.process());
    EXPECT_TRUE(eventually([&] {
      for (const auto& task : fs::directory_iterator("/proc/" + process + "/task")) {
        if (!readWholeFile(task.path() / "children").empty()) return false;
      }
      return true;
    })) << "a child was left";
    server.stop();
  });
}

TEST_F(VolumeQuotasOnDisk, CheckerIsNotAwaitedAndOutlivesDaemon) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    Server server(kAccounting);
    server.setChecker("n=0; while [ ! -e '" + server.tree().path("/go") +
                      "' ] && [ $n -lt 1200 ]; do sleep 0.05; n=$((n+1)); done; echo done $n >'" +
                      server.checkerLog() + "'");
    EXPECT_EQ(server.switchTo(volume.path(), true).integer("writeStatus"), 0);
    EXPECT_EQ(server.readSettings(volume.path()).integer("readStatus"), 0);
    server.stop();
    EXPECT_FALSE(fs::exists(server.checkerLog()));
    server.tree().write("/go", "");
    EXPECT_TRUE(
        eventually([&] { return readWholeFile(server.checkerLog()).rfind("done ", 0) == 0; }));
  });
}

TEST_F(VolumeQuotasOnDisk, MissingOrFailingCheckerIsLogged) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    Server server(kAccounting);
    server.setChecker("echo 'cannot count' >&2; exit 3");
    EXPECT_EQ(server.switchTo(volume.path(), true).integer("writeStatus"), 0);
    EXPECT_TRUE(eventually([&] {
      return server.log().find("/usr/sbin/checker exited with status 3") != std::string::npos;
    }));
    EXPECT_NE(server.log().find("cannot count"), std::string::npos);
    fs::remove(server.tree().path("/usr/sbin/checker"));
    EXPECT_EQ(server.switchTo(volume.path(), true).integer("writeStatus"), 0);
    EXPECT_NE(server.log().find("/usr/sbin/checker cannot be run"), std::string::npos);
  });
}

TEST_F(VolumeQuotasOnDisk, FolderInsideVolumeIsRefused) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");
    Server server(kAccounting);
    fs::create_directory(volume.path("folder"));
    const Dictionary reply = server.switchTo(volume.path("folder"), true);
    EXPECT_EQ(reply.integer("writeStatus"), CANNOT_SET_QUOTA_STATE_ERR);
    EXPECT_EQ(*reply.string("writeError"), "CANNOT_SET_QUOTA_STATE_ERR");
    EXPECT_TRUE(fs::exists(volume.path("folder/.quota.ops.user")));
    EXPECT_FALSE(fs::exists(volume.path("folder/.quota.user")));
  });
}

TEST_F(VolumeQuotasOnDisk, MemoryVolumeIsAccountedLikeAnyOther) {
  runInOwnMounts([] {
    const TestFolder folder;
    mountTmpfs(folder.path(), "8m");
    {
      Server server(kAccounting);
      EXPECT_EQ(Server::quotasIn(server.switchTo(folder.path(), true)),
                (Dictionary{{"isEnabled", true}, {"usr", Array{}}}));
      writeWholeFile(folder.path(".quota.user"),
                     quotaFileBytes(kUserQuota, 2048, {usage(1, 5000)}));
      EXPECT_EQ(usersIn(server.readSettings(folder.path())),
                (std::set<std::string>{"daemon 5000 0"}));
    }
    ::umount2(folder.path().c_str(), MNT_DETACH);
  });
}

TEST_F(VolumeQuotasOnDisk, UnsupportedVolumeIsOffAndRefusesSwitchingOn) {
  runInOwnMounts([] {
    const LoopVolume volume("64M");  // without the feature "quota"
    Server server("[volumes]\nquota_checker = \"/usr/sbin/checker\"\n");
    const Dictionary before = server.readSettings(volume.path());
    EXPECT_EQ(before.integer("readStatus"), 0);
    EXPECT_EQ(Server::quotasIn(before), (Dictionary{{"isEnabled", false}}));
    EXPECT_EQ(server.switchTo(volume.path(), true).integer("writeStatus"),
              CANNOT_SET_QUOTA_STATE_ERR);
    EXPECT_TRUE(eventually([&] { return fs::exists(server.checkerLog()); }));
    const Dictionary after = server.readSettings(volume.path());
    EXPECT_EQ(after.integer("readStatus"), 0);
    EXPECT_EQ(Server::quotasIn(after), (Dictionary{{"isEnabled", false}}));
  });
}

}  // namespace
}  // namespace paddock::testing
