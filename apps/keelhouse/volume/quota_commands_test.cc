#include "keelhouse/volume/quota_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "keelhouse/core/failure.h"
#include "keelhouse/volume/quota_view.h"
#include "support/keelhouse_commands.h"
#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {

namespace {

TEST(VolumeRoot, IsMountPointOfVolume) {
  EXPECT_EQ(volumeRootOf("/"), "/");
  EXPECT_EQ(volumeRootOf("/proc"), "/proc");
  EXPECT_EQ(volumeRootOf("/proc/self/fd"), "/proc");
}

TEST(VolumeRoot, IsFoundThroughSymlinks) {
  const TestFolder folder;
  std::filesystem::create_symlink("/proc/version", folder.path("link"));
  EXPECT_EQ(volumeRootOf(folder.path("link")), "/proc");
}

TEST(VolumeRoot, RefusesPathBelowRoot) {
  const TestFolder folder;
  std::filesystem::create_symlink("/proc", folder.path("proc"));
  requireVolumeRoot("/");
  requireVolumeRoot("/proc");
  requireVolumeRoot(folder.path("proc"));
  EXPECT_THROW(requireVolumeRoot("/proc/self"), Failure);
}

TEST(VolumeRoot, MissingPathFails) {
  const TestFolder folder;
  EXPECT_THROW(volumeRootOf(folder.path("none")), Failure);
  EXPECT_THROW(requireVolumeRoot(folder.path("none")), Failure);
}

TEST(VolumeRoot, IsMountPointOfBindMount) {
  if (const std::string reason = whyNoOwnMounts(); !reason.empty()) GTEST_SKIP() << reason;
  runInOwnMounts([] {
    const TestFolder folder;
    for (const char* name : {"a", "b", "a/inside"}) {
      std::filesystem::create_directory(folder.path(name));
    }
    bindMount(folder.path("a"), folder.path("b"));
    EXPECT_EQ(volumeRootOf(folder.path("b/inside")),
              std::filesystem::canonical(folder.path("b")).string());
    ::umount(folder.path("b").c_str());
  });
}

}  // namespace

// `quota set`, and what `quota show` says of limits, against a scripted daemon.
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kAnna =
    R"({"id":1001,"name":"anna","usedBytes":1536,"softBytes":1024,"hardBytes":2048,)"
    R"("bytesGraceEnd":605000,"usedFiles":19,"softFiles":0,"hardFiles":20,"filesGraceEnd":0})";

std::string usageOf(const std::string& users, const char* enforced = "true") {
  return R"({"status":0,"time":5000,"users":[)" + users + R"(],"usersEnforced":)" + enforced + "}";
}

class QuotaLimits : public CommandFixture {};

TEST_F(QuotaLimits, AreSetInTheUnitsThatPeopleWrite) {
  daemon_.answer(std::string(R"({"status":0,"entry":)") + kAnna + "}");
  daemon_.answer(usageOf(kAnna));
  EXPECT_EQ(run({"quota", "set", "/", "anna", "1.5K", "10G", "--files", "none", "20"}), 0)
      << error_;
  EXPECT_EQ(target(0), "POST /v1/paddock_quotas/setLimits");
  EXPECT_EQ(body(0),
            R"({"group":false,"hardBytes":10737418240,"hardFiles":20,"name":"anna","path":"/",)"
            R"("softBytes":1536,"softFiles":0})");
  EXPECT_EQ(out_,
            "KIND  NAME  USED     SOFT     HARD     FILES  SOFT  HARD\n"
            "user  anna  1.5 KiB  1.0 KiB  2.0 KiB  19     none  20\n");
  EXPECT_EQ(error_, "");
}

TEST_F(QuotaLimits, GroupLimitsAcceptVolumeAsOption) {
  daemon_.answer(std::string(R"({"status":0,"entry":)") + kAnna + "}");
  daemon_.answer(R"({"status":0,"groups":[],"groupsEnforced":false})");
  EXPECT_EQ(run({"--json", "quota", "set", "--group", "staff", "none", "0", "--volume", "/"}), 0)
      << error_;
  EXPECT_EQ(body(0), R"({"group":true,"hardBytes":0,"name":"staff","path":"/","softBytes":0})");
  EXPECT_THAT(out_, HasSubstr("\"usedBytes\": 1536"));
  EXPECT_EQ(error_, "keelhouse: quotas of / are off: the limits are kept, and hold nobody.\n");
}

TEST_F(QuotaLimits, ThatAreRefusedSayWhy) {
  daemon_.answer(R"({"status":2,"message":"the user nobody here: No such file or directory"})");
  EXPECT_EQ(run({"quota", "set", "/", "nobody here", "1", "2"}), 1);
  EXPECT_EQ(
      error_,
      "keelhouse: the limits of nobody here on / cannot be set: the user nobody here: No such "
      "file or directory (ENOENT, 2)\n");
  daemon_.answer(R"({"status":2,"message":"the group nogruop: No such file or directory"})");
  daemon_.answer(R"({"status":0})");
  EXPECT_EQ(run({"quota", "set", "--group", "--volume", "/", "nogruop", "1", "2"}), 1);
  EXPECT_EQ(
      error_,
      "keelhouse: the limits of nogruop on / cannot be set: there is no group nogruop, neither "
      "on this host nor in a directory node: did you mean nogroup?\n");
  const std::size_t before = asked();
  EXPECT_EQ(run({"quota", "set", "/", "anna", "1", "2"}), 1);  // answered with 404
  EXPECT_THAT(error_, HasSubstr("the plug-in paddock_quotas is not loaded"));
  EXPECT_EQ(run({"quota", "set", "/proc/self", "anna", "1", "2"}), 1);
  EXPECT_THAT(error_, HasSubstr("is not the root of a volume"));
  EXPECT_EQ(asked(), before + 1);
}

TEST_F(QuotaLimits, AreShownWithRemarkNearLimit) {
  daemon_.answer(readPart("volumeQuotas", R"({"isEnabled":true})"));
  daemon_.answer(usageOf(std::string(kAnna) + R"(,{"id":7,"name":"bob","usedBytes":4096})"));
  EXPECT_EQ(run({"quota", "show", "/"}), 0) << error_;
  EXPECT_EQ(out_,
            "Quotas of / are on.\n"
            "KIND  NAME  USED     SOFT     HARD     FILES  SOFT  HARD  REMARK\n"
            "user  bob   4.0 KiB  none     none     0      none  none  -\n"
            "user  anna  1.5 KiB  1.0 KiB  2.0 KiB  19     none  20    over the soft limit, 6 days "
            "left; files: 95 % of the hard limit\n");
  EXPECT_EQ(target(1), "POST /v1/paddock_quotas/getUsage");
}

TEST_F(QuotaLimits, JsonPreservesKernelValues) {
  daemon_.answer(readPart("volumeQuotas", R"({"isEnabled":true})"));
  daemon_.answer(usageOf(kAnna));
  EXPECT_EQ(run({"--json", "quota", "show", "/"}), 0) << error_;
  EXPECT_THAT(out_, HasSubstr("\"kernel\": {\n"));
  EXPECT_THAT(out_, HasSubstr("\"softBytes\": 1024"));
}

TEST_F(QuotaLimits, ThatCannotBeReadAreAFailure) {
  daemon_.answer(readPart("volumeQuotas", R"({"isEnabled":true})"));
  daemon_.answer(R"({"status":5,"message":"/: Input/output error"})");
  EXPECT_EQ(run({"quota", "show", "/"}), 1);
  EXPECT_EQ(error_, "keelhouse: the quotas of / cannot be read: /: Input/output error (EIO, 5)\n");
}

TEST(QuotaUsage, SaysOfBothKindsWhetherTheyHold) {
  EXPECT_EQ(formatUsage("/srv", {{"users", Array{}},
                                 {"usersEnforced", true},
                                 {"groups", Array{}},
                                 {"groupsEnforced", false}}),
            "Quotas of /srv are on for users and off for groups.\nNobody is counted there.\n");
}

TEST(QuotaUsage, RemarksOnAccountsNearOrAboveLimit) {
  constexpr std::uint64_t kNow = 1000;
  EXPECT_THAT(limitRemark({500, 0, 0, 0}, kNow, true), IsEmpty());
  EXPECT_THAT(limitRemark({90, 0, 100, 0}, kNow, true), IsEmpty());
  EXPECT_EQ(limitRemark({91, 0, 100, 0}, kNow, true), "91 % of the hard limit");
  EXPECT_EQ(limitRemark({100, 100, 200, 0}, kNow, true), "100 % of the soft limit");
  EXPECT_EQ(limitRemark({100, 0, 100, 0}, kNow, true), "at the hard limit");
  EXPECT_EQ(limitRemark({150, 100, 200, kNow + 90}, kNow, true),
            "over the soft limit, 1 min 30 s left");
  EXPECT_EQ(limitRemark({150, 100, 200, kNow}, kNow, true),
            "over the soft limit, grace has run out");
  EXPECT_EQ(limitRemark({150, 100, 200, 0}, kNow, false), "over the soft limit (not enforced)");
  EXPECT_EQ(limitRemark({~0ULL, 0, ~0ULL, 0}, kNow, true), "at the hard limit");
}

}  // namespace

}  // namespace paddock::keelhouse
