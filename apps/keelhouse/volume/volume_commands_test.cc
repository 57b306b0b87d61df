// `quota` and `index` against a scripted daemon: what they ask, what they print, how they end.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/keelhouse_commands.h"

namespace paddock::keelhouse {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class VolumeCommands : public CommandFixture {
 protected:
  void answerQuotas(const std::string& quotas, int status = 0) {
    daemon_.answer(readPart("volumeQuotas", quotas, status));
  }
  void answerSwitched(const std::string& quotas, int status = 0) {
    daemon_.answer(R"({"volumeQuotas":)" + quotas + R"(,"removed":[],"status":)" +
                   std::to_string(status) + "}");
  }
  // The reply where the kernel keeps no quotas.
  void answerNotKept() { daemon_.answer(R"({"status":95,"message":"none kept"})"); }
  void answerShare(const std::string& sharePoint) {
    daemon_.answer(readPart("sharePointRecord", sharePoint));
  }
  void answerChanged(const std::string& sharePoint, int status = 0) {
    daemon_.answer(writtenPart("sharePointRecord", sharePoint, status));
  }
};

TEST_F(VolumeCommands, QuotaShowPrintsTable) {
  answerQuotas(R"({"isEnabled":true,"usr":[{"name":"anna","used":1536,"free":512,"limit":2048,)"
               R"("type":0}]})");
  answerNotKept();
  EXPECT_EQ(run({"quota", "show", "/"}), 0) << error_;
  EXPECT_EQ(out_,
            "Quotas of / are on.\n"
            "KIND  NAME  USED     FREE   LIMIT\n"
            "user  anna  1.5 KiB  512 B  2.0 KiB\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_sharing/readSettings");
  EXPECT_EQ(body(0), R"({"optionalArguments":{"path":"/"}})");
}

TEST_F(VolumeCommands, QuotaShowPrintsDictionaryWithJson) {
  answerQuotas(R"({"isEnabled":false})");
  answerNotKept();
  EXPECT_EQ(run({"--json", "quota", "show", "/"}), 0);
  EXPECT_EQ(out_, "{\n  \"isEnabled\": false\n}\n");
}

TEST_F(VolumeCommands, QuotaShowReportsStatusAndError) {
  answerQuotas(R"({"isEnabled":false})", 5);
  EXPECT_EQ(run({"quota", "show", "/"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_,
              StartsWith("keelhouse: the quotas of / cannot be read: Input/output error (EIO, 5)"));
  answerQuotas(R"({"isEnabled":true})", -1);
  EXPECT_EQ(run({"quota", "show", "/"}), 1);
  EXPECT_THAT(error_,
              StartsWith("keelhouse: the quotas of / cannot be read: the quota file is damaged (a "
                         "status without a name, -1)\n"));
  EXPECT_THAT(error_, HasSubstr("Move it away and have a new one made: keelhouse quota on /\n"));
  answerQuotas(R"({"quotaError":"FILE_NOT_FOUND_ERR"})");
  EXPECT_EQ(run({"quota", "show", "/"}), 1);
  EXPECT_THAT(error_, HasSubstr("cannot be read (FILE_NOT_FOUND_ERR, 100056)\n"));
  answerQuotas("{}");
  EXPECT_EQ(run({"quota", "show", "/"}), 1);
  EXPECT_THAT(error_, HasSubstr("says nothing of the quotas of /"));
}

TEST_F(VolumeCommands, QuotaRequiresRootOfVolume) {
  for (const char* command : {"show", "on", "off"}) {
    EXPECT_EQ(run({"quota", command, "/proc/self"}), 1);
    EXPECT_THAT(error_, StartsWith("keelhouse: /proc/self is not the root of a volume\nIt lies on "
                                   "the volume /proc,"));
    EXPECT_EQ(run({"quota", command, folder_.path("none")}), 1);
    EXPECT_THAT(error_, HasSubstr("No such file or directory"));
  }
  EXPECT_EQ(asked(), 0U);
}

TEST_F(VolumeCommands, QuotaOnAndOffSwitchQuotas) {
  answerSwitched(R"({"isEnabled":true})");
  answerNotKept();
  EXPECT_EQ(run({"quota", "on", "/"}), 0) << error_;
  EXPECT_EQ(out_, "Quotas of / are on.\n");
  EXPECT_EQ(target(0), "POST /v1/paddock_quotas/setEnabled");
  EXPECT_EQ(body(0), R"({"isEnabled":true,"path":"/"})");
  answerSwitched(R"({"isEnabled":false})");
  answerNotKept();
  EXPECT_EQ(run({"quota", "off", "/"}), 0) << error_;
  EXPECT_EQ(out_, "Quotas of / are off.\n");
  EXPECT_THAT(body(2), HasSubstr(R"("isEnabled":false)"));
}

TEST_F(VolumeCommands, QuotaSendsResolvedPathOfSymlink) {
  const std::string link = folder_.path("link");
  std::filesystem::create_symlink("/proc", link);
  answerSwitched(R"({"isEnabled":true})");
  answerNotKept();
  EXPECT_EQ(run({"quota", "on", link}), 0) << error_;
  EXPECT_EQ(out_, "Quotas of /proc are on.\n");
  EXPECT_EQ(body(0), R"({"isEnabled":true,"path":"/proc"})");
  answerQuotas(R"({"isEnabled":false})");
  answerNotKept();
  EXPECT_EQ(run({"quota", "show", link}), 0) << error_;
  EXPECT_EQ(body(2), R"({"optionalArguments":{"path":"/proc"}})");
  EXPECT_EQ(run({"quota", "set", link, "root", "1G", "2G"}), 1);
  EXPECT_THAT(body(4), HasSubstr(R"("path":"/proc")"));
}

TEST_F(VolumeCommands, QuotaOnSucceedsWithoutQuotaPlugin) {
  daemon_.answer(R"({"error":"no such plug-in"})", 404);
  daemon_.answer(writtenPart("volumeQuotas", R"({"isEnabled":true})"));
  EXPECT_EQ(run({"quota", "on", "/"}), 0) << error_;
  EXPECT_EQ(out_, "Quotas of / are on.\n");
  EXPECT_EQ(target(1), "POST /v1/paddock_sharing/writeSettings");
  EXPECT_EQ(body(1), R"({"configuration":{"volumeQuotas":{"isEnabled":true}},)"
                     R"("optionalArguments":{"path":"/"}})");
}

TEST_F(VolumeCommands, QuotaOnReportsFailure) {
  answerSwitched(R"({"isEnabled":false})", 100080);
  EXPECT_EQ(run({"quota", "on", "/"}), 1);
  EXPECT_EQ(out_, "");
  EXPECT_THAT(error_, StartsWith("keelhouse: the quotas of / cannot be switched on "
                                 "(CANNOT_SET_QUOTA_STATE_ERR, 100080)\nThe volume or the "
                                 "kernel may keep no quotas."));
  answerSwitched(R"({"isEnabled":false})");
  EXPECT_EQ(run({"quota", "on", "/"}), 1);
  EXPECT_THAT(error_, HasSubstr("they are still off, although the daemon reported success"));
  daemon_.answer(R"({"status":13,"message":"/: Permission denied"})");
  EXPECT_EQ(run({"quota", "on", "/"}), 1);
  EXPECT_THAT(error_, HasSubstr("cannot be switched on: /: Permission denied"));
}

TEST_F(VolumeCommands, IndexStatusReportsSharedFolder) {
  answerShare(R"({"isShared":true,"path":"/srv/a","isIndexingEnabled":true})");
  EXPECT_EQ(run({"index", "status", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "/srv/a is indexed for search.\n");
  answerShare(R"({"isShared":true,"path":"/srv/a","isIndexingEnabled":false})");
  EXPECT_EQ(run({"index", "status", "/srv/a"}), 0);
  EXPECT_EQ(out_, "/srv/a is not indexed.\n");
  answerShare(R"({"isShared":true,"path":"/srv/a","isIndexingEnabled":false})");
  EXPECT_EQ(run({"index", "status", "/srv/a", "--json"}), 0);
  EXPECT_EQ(out_, "{\n  \"isIndexingEnabled\": false,\n  \"path\": \"/srv/a\"\n}\n");
}

TEST_F(VolumeCommands, IndexRequiresSharedFolder) {
  for (const char* command : {"status", "on", "off"}) {
    answerShare(R"({"isShared":false})");
    EXPECT_EQ(run({"index", command, "/srv/a"}), 1);
    EXPECT_EQ(out_, "");
    EXPECT_THAT(error_, StartsWith("keelhouse: /srv/a is not shared\nShared folders alone can be "
                                   "indexed."));
  }
  EXPECT_EQ(asked(), 3U);
}

TEST_F(VolumeCommands, IndexOnAndOffSendOnlyFlag) {
  answerShare(R"({"isShared":true,"path":"/srv/A","isIndexingEnabled":false,"name":"a"})");
  answerChanged(R"({"isShared":true,"path":"/srv/A","isIndexingEnabled":true})");
  EXPECT_EQ(run({"index", "on", "/srv/a"}), 0) << error_;
  EXPECT_EQ(out_, "/srv/a is indexed for search.\n");
  EXPECT_EQ(body(1), R"({"configuration":{"sharePointRecord":{"isIndexingEnabled":true,)"
                     R"("path":"/srv/A"}},"optionalArguments":{"path":"/srv/a"}})");
  answerShare(R"({"isShared":true,"isIndexingEnabled":true})");
  answerChanged(R"({"isShared":true,"isIndexingEnabled":false})");
  EXPECT_EQ(run({"index", "off", "/srv/a"}), 0) << error_;
  EXPECT_THAT(body(3), HasSubstr(R"("isIndexingEnabled":false)"));
}

TEST_F(VolumeCommands, IndexOnReportsIndexingStillOff) {
  answerShare(R"({"isShared":true,"isIndexingEnabled":false})");
  answerChanged(R"({"isShared":true,"isIndexingEnabled":false})");
  EXPECT_EQ(run({"index", "on", "/srv/a"}), 1);
  EXPECT_THAT(error_, StartsWith("keelhouse: the indexing of /srv/a cannot be switched on: it is "
                                 "still off\n"));
  answerShare(R"({"isShared":true,"isIndexingEnabled":false})");
  answerChanged(R"({"isShared":true})", 100076);
  EXPECT_EQ(run({"index", "on", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr(", 100076)"));
}

TEST_F(VolumeCommands, IndexReportsReplyWithoutIndexingState) {
  answerShare(R"({"isShared":true})");
  EXPECT_EQ(run({"index", "status", "/srv/a"}), 1);
  EXPECT_THAT(error_, HasSubstr("says nothing of the indexing of /srv/a"));
}

TEST_F(VolumeCommands, InvalidArgumentsAreRefusedBeforeRequest) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"quota"},
           {"quota", "show"},
           {"quota", "on", "/", "/"},
           {"quota", "frob", "/"},
           {"quota", "set", "anna", "1G", "2G"},
           {"quota", "set", "/", "anna", "1G", "two"},
           {"quota", "set", "/", "anna", "-1", "2G"},
           {"quota", "set", "/", "anna", "1G", "2G", "3G"},
           {"quota", "set", "/", "anna", "1", "2", "--files", "1"},
           {"quota", "set", "/", "a", "1", "2", "--files", "1", "1K"},
           {"index"},
           {"index", "on"},
           {"index", "status", ""}}) {
    EXPECT_EQ(run(words), 2) << ::testing::PrintToString(words);
  }
  EXPECT_EQ(asked(), 0U);
}

}  // namespace
}  // namespace paddock::keelhouse
