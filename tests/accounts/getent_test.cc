// The files as the host reads them: libnss-extrausers, queried by getent(1), in a mount namespace
// of the test's own. The module reads files only at a fixed path, so the test's folder is mounted
// there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/extra_users_world.h"
#include "support/own_mounts.h"
#include "support/run_to_end.h"

namespace paddock {
namespace {

constexpr const char* kPlace = "/var/lib/extrausers";

std::string whyNot() {
  if (::access("/usr/lib/libnss_extrausers.so.2", F_OK) != 0)
    return "libnss-extrausers is not installed";
  if (!std::filesystem::is_directory(kPlace)) return std::string("there is no ") + kPlace;
  return whyNoOwnMounts();
}

std::string getent(std::vector<std::string> words) {
  words.insert(words.begin(), {"/usr/bin/getent", "-s", "extrausers"});
  const EndedProgram ended = runProgram(words);
  return ended.status == 0 ? ended.output : "status " + std::to_string(ended.status);
}

class GetentLookups : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const auto why = whyNot(); !why.empty()) GTEST_SKIP() << why;
  }
  // Runs in a child.
  void showToTheHost() { bindMount(world_.extraFolder(), kPlace); }
  void put(const char* type, const std::string& name, const Dictionary& attributes) {
    ExtraUsersWorld::put(service_, type, name, attributes);
  }
  void putAnna() {
    put(schema::kUsers, "anna",
        {{schema::kUniqueID, "5001"},
         {schema::kPrimaryGroupID, "5100"},
         {schema::kRealName, "Anna \xc3\x84hrens, room 5"},
         {schema::kHomeDirectory, "/srv/home/anna"},
         {schema::kUserShell, "/bin/bash"}});
    put(schema::kGroups, "staff",
        {{schema::kPrimaryGroupID, "5100"}, {schema::kGroupMembership, Array{"Anna", "root"}}});
  }

  ExtraUsersWorld world_;
  LinuxDirectoryService service_{world_.directoryOptions()};
};

constexpr const char* kAnna =
    "anna:x:5001:5100:Anna \xc3\x84hrens, room 5:/srv/home/anna:/bin/bash\n";

TEST_F(GetentLookups, FindsUsersAndGroupsByNameAndId) {
  putAnna();
  runInOwnMounts([&] {
    showToTheHost();
    EXPECT_EQ(getent({"passwd", "anna"}), kAnna);
    EXPECT_EQ(getent({"passwd", "5001"}), kAnna);
    EXPECT_EQ(getent({"group", "staff"}), "staff:x:5100:anna,root\n");
    EXPECT_EQ(getent({"group", "5100"}), "staff:x:5100:anna,root\n");
    EXPECT_THAT(getent({"initgroups", "anna"}), ::testing::MatchesRegex("anna +5100\n"));
    EXPECT_EQ(getent({"passwd", "bert"}), "status 2");
  });
}

TEST_F(GetentLookups, ListsEveryoneAmongTheLinesOfOthers) {
  std::filesystem::create_directory(world_.extraFolder());
  writeWholeFile(world_.path("passwd"), "# by hand\nlisa:x:6001:6001::/home/lisa:/bin/sh\n");
  putAnna();
  ExtraUsersWorld::putUser(service_, "Domain User", "5002");
  runInOwnMounts([&] {
    showToTheHost();
    EXPECT_EQ(getent({"passwd"}), std::string("lisa:x:6001:6001::/home/lisa:/bin/sh\n") + kAnna +
                                      plainUserLine("Domain User", "5002"));
  });
}

TEST_F(GetentLookups, FindsPasswordsInShadow) {
  putAnna();
  service_.openLocalNode()->setPassword("anna", "opensesame");
  runInOwnMounts([&] {
    showToTheHost();
    EXPECT_THAT(getent({"shadow", "anna"}), ::testing::StartsWith("anna:$"));
  });
}

TEST_F(GetentLookups, NoLongerFindsWhatIsGone) {
  putAnna();
  service_.openLocalNode()->findRecord("anna", schema::kUsers)->removeRecord();
  service_.openLocalNode()->findRecord("staff", schema::kGroups)->removeRecord();
  runInOwnMounts([&] {
    showToTheHost();
    EXPECT_EQ(getent({"passwd"}), "");
    EXPECT_EQ(getent({"group"}), "");
    EXPECT_EQ(getent({"shadow"}), "");
  });
}

TEST_F(GetentLookups, FindsGroupAfterOneWithTenThousandMembers) {
  Array members;
  for (int number = 0; number < 10'000; ++number)
    members.emplace_back("member" + std::to_string(number));
  put(schema::kGroups, "many",
      {{schema::kPrimaryGroupID, "5100"}, {schema::kGroupMembership, members}});
  put(schema::kGroups, "staff", {{schema::kPrimaryGroupID, "5101"}});
  runInOwnMounts([&] {
    showToTheHost();
    EXPECT_THAT(getent({"group", "many"}), ::testing::EndsWith(",member9999\n"));
    EXPECT_EQ(getent({"group", "staff"}), "staff:x:5101:\n");
    EXPECT_THAT(getent({"initgroups", "member9999"}),
                ::testing::MatchesRegex("member9999 +5100\n"));
  });
}

// What the name service of the host makes of it: nobody is in a group that is as good as root.
TEST_F(GetentLookups, NeverFindsMembersOfPrivilegedGroups) {
  writeWholeFile(world_.hostPath("group"), "root:x:0:\nshadow:x:42:\ndocker:x:998:\n");
  put(schema::kGroups, "backup-access", {{schema::kPrimaryGroupID, "250"}});
  put(schema::kUsers, "low", {{schema::kUniqueID, "499"}});
  put(schema::kUsers, "first", {{schema::kUniqueID, "500"}, {schema::kPrimaryGroupID, "100"}});
  put(schema::kUsers, "inlow", {{schema::kUniqueID, "5001"}, {schema::kPrimaryGroupID, "42"}});
  put(schema::kUsers, "indocker", {{schema::kUniqueID, "5002"}, {schema::kPrimaryGroupID, "998"}});
  put(schema::kGroups, "lxd",
      {{schema::kPrimaryGroupID, "5100"}, {schema::kGroupMembership, Array{"first"}}});
  put(schema::kGroups, "crew",
      {{schema::kPrimaryGroupID, "998"}, {schema::kGroupMembership, Array{"first"}}});
  runInOwnMounts([&] {
    showToTheHost();
    EXPECT_EQ(getent({"group"}), "");
    EXPECT_EQ(getent({"passwd"}), "first:x:500:100::/nonexistent:/usr/sbin/nologin\n");
    EXPECT_THAT(getent({"initgroups", "first"}), ::testing::MatchesRegex("first *\n"));
  });
  EXPECT_EQ(world_.logger.lines().size(), 6U);
}

}  // namespace
}  // namespace paddock
