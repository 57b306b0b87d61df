#include "platform/linux/accounts/user_groups.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include <algorithm>
#include <fstream>

#include "support/own_mounts.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using Gids = std::vector<std::uint32_t>;

TEST(UserGroups, AUserIsInThePrimaryGroup) {
  NssUserGroups groups;
  Gids gids;
  ASSERT_EQ(groups.groupsOf(1, gids), 0);
  EXPECT_TRUE(std::binary_search(gids.begin(), gids.end(), ::getpwuid(1)->pw_gid));
}

TEST(UserGroups, IdWithoutAccountIsInNoGroup) {
  NssUserGroups groups;
  Gids gids{1, 2};
  EXPECT_EQ(groups.groupsOf(2111222333, gids), 0);
  EXPECT_EQ(gids, Gids{});
}

TEST(UserGroups, EveryMembershipCountsOnceHoweverManyThereAre) {
  if (const std::string why = whyNoOwnMounts(); !why.empty()) GTEST_SKIP() << why;
  TestFolder folder;
  Gids expected{7};
  std::ofstream(folder.path("passwd")) << "paddock-a:x:4711:7::/:/bin/false\n";
  {
    std::ofstream group(folder.path("group"));
    group << "paddock-g:x:7:paddock-a\n";
    for (std::uint32_t gid = 1300; gid > 1000; --gid) {
      group << "paddock-g" << gid << ":x:" << gid << ":paddock-b,paddock-a\n";
      group << "paddock-n" << gid << ":x:" << gid + 5000 << ":paddock-b\n";
    }
  }
  for (std::uint32_t gid = 1001; gid <= 1300; ++gid) expected.push_back(gid);
  runInOwnMounts([&] {
    bindMount(folder.path("passwd"), "/etc/passwd");
    bindMount(folder.path("group"), "/etc/group");
    NssUserGroups groups;
    Gids gids;
    ASSERT_EQ(groups.groupsOf(4711, gids), 0);
    EXPECT_EQ(gids, expected);
  });
}

}  // namespace
}  // namespace paddock
