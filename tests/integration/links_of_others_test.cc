// The owner of a folder above a shared one replaces part of its path by a symlink: an
// administrator's ordinary commands change nothing through it, and report the owner of the symlink.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "integration/keelhouse_fixture.h"
#include "wire/json.h"

namespace paddock::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;

constexpr uid_t kUser = 1;  // "daemon", an ordinary user
constexpr const char* kAttribute = "security.NTACL";

std::string json(const Value& value) { return wire::writeJson(value); }

class LinksOfOthers : public KeelhouseFixture {
 protected:
  void SetUp() override {
    KeelhouseTree::SetUp();  // NOLINT(bugprone-parent-virtual-call): started below
    if (IsSkipped() || HasFatalFailure()) return;
    const std::string contents =
        tree_.path("/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/");
    for (const char* program : {COPYPRIVS_PROGRAM, EFFECTIVEPRIVS_PROGRAM}) {
      fs::copy_file(program, contents + fs::path(program).filename().string());
    }
    fs::copy_file(QUOTASCAN_PROGRAM, tree_.path("/usr/sbin/quotascan"));
    fs::create_directories(tree_.path("/tmp"));
    tree_.configure(
        "[volumes]\nquota_backend = \"accounting\"\nquota_checker = \"/usr/sbin/quotascan\"\n");
    startDaemon();
    users_ = makeFolder("user");
    shared_ = makeFolder("user/team/shared");
    victim_ = makeFolder("system/shared");
    writeWholeFile(victim_ + "/secret", "secret");
    writeWholeFile(victim_ + "/.com.veltro.backstow.supported", "");
    for (const char* folder : {"system", "system/shared", "system/shared/secret"}) {
      ASSERT_EQ(::chmod(folder_.path(folder).c_str(), 0700), 0);
    }
    for (const auto& entry : fs::recursive_directory_iterator(users_)) give(entry.path());
    give(users_);
    ASSERT_EQ(keelhouse({"share", "add", shared_}).status, 0);
  }

  static void give(const std::string& path) {
    ASSERT_EQ(::lchown(path.c_str(), kUser, kUser), 0) << path;
  }
  // The user's move: what was a folder leads elsewhere now.
  void attack() {
    fs::rename(users_ + "/team", users_ + "/was");
    fs::create_symlink(folder_.path("system"), link());
    give(link());
  }
  std::string link() const { return users_ + "/team"; }

  // Everything that a privilege is, of the folder and of what is in it.
  std::string victimsState() const {
    std::string state;
    for (const std::string& path : {folder_.path("system"), victim_, victim_ + "/secret"}) {
      struct stat status {};
      EXPECT_EQ(::lstat(path.c_str(), &status), 0);
      state += path + " " + std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) +
               " " + std::to_string(status.st_gid);
      for (const char* name : {kAttribute, "system.posix_acl_access", "system.posix_acl_default"}) {
        state += " " + std::to_string(::getxattr(path.c_str(), name, nullptr, 0));
      }
      state += "\n";
    }
    for (const auto& entry : fs::recursive_directory_iterator(folder_.path("system"))) {
      state += entry.path().string() + "\n";
    }
    return state;
  }

  void expectRefused(const std::vector<std::string>& words) {
    const std::string before = victimsState();
    const EndedProgram ended = keelhouse(words);
    EXPECT_EQ(ended.status, 1) << words.front() << " " << ended.output << ended.error;
    EXPECT_THAT(ended.error, AllOf(HasSubstr(link() + " is a symbolic link of daemon"),
                                   HasSubstr("chown -h root '" + link() + "'")));
    EXPECT_EQ(victimsState(), before) << words.front() << " " << words[1];
  }

  std::string users_;
  std::string shared_;
  std::string victim_;
};

TEST_F(LinksOfOthers, PrivilegesAndListsAreNotSetThroughThem) {
  attack();
  for (const bool isShared : {true, false}) {
    if (!isShared) {
      ASSERT_EQ(keelhouse({"share", "remove", shared_}).status, 0);
    }
    expectRefused({"privs", "set", shared_, "--mode", "777"});
    expectRefused({"privs", "set", shared_, "--owner", "daemon"});
    expectRefused({"acl", "set", shared_, "allow user:daemon full:inherit"});
    expectRefused({"acl", "add", shared_, "allow user:daemon read"});
    expectRefused({"propagate", shared_, "--group-perm", "--world-perm", "--follow"});
    expectRefused({"propagate", shared_, "--acl", "--follow"});
  }
}

TEST_F(LinksOfOthers, SpecialBitsAreNotSetThroughThem) {
  attack();
  const std::string before = victimsState();
  const EndedProgram ended = keelhouse({"request", "paddock_files", "setModeBits",
                                        json(Dictionary{{"path", shared_}, {"bits", "7"}})});
  EXPECT_THAT(ended.output, HasSubstr("\"status\": 13"));
  const EndedProgram list =
      keelhouse({"request", "paddock_files", "makeComplete", json(Dictionary{{"path", shared_}})});
  EXPECT_THAT(list.output, HasSubstr("\"status\": 13"));
  EXPECT_EQ(victimsState(), before);
}

TEST_F(LinksOfOthers, BackupsNeitherOpenNorTidyTheirTargets) {
  attack();
  const std::string before = victimsState();
  for (const bool isBackup : {true, false}) {
    const Dictionary request{
        {"optionalArguments", Dictionary{{"path", shared_}}},
        {"configuration",
         Dictionary{
             {"sharePointRecord", Dictionary{{"path", shared_}, {"isBackstowBackup", isBackup}}}}}};
    keelhouse({"request", "paddock_sharing", "writeSettings", json(request)});
    EXPECT_EQ(victimsState(), before) << isBackup;
  }
}

TEST_F(LinksOfOthers, QuotasAreNotSwitchedThroughThem) {
  attack();
  const std::string before = victimsState();
  for (const bool on : {true, false}) {
    const Dictionary request{
        {"optionalArguments", Dictionary{{"path", shared_}}},
        {"configuration", Dictionary{{"volumeQuotas", Dictionary{{"isEnabled", on}}}}}};
    const EndedProgram ended =
        keelhouse({"request", "paddock_sharing", "writeSettings", json(request)});
    EXPECT_THAT(ended.output, HasSubstr("\"CANNOT_SET_QUOTA_STATE_ERR\""));
    EXPECT_EQ(victimsState(), before) << on;
  }
  const EndedProgram scan = runProgram({tree_.path("/usr/sbin/quotascan"), "-u", shared_});
  EXPECT_NE(scan.status, 0);
  EXPECT_THAT(scan.error, HasSubstr(link() + " is a symbolic link of daemon"));
  EXPECT_EQ(victimsState(), before);
}

TEST_F(LinksOfOthers, WhatIsBehindThemIsStillRead) {
  attack();
  EXPECT_THAT(done({"privs", "show", shared_}), HasSubstr("mode: 700"));
  EXPECT_EQ(keelhouse({"effective", shared_, "root"}).status, 0);
}

TEST_F(LinksOfOthers, RootsSymlinksAndThoseToOwnFoldersCount) {
  fs::create_symlink(users_, folder_.path("roots"));
  fs::create_symlink("team", users_ + "/mine");
  give(users_ + "/mine");
  for (const std::string& path : {folder_.path("roots/team/shared"), users_ + "/mine/shared"}) {
    EXPECT_EQ(keelhouse({"privs", "set", path, "--mode", "755"}).status, 0);
    EXPECT_THAT(done({"privs", "set", path, "--mode", "711"}), HasSubstr("mode: 711"));
    EXPECT_EQ(keelhouse({"propagate", path, "--world-perm", "--follow"}).status, 0);
  }
}

TEST_F(LinksOfOthers, ProcLinksToObjectsAreNotRead) {
  const std::string path = "/proc/" + std::to_string(::getpid()) + "/root" + victim_;
  const EndedProgram shown = keelhouse({"privs", "show", path});
  EXPECT_NE(shown.status, 0) << shown.output;
  const EndedProgram set = keelhouse({"privs", "set", path, "--mode", "777"});
  EXPECT_EQ(set.status, 1);
  const EndedProgram effective = runProgram(
      {tree_.path("/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs"),
       "-p", path, "-u", "1"});
  EXPECT_EQ(effective.output, "");
  EXPECT_THAT(effective.error, HasSubstr("Permission denied"));
  struct stat status {};
  ASSERT_EQ(::stat(victim_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

class AnotherFolder : public LinksOfOthers {
 protected:
  // The same path, another inode.
  void replaceFolder() {
    fs::rename(shared_, users_ + "/was");
    ASSERT_EQ(::mkdir(shared_.c_str(), 0750), 0);
    writeWholeFile(shared_ + "/inside", "");
    ASSERT_EQ(::chmod((shared_ + "/inside").c_str(), 0600), 0);
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777U;
  }
  void expectLeftAlone() {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"privs", "set", shared_, "--mode", "777"},
          {"acl", "set", shared_, "allow user:daemon full"},
          {"propagate", shared_, "--world-perm", "--follow"}}) {
      const EndedProgram ended = keelhouse(words);
      EXPECT_EQ(ended.status, 1) << words.front() << ended.output;
      EXPECT_THAT(ended.error,
                  AllOf(HasSubstr("another folder is there than the one that was shared"),
                        HasSubstr("keelhouse share add PATH --from FILE")));
    }
    EXPECT_EQ(modeOf(shared_), 0750U);
    EXPECT_EQ(modeOf(shared_ + "/inside"), 0600U);
    EXPECT_EQ(::getxattr(shared_.c_str(), kAttribute, nullptr, 0), -1);
  }
};

TEST_F(AnotherFolder, ReplacingSharedFolderStaysUntouchedUntilSharedAgain) {
  EXPECT_EQ(keelhouse({"privs", "set", shared_, "--mode", "750"}).status, 0);
  replaceFolder();
  expectLeftAlone();
  EXPECT_EQ(daemon_->stop(), 0);
  startDaemon();
  expectLeftAlone();
  EXPECT_EQ(keelhouse({"share", "set", shared_, "--smb-name", "other"}).status, 0);
  expectLeftAlone();
  const std::string document = done({"share", "show", "--json", shared_});
  EXPECT_EQ(keelhouse({"share", "remove", shared_}).status, 0);
  EXPECT_EQ(keelhouse({"share", "add", shared_, "--from", "-"}, document).status, 0);
  EXPECT_EQ(keelhouse({"privs", "set", shared_, "--mode", "711"}).status, 0);
  EXPECT_EQ(keelhouse({"propagate", shared_, "--world-perm", "--follow"}).status, 0);
  EXPECT_EQ(modeOf(shared_), 0711U);
}

TEST_F(AnotherFolder, AMovedShareIsTheNewFolders) {
  const std::string moved = makeFolder("moved");
  EXPECT_EQ(keelhouse({"share", "move", shared_, moved}).status, 0);
  EXPECT_EQ(keelhouse({"privs", "set", moved, "--mode", "750"}).status, 0);
  EXPECT_EQ(keelhouse({"privs", "set", shared_, "--mode", "750"}).status, 0) << "shared no longer";
  shared_ = moved;
  replaceFolder();
  expectLeftAlone();
}

TEST_F(AnotherFolder, ReadingShareReturnsNothingOfIt) {
  const std::string before = done({"share", "show", "--json", shared_});
  replaceFolder();
  EXPECT_EQ(done({"share", "show", "--json", shared_}), before);
  EXPECT_TRUE(fs::exists(tree_.path("/var/lib/paddock/shared-folders.sqlite")));
}

}  // namespace
}  // namespace paddock::testing
