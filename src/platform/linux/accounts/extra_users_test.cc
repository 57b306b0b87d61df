#include "platform/linux/accounts/extra_users.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "support/extra_users_world.h"

namespace paddock {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Line = RecordingLogger::Line;

class ExtraUsersFiles : public ::testing::Test {
 protected:
  void putUser(const std::string& name, const std::string& id) {
    ExtraUsersWorld::putUser(service_, name, id);
  }
  void put(const char* type, const std::string& name, const Dictionary& attributes) {
    ExtraUsersWorld::put(service_, type, name, attributes);
  }
  void remove(const char* type, const std::string& name) {
    service_.openLocalNode()->findRecord(name, type)->removeRecord();
  }
  struct stat statusOf(const std::string& name) {
    struct stat status {};
    EXPECT_EQ(::stat(world_.path(name).c_str(), &status), 0) << name;
    return status;
  }
  mode_t modeOf(const std::string& name) { return statusOf(name).st_mode & 07777; }
  std::string passwd() { return world_.contents("passwd"); }
  std::vector<Line> takeLog() {
    auto lines = world_.logger.lines();
    world_.logger.clear();
    return lines;
  }

  ExtraUsersWorld world_;
  LinuxDirectoryService service_{world_.directoryOptions()};
};

TEST_F(ExtraUsersFiles, RecordChangesReachUserAndGroupFiles) {
  put(schema::kUsers, "anna",
      {{schema::kUniqueID, "5001"},
       {schema::kPrimaryGroupID, "5100"},
       {schema::kRealName, "Anna Ahrens"},
       {schema::kHomeDirectory, "/srv/home/anna"},
       {schema::kUserShell, "/bin/bash"}});
  put(schema::kGroups, "staff",
      {{schema::kPrimaryGroupID, "5100"}, {schema::kGroupMembership, Array{"anna", "root"}}});
  EXPECT_EQ(passwd(), ownBlock("anna:x:5001:5100:Anna Ahrens:/srv/home/anna:/bin/bash\n"));
  EXPECT_EQ(world_.contents("group"), ownBlock("staff:x:5100:anna,root\n"));
  EXPECT_EQ(world_.contents("shadow"), ownBlock("anna:*:::::::\n"));
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ExtraUsersFiles, EveryKindOfChangeIsFollowed) {
  putUser("anna", "5001");
  const auto record = service_.openLocalNode()->findRecord("anna", schema::kUsers);
  record->setAttribute(schema::kUniqueID, "5002");
  EXPECT_THAT(passwd(), HasSubstr("anna:x:5002:"));
  record->setAttribute(schema::kRecordName, "anne");
  EXPECT_THAT(passwd(), HasSubstr("anne:x:5002:"));
  record->removeAttribute(schema::kUniqueID);
  EXPECT_EQ(passwd(), "");
}

TEST_F(ExtraUsersFiles, RemovedRecordRemovesItsLines) {
  putUser("anna", "5001");
  putUser("bert", "5002");
  remove(schema::kUsers, "anna");
  EXPECT_EQ(passwd(), ownBlock(plainUserLine("bert", "5002")));
  EXPECT_EQ(world_.contents("shadow"), ownBlock("bert:*:::::::\n"));
  remove(schema::kUsers, "bert");
  EXPECT_EQ(passwd(), "");
  EXPECT_EQ(world_.contents("shadow"), "");
}

TEST_F(ExtraUsersFiles, APasswordIsInShadowAlone) {
  put(schema::kUsers, "anna", {{schema::kUniqueID, "5001"}, {schema::kUserShell, "/bin/sh"}});
  service_.openLocalNode()->setPassword("anna", "opensesame");
  EXPECT_THAT(world_.contents("shadow"), HasSubstr("anna:$"));
  EXPECT_THAT(passwd(), AllOf(HasSubstr("anna:x:5001:"), Not(HasSubstr("$"))));
}

TEST_F(ExtraUsersFiles, OtherRecordsAreNoneOfItsBusiness) {
  put("dsRecTypeStandard:SharePoints", "Docs", {{schema::kUniqueID, "5001"}});
  EXPECT_FALSE(std::filesystem::exists(world_.extraFolder()));
}

TEST_F(ExtraUsersFiles, NothingIsMadeToHoldNothing) {
  service_.refreshExtraUsers();
  put(schema::kUsers, "anna", {{schema::kRealName, "no id"}});
  EXPECT_FALSE(std::filesystem::exists(world_.extraFolder()));
  EXPECT_THAT(takeLog(), IsEmpty());
}

TEST_F(ExtraUsersFiles, NewFilesAreReadableButForShadow) {
  const mode_t before = ::umask(0077);
  putUser("anna", "5001");
  put(schema::kGroups, "staff", {{schema::kPrimaryGroupID, "5100"}});
  ::umask(before);
  EXPECT_EQ(modeOf(""), 0755U);
  EXPECT_EQ(modeOf("passwd"), 0644U);
  EXPECT_EQ(modeOf("group"), 0644U);
  if (::geteuid() == 0) {
    EXPECT_EQ(modeOf("shadow"), 0640U);
    EXPECT_EQ(statusOf("shadow").st_gid, 42U) << "the host's group \"shadow\"";
  } else {
    EXPECT_EQ(modeOf("shadow"), 0600U);
  }
}

TEST_F(ExtraUsersFiles, WithoutShadowGroupOnlyOwnerReadsShadow) {
  writeWholeFile(world_.hostPath("group"), "root:x:0:\n");
  putUser("anna", "5001");
  EXPECT_EQ(modeOf("shadow"), 0600U);
}

class ExtraUsersAmongOthers : public ExtraUsersFiles {
 protected:
  ExtraUsersAmongOthers() { std::filesystem::create_directory(world_.extraFolder()); }
};

TEST_F(ExtraUsersAmongOthers, LinesOfOthersStay) {
  const std::string others = "# by hand\nlisa:x:6001:6001::/home/lisa:/bin/sh\n";
  writeWholeFile(world_.path("passwd"), others);
  putUser("anna", "5001");
  EXPECT_EQ(passwd(), others + ownBlock(plainUserLine("anna", "5001")));
  writeWholeFile(world_.path("passwd"), others + ownBlock("") + "lars:x:6002:6002::/:/bin/sh");
  putUser("bert", "5002");
  EXPECT_EQ(passwd(), others +
                          ownBlock(plainUserLine("anna", "5001") + plainUserLine("bert", "5002")) +
                          "lars:x:6002:6002::/:/bin/sh");
  remove(schema::kUsers, "anna");
  remove(schema::kUsers, "bert");
  EXPECT_EQ(passwd(), others + "lars:x:6002:6002::/:/bin/sh");
}

TEST_F(ExtraUsersAmongOthers, AccountsOfOthersAreTheHosts) {
  writeWholeFile(world_.path("passwd"), "anna:x:6001:6001::/home/anna:/bin/sh\n");
  writeWholeFile(world_.path("group"), "staff:x:6100:\n");
  putUser("anna", "5001");
  putUser("bert", "6001");
  put(schema::kGroups, "crew", {{schema::kPrimaryGroupID, "6100"}});
  EXPECT_EQ(passwd(), "anna:x:6001:6001::/home/anna:/bin/sh\n");
  EXPECT_EQ(world_.contents("group"), "staff:x:6100:\n");
  EXPECT_EQ(takeLog().size(), 3U);
}

TEST_F(ExtraUsersAmongOthers, AnEarlierFilesOwnerAndModeStay) {
  for (const char* name : {"passwd", "group", "shadow"}) {
    writeWholeFile(world_.path(name), "");
    ASSERT_EQ(::chmod(world_.path(name).c_str(), 0600), 0);
    if (::geteuid() == 0) {
      ASSERT_EQ(::chown(world_.path(name).c_str(), 12, 34), 0);
    }
  }
  putUser("anna", "5001");
  put(schema::kGroups, "staff", {{schema::kPrimaryGroupID, "5100"}});
  for (const char* name : {"passwd", "group", "shadow"}) {
    EXPECT_EQ(modeOf(name), 0600U) << name;
    if (::geteuid() == 0) {
      EXPECT_EQ(statusOf(name).st_uid, 12U) << name;
      EXPECT_EQ(statusOf(name).st_gid, 34U) << name;
    }
    EXPECT_NE(statusOf(name).st_size, 0) << name;
  }
}

TEST_F(ExtraUsersAmongOthers, AShadowThatOthersCanReadIsClosed) {
  writeWholeFile(world_.path("shadow"), "lisa:$6$hash:::::::\n");
  ASSERT_EQ(::chmod(world_.path("shadow").c_str(), 0664), 0);
  service_.refreshExtraUsers();
  EXPECT_EQ(modeOf("shadow"), 0660U);
  EXPECT_EQ(world_.contents("shadow"), "lisa:$6$hash:::::::\n");
}

TEST_F(ExtraUsersAmongOthers, ALinkStaysAndItsTargetIsReplaced) {
  writeWholeFile(world_.folder.path("elsewhere"), "");
  std::filesystem::create_symlink("../elsewhere", world_.path("passwd"));
  putUser("anna", "5001");
  EXPECT_TRUE(std::filesystem::is_symlink(world_.path("passwd")));
  EXPECT_EQ(readWholeFile(world_.folder.path("elsewhere")),
            ownBlock(plainUserLine("anna", "5001")));
}

TEST_F(ExtraUsersAmongOthers, FolderWritableByOthersIsLeftAlone) {
  ASSERT_EQ(::chmod(world_.extraFolder().c_str(), 0777), 0);
  putUser("anna", "5001");
  EXPECT_TRUE(std::filesystem::is_empty(world_.extraFolder()));
  EXPECT_THAT(takeLog(),
              ElementsAre(Line{kLogError, "accounts: others may write to folder " +
                                              world_.extraFolder() + ": Operation not permitted"}));
}

TEST_F(ExtraUsersAmongOthers, SymlinkedFolderIsLeftAlone) {
  std::filesystem::remove(world_.extraFolder());
  std::filesystem::create_directory(world_.folder.path("elsewhere"));
  std::filesystem::create_directory_symlink("elsewhere", world_.extraFolder());
  putUser("anna", "5001");
  EXPECT_TRUE(std::filesystem::is_empty(world_.folder.path("elsewhere")));
  EXPECT_EQ(takeLog().size(), 1U);
}

TEST_F(ExtraUsersAmongOthers, AFolderOfAnotherUserIsLeftAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a folder away needs root";
  ASSERT_EQ(::chown(world_.extraFolder().c_str(), 1000, 1000), 0);
  putUser("anna", "5001");
  EXPECT_TRUE(std::filesystem::is_empty(world_.extraFolder()));
  EXPECT_EQ(takeLog().size(), 1U);
}

TEST_F(ExtraUsersAmongOthers, FileWithBrokenBlockLeavesAllFilesAlone) {
  const std::string broken = kManagedBlockBegin + std::string("whose:x:6001:\n");
  writeWholeFile(world_.path("group"), broken);
  putUser("anna", "5001");
  EXPECT_EQ(world_.contents("group"), broken);
  EXPECT_FALSE(std::filesystem::exists(world_.path("passwd")));
  EXPECT_THAT(takeLog(),
              ElementsAre(Line{kLogError, "accounts: " + world_.path("group") +
                                              ": the comments around our lines are not one pair"}));
}

TEST_F(ExtraUsersAmongOthers, WhatIsNoFileIsLeftAlone) {
  ASSERT_EQ(::mkfifo(world_.path("shadow").c_str(), 0600), 0);
  putUser("anna", "5001");
  EXPECT_TRUE(std::filesystem::is_fifo(world_.path("shadow")));
  EXPECT_THAT(takeLog(), ElementsAre(Line{kLogError, "accounts: reading " + world_.path("shadow") +
                                                         ": Invalid argument"}));
}

// The host's own accounts.

TEST_F(ExtraUsersFiles, HostAccountsAreOmittedAndLoggedOnce) {
  writeWholeFile(world_.hostPath("passwd"), "anna:x:1000:1000::/home/anna:/bin/sh\n");
  putUser("anna", "5001");
  putUser("bert", "1000");
  putUser("carl", "5003");
  EXPECT_EQ(passwd(), ownBlock(plainUserLine("carl", "5003")));
  EXPECT_THAT(
      takeLog(),
      ElementsAre(Line{kLogWarning,
                       "accounts: user \"anna\" is left out: the host has a user of this name"},
                  Line{kLogWarning,
                       "accounts: user \"bert\" is left out: the host has a user with the id "
                       "1000"}));
}

TEST_F(ExtraUsersFiles, LaterHostAccountReplacesOurs) {
  putUser("anna", "5001");
  service_.refreshExtraUsers();
  const std::string before = readWholeFile(world_.hostPath("passwd"));
  writeWholeFile(world_.hostPath("passwd"), before + "anna:x:1000:1000::/home/anna:/bin/sh\n");
  service_.refreshExtraUsers();
  EXPECT_EQ(passwd(), "");
  EXPECT_EQ(takeLog().size(), 1U);
  writeWholeFile(world_.hostPath("passwd"), before);
  service_.refreshExtraUsers();
  EXPECT_EQ(passwd(), ownBlock(plainUserLine("anna", "5001")));
}

TEST_F(ExtraUsersFiles, WithoutTheHostsFilesNothingIsLeftOut) {
  std::filesystem::remove(world_.hostPath("passwd"));
  putUser("anna", "5001");
  EXPECT_EQ(passwd(), ownBlock(plainUserLine("anna", "5001")));
}

TEST_F(ExtraUsersFiles, UnreadableHostFilesPreventWriting) {
  std::filesystem::remove(world_.hostPath("passwd"));
  std::filesystem::create_directory(world_.hostPath("passwd"));
  putUser("anna", "5001");
  EXPECT_FALSE(std::filesystem::exists(world_.extraFolder()));
  EXPECT_THAT(takeLog(),
              ElementsAre(Line{kLogError, "accounts: reading " + world_.hostPath("passwd") +
                                              ": Is a directory"}));
}

// When it writes.

TEST_F(ExtraUsersFiles, WhatIsUnchangedIsNotWrittenAgain) {
  putUser("anna", "5001");
  const auto passwdBefore = statusOf("passwd");
  const auto shadowBefore = statusOf("shadow");
  put(schema::kUsers, "anna", {{"comment", "of no account"}});
  put(schema::kUsers, "anna", {{schema::kRealName, "Anna"}});
  EXPECT_NE(statusOf("passwd").st_ino, passwdBefore.st_ino);
  EXPECT_EQ(statusOf("shadow").st_ino, shadowBefore.st_ino);
  EXPECT_EQ(statusOf("shadow").st_mtim.tv_nsec, shadowBefore.st_mtim.tv_nsec);
  EXPECT_FALSE(std::filesystem::exists(world_.path("group")));
}

TEST_F(ExtraUsersFiles, ChangesOfOthersAreFoundByLooking) {
  putUser("anna", "5001");
  LinuxDirectoryOptions options = world_.directoryOptions();
  options.extraUsers.reset();
  LinuxDirectoryService other(options);
  ExtraUsersWorld::putUser(other, "bert", "5002");
  EXPECT_THAT(passwd(), Not(HasSubstr("bert")));
  service_.refreshExtraUsers();
  EXPECT_THAT(passwd(), HasSubstr("bert"));
}

TEST_F(ExtraUsersFiles, UnobservedChangesAreCaughtUp) {
  {
    LinuxDirectoryOptions options = world_.directoryOptions();
    options.extraUsers.reset();
    LinuxDirectoryService other(options);
    ExtraUsersWorld::putUser(other, "anna", "5001");
  }
  LinuxDirectoryService started(world_.directoryOptions());
  started.refreshExtraUsers();
  EXPECT_EQ(passwd(), ownBlock(plainUserLine("anna", "5001")));
}

TEST_F(ExtraUsersFiles, ChecksWithoutChangeDoNothingForHour) {
  putUser("anna", "5001");
  service_.refreshExtraUsers();
  std::filesystem::remove(world_.path("passwd"));
  service_.refreshExtraUsers();
  EXPECT_FALSE(std::filesystem::exists(world_.path("passwd")));
  world_.clock.advance(ExtraUsers::kLookAgain);
  service_.refreshExtraUsers();
  EXPECT_EQ(passwd(), ownBlock(plainUserLine("anna", "5001")));
}

TEST_F(ExtraUsersFiles, ADatabaseOfAnotherDirectoryIsNoticed) {
  putUser("anna", "5001");
  service_.refreshExtraUsers();
  std::filesystem::remove(world_.folder.path("directory.sqlite"));
  service_.refreshExtraUsers();
  EXPECT_EQ(passwd(), "");
}

TEST_F(ExtraUsersFiles, FailureIsLoggedAndRecordChangeSucceeds) {
  writeWholeFile(world_.extraFolder(), "a file");
  putUser("anna", "5001");
  EXPECT_NE(service_.openLocalNode()->findRecord("anna", schema::kUsers), nullptr);
  ASSERT_EQ(world_.logger.lines().size(), 1U);
  EXPECT_EQ(takeLog().front().priority, kLogError);
}

TEST_F(ExtraUsersFiles, FailureIsRetriedAfterMinuteAndLoggedOnce) {
  writeWholeFile(world_.extraFolder(), "a file");
  putUser("anna", "5001");
  EXPECT_EQ(takeLog().size(), 1U);
  putUser("bert", "5002");
  service_.refreshExtraUsers();
  EXPECT_THAT(takeLog(), IsEmpty()) << "the same trouble";
  std::filesystem::remove(world_.extraFolder());
  service_.refreshExtraUsers();
  EXPECT_FALSE(std::filesystem::exists(world_.extraFolder())) << "not yet";
  world_.clock.advance(ExtraUsers::kRetry);
  service_.refreshExtraUsers();
  EXPECT_THAT(passwd(), HasSubstr("bert"));
  std::filesystem::remove_all(world_.extraFolder());
  writeWholeFile(world_.extraFolder(), "a file");
  putUser("carl", "5003");
  EXPECT_EQ(takeLog().size(), 1U) << "it had gone meanwhile";
}

TEST_F(ExtraUsersFiles, DamagedDatabaseIsLoggedOnceWithoutLoss) {
  putUser("anna", "5001");
  const std::string before = passwd();
  writeWholeFile(world_.folder.path("directory.sqlite"), std::string(8192, 'x'));
  for (int second = 0; second < 3; ++second) {
    service_.refreshExtraUsers();
    world_.clock.advance(ExtraUsers::kRetry);
  }
  EXPECT_EQ(passwd(), before);
  ASSERT_EQ(world_.logger.lines().size(), 1U);
  EXPECT_THAT(takeLog().front().text, HasSubstr("directory.sqlite"));
}

TEST_F(ExtraUsersFiles, UnavailableLockIsLogged) {
  std::filesystem::create_directory(world_.folder.path("lock"));
  putUser("anna", "5001");
  EXPECT_FALSE(std::filesystem::exists(world_.extraFolder()));
  EXPECT_THAT(takeLog(),
              ElementsAre(Line{kLogError, "accounts: locking " + world_.folder.path("lock") +
                                              ": Is a directory"}));
}

TEST_F(ExtraUsersFiles, ServiceWithoutHostOutputWritesNothing) {
  LinuxDirectoryOptions options = world_.directoryOptions();
  options.extraUsers.reset();
  LinuxDirectoryService other(options);
  ExtraUsersWorld::putUser(other, "anna", "5001");
  other.refreshExtraUsers();
  EXPECT_FALSE(std::filesystem::exists(world_.extraFolder()));
}

TEST_F(ExtraUsersFiles, SeveralWritersLeaveWhatAllOfThemWrote) {
  constexpr int kWriters = 4;
  constexpr int kUsers = 10;
  std::vector<std::thread> threads;
  for (int writer = 0; writer < kWriters; ++writer) {
    threads.emplace_back([&, writer] {
      LinuxDirectoryService service(world_.directoryOptions());
      for (int number = 0; number < kUsers; ++number) {
        const std::string id = std::to_string(5000 + writer * kUsers + number);
        ExtraUsersWorld::putUser(service, "user" + id, id);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string contents = passwd();
  for (int id = 5000; id < 5000 + kWriters * kUsers; ++id)
    EXPECT_THAT(contents, HasSubstr("user" + std::to_string(id) + ":x:"));
  EXPECT_THAT(takeLog(), IsEmpty());
}

}  // namespace
}  // namespace paddock
