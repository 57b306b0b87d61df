// `keelhouse index` and `keelhouse quota`, by way of the running daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <functional>

#include "integration/keelhouse_fixture.h"
#include "support/own_mounts.h"
#include "volumes/quota_file_format.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class KeelhouseIndex : public KeelhouseFixture {};

TEST_F(KeelhouseIndex, IsSwitchedOnAndOffForSharedFolder) {
  const std::string folder = makeFolder("a");
  done({"share", "add", folder});
  EXPECT_EQ(done({"index", "status", folder}), folder + " is not indexed.\n");
  EXPECT_EQ(done({"index", "on", folder}), folder + " is indexed for search.\n");
  EXPECT_EQ(done({"index", "status", folder}), folder + " is indexed for search.\n");
  EXPECT_THAT(done({"share", "show", folder}), HasSubstr("isIndexingEnabled: yes\n"));
  EXPECT_EQ(done({"index", "off", folder}), folder + " is not indexed.\n");
  EXPECT_EQ(done({"index", "off", folder}), folder + " is not indexed.\n");
  EXPECT_EQ(done({"index", "status", folder}), folder + " is not indexed.\n");
}

TEST_F(KeelhouseIndex, ChangesNothingElseOfTheShare) {
  const std::string folder = makeFolder("a");
  done({"share", "add", folder, "--smb-name", "x", "--no-ftp", "--nfs", "*(ro)"});
  const std::string before = done({"share", "show", folder});
  done({"index", "on", folder});
  done({"index", "off", folder});
  EXPECT_EQ(done({"share", "show", folder}), before);
}

TEST_F(KeelhouseIndex, SurvivesTheDaemon) {
  const std::string folder = makeFolder("a");
  done({"share", "add", folder});
  done({"index", "on", folder});
  EXPECT_EQ(daemon_->stop(), 0);
  startDaemon();
  EXPECT_EQ(done({"index", "status", folder}), folder + " is indexed for search.\n");
}

TEST_F(KeelhouseIndex, RefusesUnsharedFolder) {
  const std::string folder = makeFolder("a");
  for (const char* command : {"status", "on", "off"}) {
    const EndedProgram ended = keelhouse({"index", command, folder});
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.error, HasSubstr(folder + " is not shared\n"));
  }
}

// A volume of the test's own, with a daemon that keeps quotas on it.
class KeelhouseQuota : public KeelhouseTree {
 protected:
  void SetUp() override {
    KeelhouseTree::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
    installPlugin("paddock_quotas");
    volume_ = makeFolder("volume");
    tree_.configure("[volumes]\nquota_backend = \"accounting\"\n");
  }

  void onAVolume(const std::function<void()>& body) {
    runInOwnMounts([&] {
      mountTmpfs(volume_, "8m");
      body();
    });
  }

  // While a daemon runs.
  void withDaemon(const std::function<void()>& body) const {
    RunningDaemon daemon(tree_);
    ASSERT_TRUE(daemon.running()) << daemon.log();
    body();
    EXPECT_EQ(daemon.stop(), 0);
  }

  // As the program that counts would.
  void count(const std::vector<QuotaEntry>& entries) const {
    std::fstream file(volume_ + "/.quota.user", std::ios::in | std::ios::out | std::ios::binary);
    ASSERT_TRUE(file) << "quotas were not switched on";
    file.seekp(kQuotaSlotSize);
    for (const QuotaEntry& entry : entries) {
      for (const std::uint8_t byte : encodeQuotaEntry(entry)) file.put(static_cast<char>(byte));
    }
  }
  static QuotaEntry usage(std::uint32_t uid, std::uint64_t used, std::uint64_t limit) {
    QuotaEntry entry;
    entry.id = uid;
    entry.usedBytes = used;
    entry.hardBytes = limit;
    return entry;
  }

  std::string volume_;
};

TEST_F(KeelhouseQuota, AreSwitchedOnAndOff) {
  onAVolume([&] {
    withDaemon([&] {
      EXPECT_EQ(done({"quota", "show", volume_}), "Quotas of " + volume_ + " are off.\n");
      EXPECT_THAT(done({"quota", "on", volume_}),
                  StartsWith("Quotas of " + volume_ + " are on.\n"));
      EXPECT_TRUE(std::filesystem::exists(volume_ + "/.quota.user"));
      EXPECT_EQ(done({"quota", "off", volume_}), "Quotas of " + volume_ + " are off.\n");
      EXPECT_EQ(done({"quota", "show", volume_}), "Quotas of " + volume_ + " are off.\n");
    });
  });
}

// Only of a mount point itself are the quota file and the marker made.
TEST_F(KeelhouseQuota, AreSwitchedOnThroughSymlinkToVolume) {
  onAVolume([&] {
    withDaemon([&] {
      const std::string link = folder_.path("link");
      std::filesystem::create_symlink(volume_, link);
      EXPECT_THAT(done({"quota", "on", link}), StartsWith("Quotas of " + volume_ + " are on.\n"));
      EXPECT_TRUE(std::filesystem::exists(volume_ + "/.quota.user"));
      EXPECT_THAT(tree_.read("/var/log/paddock/audit.jsonl"),
                  HasSubstr("\"path\":\"" + volume_ + "\""));
    });
  });
}

TEST_F(KeelhouseQuota, AreListedByNameInDescendingUsage) {
  onAVolume([&] {
    withDaemon([&] {
      done({"quota", "on", volume_});
      count({usage(1, 2048, 1048576), usage(65534, 5U << 20U, 4U << 20U),
             usage(2147418113, 1024, 2048), usage(0, 4096, 0)});
      EXPECT_EQ(done({"quota", "show", volume_}),
                "Quotas of " + volume_ +
                    " are on.\n"
                    "KIND  NAME        USED     FREE      LIMIT\n"
                    "user  nobody      5.0 MiB  0 B       4.0 MiB\n"
                    "user  daemon      2.0 KiB  1022 KiB  1.0 MiB\n"
                    "user  2147418113  1.0 KiB  1.0 KiB   2.0 KiB\n");
      EXPECT_THAT(done({"quota", "show", volume_, "--json"}), HasSubstr("\"used\": 2048"));
    });
  });
}

TEST_F(KeelhouseQuota, DamagedFileIsNamedWithRemedy) {
  onAVolume([&] {
    withDaemon([&] {
      done({"quota", "on", volume_});
      const std::string file = volume_ + "/.quota.user";
      std::ofstream(file) << std::string(kQuotaSlotSize, 'x');
      const EndedProgram ended = keelhouse({"quota", "show", volume_});
      EXPECT_EQ(ended.status, 1);
      EXPECT_THAT(ended.error, HasSubstr("cannot be read: the quota file is damaged ("));
      EXPECT_THAT(ended.error, HasSubstr("The quotas in " + file + " are not listed: it does not"));
      EXPECT_THAT(ended.error, HasSubstr("keelhouse quota on " + volume_));
      std::filesystem::remove(file);
      done({"quota", "on", volume_});
      EXPECT_THAT(done({"quota", "show", volume_}), StartsWith("Quotas of " + volume_));
    });
  });
}

TEST_F(KeelhouseQuota, SurviveTheDaemon) {
  onAVolume([&] {
    withDaemon([&] {
      done({"quota", "on", volume_});
      count({usage(1, 1024, 2048)});
    });
    withDaemon([&] {
      EXPECT_THAT(
          done({"quota", "show", volume_}),
          HasSubstr(" are on.\nKIND  NAME    USED     FREE     LIMIT\nuser  daemon  1.0 KiB"));
    });
  });
}

TEST_F(KeelhouseQuota, AreNotForAFolderInsideAVolume) {
  onAVolume([&] {
    withDaemon([&] {
      std::filesystem::create_directory(volume_ + "/inside");
      const EndedProgram ended = keelhouse({"quota", "on", volume_ + "/inside"});
      EXPECT_EQ(ended.status, 1);
      EXPECT_THAT(ended.error, HasSubstr("It lies on the volume " + volume_ + ","));
      EXPECT_TRUE(std::filesystem::is_empty(volume_ + "/inside"));
    });
  });
}

TEST_F(KeelhouseQuota, CannotBeSwitchedOnWithoutKernelSupport) {
  tree_.configure("[volumes]\nquota_backend = \"kernel\"\n");
  onAVolume([&] {
    withDaemon([&] {
      const EndedProgram ended = keelhouse({"quota", "on", volume_});
      EXPECT_EQ(ended.status, 1);
      EXPECT_THAT(ended.error, HasSubstr("(CANNOT_SET_QUOTA_STATE_ERR, 100080)\n"));
      EXPECT_TRUE(std::filesystem::is_empty(volume_)) << "a refused switch left something";
      writeWholeFile(volume_ + "/.quota.user", "mine");
      EXPECT_EQ(keelhouse({"quota", "on", volume_}).status, 1);
      EXPECT_EQ(readWholeFile(volume_ + "/.quota.user"), "mine");
      EXPECT_FALSE(std::filesystem::exists(volume_ + "/.quota.ops.user"));
      const EndedProgram set = keelhouse({"quota", "set", volume_, "nobody", "1G", "2G"});
      EXPECT_EQ(set.status, 1);
      EXPECT_THAT(set.error, HasSubstr("the kernel keeps no quotas of users of " + volume_));
    });
  });
}

}  // namespace
}  // namespace paddock::testing
