#include "platform/linux/accounts/account_cache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "platform/linux/accounts/cached_accounts.h"
#include "platform/linux/accounts/user_groups.h"
#include "platform/testing/fake_machine_information.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_membership.h"
#include "support/file_acl_world.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

class AccountCaching : public ::testing::Test {
 protected:
  AccountCaching() { change(); }

  // Changes the file, and lets some time pass.
  void change() {
    writeWholeFile(path_, "change " + std::to_string(++changes_));
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    clock_.setNow(std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(
            std::chrono::seconds(status.st_ctim.tv_sec) +
            std::chrono::nanoseconds(status.st_ctim.tv_nsec))));
    clock_.advance(AccountFiles::kTick * 2);
  }
  // What is answered for a key, by something that says how often it was asked.
  int asked(int key) {
    int answer = 0;
    EXPECT_EQ(cache_.get(key, answer,
                         [this](int& found) {
                           found = ++questions_;
                           return error_;
                         }),
              error_);
    return answer;
  }

  TestFolder folder_;
  const std::string path_ = folder_.path("passwd");
  int changes_ = 0;
  FakeClock clock_;
  AccountFiles files_{clock_, {path_, folder_.path("missing")}};
  AccountCache<int, int> cache_{files_};
  int questions_ = 0;
  int error_ = 0;
};

TEST_F(AccountCaching, AnAnswerIsKeptPerKey) {
  EXPECT_EQ(asked(1), 1);
  EXPECT_EQ(asked(1), 1);
  EXPECT_EQ(asked(2), 2);
  EXPECT_EQ(asked(1), 1);
}

TEST_F(AccountCaching, AChangedFileDropsEveryAnswer) {
  EXPECT_EQ(asked(1), 1);
  change();
  EXPECT_EQ(asked(1), 2);
}

TEST_F(AccountCaching, ReplacedNewOrRemovedFileIsChange) {
  EXPECT_EQ(asked(1), 1);
  writeWholeFile(folder_.path("new"), "change 1");
  std::filesystem::rename(folder_.path("new"), path_);
  clock_.setNow(std::chrono::system_clock::now() + std::chrono::seconds(1));
  EXPECT_EQ(asked(1), 2);
  writeWholeFile(folder_.path("missing"), "");
  EXPECT_EQ(asked(1), 3);
  std::filesystem::remove(folder_.path("missing"));
  EXPECT_EQ(asked(1), 4);
}

TEST_F(AccountCaching, RightAfterAChangeNothingIsKept) {
  clock_.advance(-AccountFiles::kTick * 2);
  EXPECT_EQ(asked(1), 1);
  EXPECT_EQ(asked(1), 2);
  clock_.advance(AccountFiles::kTick * 2);
  EXPECT_EQ(asked(1), 3);
  EXPECT_EQ(asked(1), 3);
}

TEST_F(AccountCaching, AnAnswerHoldsForItsLifetimeAtMost) {
  EXPECT_EQ(asked(1), 1);
  clock_.advance(AccountCache<int, int>::kLifetime - std::chrono::nanoseconds(1));
  EXPECT_EQ(asked(1), 1);
  clock_.advance(std::chrono::nanoseconds(1));
  EXPECT_EQ(asked(1), 2);
}

TEST_F(AccountCaching, PossiblyStaleAnswerIsNotKept) {
  int answer = 0;
  cache_.get(1, answer, [this](int& found) {
    change();
    found = 77;
    return 0;
  });
  EXPECT_EQ(answer, 77);
  EXPECT_EQ(asked(1), 1);
}

TEST_F(AccountCaching, KeepsMissingAccountButNotFailure) {
  error_ = ENOENT;
  asked(1);
  asked(1);
  EXPECT_EQ(questions_, 1);
  error_ = EIO;
  asked(2);
  asked(2);
  EXPECT_EQ(questions_, 3);
}

TEST_F(AccountCaching, FilesAreCheckedOncePerMoment) {
  {
    const AccountFiles::Moment moment(&files_);
    EXPECT_EQ(asked(1), 1);
    change();
    EXPECT_EQ(asked(1), 1);
  }
  EXPECT_EQ(asked(1), 2);
}

TEST_F(AccountCaching, AMomentIsThatOfItsFiles) {
  AccountFiles others(clock_, {});
  const AccountFiles::Moment moment(&others);
  EXPECT_EQ(asked(1), 1);
  change();
  EXPECT_EQ(asked(1), 2);
}

TEST_F(AccountCaching, AMembershipServiceIsAskedOncePerQuestion) {
  InMemoryMembership behind;
  CachedMembership membership(behind, files_);
  const Guid own = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
  behind.setGuid({PrincipalType::user, 1000}, own);
  for (int round = 0; round < 2; ++round) {
    Guid user;
    Guid group;
    Principal principal;
    EXPECT_EQ(membership.uidToGuid(1000, user), 0);
    EXPECT_EQ(user, own);
    EXPECT_EQ(membership.gidToGuid(1000, group), 0);
    EXPECT_EQ(group, computedGuid({PrincipalType::group, 1000}));
    EXPECT_EQ(membership.guidToId(own, principal.id, principal.type), 0);
    EXPECT_EQ(principal, (Principal{PrincipalType::user, 1000}));
    EXPECT_EQ(membership.guidToId(Guid{}, principal.id, principal.type), ENOENT);
    EXPECT_EQ(principal.id, 0U);
    behind.failWith(EIO);  // the second round is answered by what was kept
  }
}

TEST_F(AccountCaching, NamesOfIdsAreKeptButNotReverse) {
  InMemoryAccounts behind;
  CachedAccounts accounts(behind, files_);
  behind.addUser("anna", 1000);
  behind.addGroup("staff", 50);
  std::string name;
  EXPECT_EQ(accounts.getpwuid(1000, name), 0);
  EXPECT_EQ(accounts.getgrgid(50, name), 0);
  EXPECT_EQ(name, "staff");
  std::uint32_t id = 0;
  EXPECT_EQ(accounts.getpwnam("berta", id), ENOENT);
  behind.addUser("berta", 1001);
  EXPECT_EQ(accounts.getpwnam("berta", id), 0);
  EXPECT_EQ(accounts.getgrnam("staff", id), 0);
  EXPECT_EQ(id, 50U);
  EXPECT_EQ(accounts.getpwuid(1002, name), ENOENT);
  behind.addUser("carla", 1002);
  EXPECT_EQ(accounts.getpwuid(1002, name), ENOENT);
  change();
  EXPECT_EQ(accounts.getpwuid(1002, name), 0);
  EXPECT_EQ(name, "carla");
}

TEST_F(AccountCaching, TheGroupsOfAUserAreKept) {
  ListedGroups behind;
  CachedUserGroups groups(behind, files_);
  behind.groups[1000] = {50, 60};
  std::vector<std::uint32_t> gids;
  EXPECT_EQ(groups.groupsOf(1000, gids), 0);
  behind.groups[1000] = {70};
  EXPECT_EQ(groups.groupsOf(1000, gids), 0);
  EXPECT_EQ(gids, (std::vector<std::uint32_t>{50, 60}));
  change();
  EXPECT_EQ(groups.groupsOf(1000, gids), 0);
  EXPECT_EQ(gids, (std::vector<std::uint32_t>{70}));
  behind.error = EIO;
  EXPECT_EQ(groups.groupsOf(1001, gids), EIO);
  EXPECT_EQ(gids, std::vector<std::uint32_t>{});
}

TEST_F(AccountCaching, WatchesNameServiceFilesAndMore) {
  const auto paths = AccountFiles::usual({"/a/database"});
  EXPECT_EQ(paths.front(), "/a/database");
  for (const char* path :
       {"/etc/passwd", "/etc/group", "/var/lib/extrausers/passwd", "/var/lib/extrausers/group"})
    EXPECT_NE(std::find(paths.begin(), paths.end(), path), paths.end()) << path;
}

}  // namespace
}  // namespace paddock
