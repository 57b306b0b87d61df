// `keelhouse share` with the options for automounts and backups, and with hostile names, by way of
// the running daemon.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <filesystem>
#include <string>

#include "integration/keelhouse_fixture.h"

namespace paddock::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

std::string hostName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  EXPECT_EQ(::gethostname(name.data(), name.size()), 0);
  return name.data();
}

// root is an administrator of every node; bert authenticates and may change nothing.
class KeelhouseAutomount : public KeelhouseFixture {
 protected:
  void SetUp() override {
    KeelhouseFixture::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    for (const char* user : {"root", "bert"}) {
      done({"record", "put", "users", user});
      ASSERT_EQ(keelhouse({"record", "password", user}, std::string(user) + "'s\n").status, 0);
    }
  }

  // As the account, with the password on standard input.
  EndedProgram as(const std::string& account, const std::string& password,
                  std::vector<std::string> words) const {
    words.insert(words.end(), {"--admin", account, "--password-fd", "0"});
    return keelhouse(std::move(words), password + "\n");
  }
  EndedProgram asRoot(std::vector<std::string> words) const {
    return as("root", "root's", std::move(words));
  }
  EndedProgram shareHome(std::vector<std::string> more = {}) const {
    std::vector<std::string> words = {"share",  "add",   home(), "--automount", "/Network/Servers/",
                                      "--node", "/Local"};
    words.insert(words.end(), more.begin(), more.end());
    return asRoot(words);
  }
  std::string home() const { return makeFolder("home"); }
  std::string recordName() const { return hostName() + ":" + home(); }
  EndedProgram mountRecord() const { return keelhouse({"record", "show", "mounts", recordName()}); }
};

TEST_F(KeelhouseAutomount, RecordNamesMountSourceAndPlaceForClients) {
  const auto added = shareHome();
  EXPECT_EQ(added.status, 0) << added.error;
  EXPECT_EQ(complaints(added.error), "");
  const std::string record = mountRecord().output;
  EXPECT_THAT(record,
              HasSubstr("dsAttrTypeStandard:VFSLinkDir: /Network/Servers/\n"
                        "dsAttrTypeStandard:VFSOpts: net\n"
                        "dsAttrTypeStandard:VFSOpts: url==vsp://;AUTH=NO%20USER%20AUTHENT@" +
                        hostName() + "/home\ndsAttrTypeStandard:VFSType: url\n"));
  EXPECT_THAT(done({"share", "list"}), HasSubstr("/Network/Servers/ over VSP by /Local\n"));
  EXPECT_THAT(
      done({"share", "show", home(), "--json"}),
      AllOf(HasSubstr("\"isAutomounted\": true"), HasSubstr("\"automountDSPath\": \"/Local\""),
            HasSubstr("\"automountMountPath\": \"/Network/Servers/\""),
            HasSubstr("\"automountFileSystemType\": 0")));
}

TEST_F(KeelhouseAutomount, GoesOverToNfsAndToAnotherPlace) {
  ASSERT_EQ(shareHome().status, 0);
  const auto changed =
      asRoot({"share", "set", home(), "--automount", "/Network/Library", "--nfs", "*(ro)"});
  EXPECT_EQ(changed.status, 0) << changed.error;
  EXPECT_EQ(complaints(changed.error), "");
  const std::string record = mountRecord().output;
  EXPECT_THAT(record, HasSubstr("VFSLinkDir: /Network/Library\ndsAttrTypeStandard:VFSType: nfs\n"));
  EXPECT_THAT(record, Not(HasSubstr("VFSOpts")));
  EXPECT_THAT(tree_.read("/etc/exports"), HasSubstr(home() + " *(ro)\n"));
}

TEST_F(KeelhouseAutomount, FollowsTheNameOverVsp) {
  ASSERT_EQ(shareHome().status, 0);
  const auto quiet = keelhouse({"share", "set", home(), "--vsp-name", "Team Files"});
  EXPECT_EQ(quiet.status, 1);
  EXPECT_THAT(quiet.error, HasSubstr("on /Local says otherwise\nThe node takes it only from an "
                                     "account: keelhouse share set " +
                                     home() + " --admin USER\n"));
  const auto written = asRoot({"share", "set", home()});
  EXPECT_EQ(written.status, 0) << written.error;
  EXPECT_THAT(mountRecord().output, HasSubstr("@" + hostName() + "/Team%20Files\n"));
}

TEST_F(KeelhouseAutomount, IsTakenAway) {
  ASSERT_EQ(shareHome().status, 0);
  const auto changed = asRoot({"share", "set", home(), "--no-automount"});
  EXPECT_EQ(changed.status, 0) << changed.error;
  EXPECT_EQ(mountRecord().status, 1);
  EXPECT_THAT(done({"share", "show", home()}), Not(HasSubstr("utomount")));
  EXPECT_THAT(done({"record", "show", "sharepoints", "home"}), Not(HasSubstr("amt_")));
}

TEST_F(KeelhouseAutomount, GoesWithItsShare) {
  ASSERT_EQ(shareHome().status, 0);
  const auto removed = asRoot({"share", "remove", home()});
  EXPECT_EQ(removed.status, 0) << removed.error;
  EXPECT_EQ(mountRecord().status, 1);
}

TEST_F(KeelhouseAutomount, StaysWithoutCredentialsAndMessageExplainsRemoval) {
  ASSERT_EQ(shareHome().status, 0);
  const auto removed = keelhouse({"share", "remove", home()});
  EXPECT_EQ(removed.status, 1);
  EXPECT_EQ(removed.output, home() + " is no longer shared.\n");
  EXPECT_THAT(removed.error, HasSubstr("\nDelete it: keelhouse record delete mounts " +
                                       recordName() + " --node /Local --admin USER\n"));
  EXPECT_EQ(mountRecord().status, 0);
  const auto deleted =
      keelhouse({"record", "delete", "mounts", recordName(), "--node", "/Local", "--admin", "root"},
                "root's\n");
  EXPECT_EQ(deleted.status, 0) << deleted.error;
  EXPECT_EQ(mountRecord().status, 1);
}

TEST_F(KeelhouseAutomount, IsNotCreatedByWrongOrEmptyPassword) {
  for (const char* password : {"wrong", ""}) {
    const auto refused =
        as("root", password, {"share", "add", home(), "--automount", "/a", "--node", "/Local"});
    EXPECT_NE(refused.status, 0);
    EXPECT_THAT(refused.error, HasSubstr("password is "));
    EXPECT_EQ(done({"share", "list"}), "No folder is shared.\n");
  }
  ASSERT_EQ(shareHome().status, 0);
  EXPECT_EQ(as("root", "wrong", {"share", "remove", home()}).status, 1);
  EXPECT_EQ(keelhouse({"share", "show", home()}).status, 0);
  EXPECT_EQ(mountRecord().status, 0);
}

TEST_F(KeelhouseAutomount, IsNotCreatedByReadOnlyAccount) {
  const auto added =
      as("bert", "bert's", {"share", "add", home(), "--automount", "/a", "--node", "/Local"});
  EXPECT_EQ(added.status, 1);
  EXPECT_THAT(added.output, HasSubstr("isAutomounted: yes\n"));
  EXPECT_THAT(added.error, HasSubstr("is not on /Local\n  error: "));
  EXPECT_THAT(added.error, HasSubstr("was not created: the user may not change the local "
                                     "directory\nbert may not be allowed to write there."));
  EXPECT_EQ(mountRecord().status, 1);
  EXPECT_EQ(asRoot({"share", "set", home()}).status, 0);
  EXPECT_EQ(mountRecord().status, 0);
}

TEST_F(KeelhouseAutomount, ChangesNothingForMissingNode) {
  for (const char* node : {"/Nowhere", "/Local/", "/LDAP/\"x,[y]%", "/\xD7\xA9\xD7\x9C"}) {
    const auto refused = asRoot({"share", "add", home(), "--automount", "/a", "--node", node});
    EXPECT_EQ(refused.status, 1) << refused.output;
    EXPECT_THAT(refused.error, StartsWith(std::string("keelhouse: there is no directory node ") +
                                          node + "\nNothing was changed."));
  }
  EXPECT_EQ(done({"share", "list"}), "No folder is shared.\n");
}

TEST_F(KeelhouseAutomount, IsNotCreatedOnReadOnlyNode) {
  const auto refused =
      keelhouse({"share", "add", home(), "--automount", "/a", "--node", "/System"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, HasSubstr("is not on /System\n"));
}

TEST_F(KeelhouseAutomount, LeavesNoPasswordInTheLogs) {
  ASSERT_EQ(shareHome().status, 0);
  as("root", "wr0ng", {"share", "remove", home()});
  for (const std::string& log : {tree_.read("/var/log/paddock/audit.jsonl"), daemon_->log()}) {
    EXPECT_THAT(log, AllOf(Not(HasSubstr("root's")), Not(HasSubstr("wr0ng")),
                           Not(HasSubstr("dsCredentials"))));
  }
}

class KeelhouseShares : public KeelhouseFixture {
 protected:
  static const std::vector<std::string>& hostileNames() {
    static const std::vector<std::string> names = {
        "\"quoted\" 'twice'",
        "[global]",
        "a, b; c # d",
        "100%U %% %S",
        "back\\slash\\040",
        "\xF0\x9F\x93\x81 \xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9",
        "\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D \xD8\xA7",
        "{}",
        "--json",
        "$(reboot) `x`",
        "dn=x,(&)*",
        "<a>&amp;"};
    return names;
  }
};

TEST_F(KeelhouseShares, PreserveHostileNamesOverEveryProtocol) {
  for (std::size_t at = 0; at < hostileNames().size(); ++at) {
    const std::string& name = hostileNames()[at];
    const std::string folder = makeFolder(std::to_string(at));
    done({"share", "add", folder, "--name", name, "--vsp-name", name, "--smb-name", name,
          "--ftp-name", name});
    EXPECT_THAT(
        done({"share", "show", folder}),
        AllOf(HasSubstr("\nname: " + name + "\n"), HasSubstr("nameOverVSP: " + name + "\n"),
              HasSubstr("nameOverSMB: " + name + "\n"), HasSubstr("nameOverFTP: " + name + "\n")));
    EXPECT_THAT(done({"record", "show", "sharepoints", "--", name}),
                HasSubstr("dsAttrTypeNative:directory_path: " + folder + "\n"));
  }
  for (std::size_t at = 0; at < hostileNames().size(); ++at) {
    done({"share", "remove", makeFolder(std::to_string(at))});
  }
  EXPECT_EQ(done({"share", "list"}), "No folder is shared.\n");
}

TEST_F(KeelhouseShares, RefuseNamesWithControlCharactersOverEveryProtocol) {
  const std::string folder = makeFolder("a");
  for (const char* option : {"--name", "--vsp-name", "--smb-name", "--ftp-name"}) {
    // U+202E, in two parts, so that it turns no line of this file around.
    const std::string reordering = std::string("\xE2\x80") + "\xAE";
    for (const std::string& name : {std::string("a\nb"), std::string("\x1B]0;title\x07"),
                                    reordering + "exe", std::string()}) {
      const auto refused = keelhouse({"share", "add", folder, option, name});
      EXPECT_EQ(refused.status, 2);
      EXPECT_THAT(refused.error, StartsWith(std::string("keelhouse: ") + option));
      EXPECT_THAT(refused.error, AllOf(Not(HasSubstr("\x1B")), Not(HasSubstr(reordering))));
    }
  }
  EXPECT_EQ(done({"share", "list"}), "No folder is shared.\n");
}

TEST_F(KeelhouseShares, AcceptFoldersWithControlCharactersAndEscapeThem) {
  const std::string folder = makeFolder("a\x1B[31m\nb");
  const std::string shown = done({"share", "add", folder});
  EXPECT_THAT(shown, HasSubstr("\nname: a\\x1B[31m\\x0Ab\n"));
  EXPECT_THAT(done({"share", "list"}), Not(HasSubstr("\x1B")));
  const auto again = keelhouse({"share", "add", folder});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.error,
              AllOf(HasSubstr("a\\x1B[31m\\x0Ab is shared already\n"), Not(HasSubstr("\x1B"))));
  EXPECT_THAT(done({"share", "remove", folder}), Not(HasSubstr("\x1B")));
}

TEST_F(KeelhouseShares, KeepLongNamesWhereTheProtocolCarriesThem) {
  const std::string folder = makeFolder("a");
  const std::string name(300, 'x');
  done({"share", "add", folder, "--name", name, "--ftp-name", name});
  const auto refused = keelhouse({"share", "set", folder, "--vsp-name", name});
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.error, HasSubstr("--vsp-name can have 31 characters, and has 300"));
  EXPECT_THAT(done({"share", "show", folder}),
              AllOf(HasSubstr("\nname: " + name + "\n"), HasSubstr("nameOverVSP: a\n"),
                    HasSubstr("nameOverFTP: " + name + "\n")));
}

TEST_F(KeelhouseShares, ReportNamesThatSambaCannotServe) {
  std::filesystem::create_directories(tree_.path("/usr/libexec/samba"));
  std::filesystem::copy_file(SYNCHRONIZE_SHARES_PROGRAM,
                             tree_.path("/usr/libexec/samba/synchronize-shares"));
  const std::string folder = makeFolder("a");
  done({"share", "add", folder, "--smb-name", "Plans"});
  EXPECT_THAT(tree_.read("/etc/samba/paddock-shares.conf"),
              HasSubstr("\n[Plans]\n    path = " + folder + "\n"));
  for (const std::string& name : {std::string("[x]"), std::string("%U"), std::string(81, 'x')}) {
    const auto named = keelhouse({"share", "set", folder, "--smb-name", name});
    EXPECT_EQ(named.status, 0);
    EXPECT_THAT(named.error, StartsWith("SMB: not served: its name, \"" + name + "\", has "));
  }
  for (const char* name : {"global", "IPC$"}) {
    const auto refused = keelhouse({"share", "set", folder, "--smb-name", name});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.error, HasSubstr("is one that Samba keeps for itself\n"));
  }
  done({"share", "set", folder, "--smb-name", "a, b; 100%"});
  done({"share", "set", folder, "--no-smb"});
}

TEST_F(KeelhouseShares, BackupDestinationsGetNewIdentifierAtEveryWrite) {
  const std::string folder = makeFolder("a");
  done({"share", "add", folder, "--backup"});
  const std::string first = done({"share", "show", folder});
  EXPECT_THAT(first, HasSubstr("isBackstowBackup: yes\nbackstowBackupUUID: "));
  EXPECT_THAT(done({"share", "list"}), AllOf(HasSubstr("  BACKUP\n"), HasSubstr("  yes\n")));
  const std::string second = done({"share", "set", folder, "--backup"});
  EXPECT_THAT(second, HasSubstr("isBackstowBackup: yes\nbackstowBackupUUID: "));
  EXPECT_NE(first, second);
  EXPECT_THAT(done({"share", "set", folder, "--no-backup"}), HasSubstr("isBackstowBackup: no\n"));
}

TEST_F(KeelhouseShares, AreIndexedByTheOptionToo) {
  const std::string folder = makeFolder("a");
  EXPECT_THAT(done({"share", "add", folder, "--index"}), HasSubstr("isIndexingEnabled: yes\n"));
  EXPECT_EQ(done({"index", "status", folder}), folder + " is indexed for search.\n");
  EXPECT_THAT(done({"share", "set", folder, "--no-index"}), HasSubstr("isIndexingEnabled: no\n"));
}

}  // namespace
}  // namespace paddock::testing
