// Shares by their names, moved and renamed, by way of the running daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "integration/keelhouse_fixture.h"

namespace paddock::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class KeelhouseMoves : public KeelhouseFixture {
 protected:
  // Lines of the exports file that are exports.
  std::string exports() const { return tree_.read("/etc/exports"); }
  std::string record(const std::string& name) const {
    return done({"record", "show", "sharepoints", name});
  }
};

TEST_F(KeelhouseMoves, ASharesNameStandsForItsFolder) {
  const std::string folder = makeFolder("plans");
  done({"share", "add", folder, "--name", "the plans", "--smb-name", "Pläne"});
  const std::string shown = done({"share", "show", folder});
  for (const char* name : {"the plans", "The Plans", "PLÄNE"}) {
    EXPECT_EQ(done({"share", "show", name}), shown) << name;
  }
  EXPECT_EQ(done({"privs", "show", "the plans"}), done({"privs", "show", folder}));
  done({"acl", "add", "Pläne", "allow user:root read"});
  EXPECT_THAT(done({"acl", "show", folder}), HasSubstr("user:root"));
  EXPECT_EQ(done({"index", "status", "pläne"}), folder + " is not indexed.\n");
  done({"share", "set", "the plans", "--no-ftp"});
  EXPECT_EQ(done({"share", "remove", "the plans"}), folder + " is no longer shared.\n");
}

TEST_F(KeelhouseMoves, UnknownNameSuggestsNearestOne) {
  done({"share", "add", makeFolder("plans")});
  for (const std::vector<std::string>& words : {std::vector<std::string>{"share", "show", "plasn"},
                                                {"privs", "show", "plasn"},
                                                {"acl", "show", "plasn"},
                                                {"propagate", "plasn", "--owner"},
                                                {"effective", "plasn", "root"},
                                                {"index", "status", "plasn"},
                                                {"share", "remove", "plasn"}}) {
    const auto refused = keelhouse(words);
    EXPECT_EQ(refused.status, 1) << words[0];
    EXPECT_EQ(refused.error,
              "keelhouse: there is no share \"plasn\", and no such file or folder here: did you "
              "mean plans?\nSee the shares: keelhouse share list\n");
  }
}

TEST_F(KeelhouseMoves, AMoveKeepsAllButTheFolder) {
  const std::string from = makeFolder("old");
  const std::string to = makeFolder("new");
  done({"share", "add", makeFolder("other"), "--nfs", "192.0.2.7(ro)"});
  done({"share", "add", from, "--name", "plans", "--vsp-name", "Vsp", "--smb-name", "Smb",
        "--ftp-name", "Ftp", "--nfs", "*(rw,sync)", "--nfs", "192.0.2.7(ro)", "--read-only",
        "--comment", "All plans", "--index"});
  const std::string before = record("plans");
  const std::string moved = done({"share", "move", "plans", to});
  EXPECT_THAT(moved,
              AllOf(HasSubstr("path: " + to + "\nname: plans\n"),
                    HasSubstr("nfsExportRecord: *(rw,sync) 192.0.2.7(ro)\n"),
                    HasSubstr("smb.readOnly: yes\n"), HasSubstr("isIndexingEnabled: yes\n")));
  std::string expected = before;
  expected.replace(expected.find(from), from.size(), to);
  EXPECT_EQ(record("plans"), expected);
  EXPECT_THAT(exports(), AllOf(HasSubstr(to + " *(rw,sync) 192.0.2.7(ro)\n"),
                               Not(HasSubstr(from + " ")), HasSubstr(" 192.0.2.7(ro)\n")));
  EXPECT_EQ(keelhouse({"share", "show", from}).status, 1);
  EXPECT_EQ(keelhouse({"index", "status", from}).status, 1);
}

TEST_F(KeelhouseMoves, MissingFolderIsListedAndMovableAway) {
  const std::string from = makeFolder("old");
  const std::string to = makeFolder("new");
  done({"share", "add", from, "--nfs", "192.0.2.7(ro)"});
  EXPECT_THAT(done({"share", "list"}), Not(HasSubstr("FOLDER")));
  std::filesystem::remove_all(from);
  EXPECT_THAT(done({"share", "list"}), AllOf(HasSubstr("  FOLDER\n"), HasSubstr("  gone\n")));
  EXPECT_THAT(done({"share", "list", "--json"}), HasSubstr("\"folder\": \"gone\""));
  const auto moved = keelhouse({"share", "move", "old", to});
  EXPECT_EQ(moved.status, 0) << moved.error;
  EXPECT_THAT(moved.error, HasSubstr("cannot be compared with those of " + from));
  EXPECT_THAT(done({"share", "list"}), Not(HasSubstr("FOLDER")));
}

TEST_F(KeelhouseMoves, PrivilegesStayWithFolderAndDifferenceIsReported) {
  const std::string from = makeFolder("old");
  const std::string to = makeFolder("new");
  done({"privs", "set", from, "--group", "nogroup", "--mode", "750"});
  done({"acl", "set", from, "allow user:games read,write:inherit"});
  done({"share", "add", from});
  const auto moved = keelhouse({"share", "move", from, to});
  EXPECT_EQ(moved.status, 0);
  EXPECT_THAT(
      moved.error,
      AllOf(HasSubstr("\n  keelhouse privs set " + to + " --group nogroup --mode 750\n"),
            HasSubstr("\n  keelhouse acl set " + to + " 'allow user:games read,write:inherit'\n")));
  done({"acl", "set", to, "allow user:games read,write:inherit"});
  EXPECT_EQ(done({"acl", "show", to}), done({"acl", "show", from}));
}

TEST_F(KeelhouseMoves, NothingIsMovedOntoAnotherShare) {
  const std::string from = makeFolder("old");
  const std::string to = makeFolder("new");
  done({"share", "add", from});
  done({"share", "add", to});
  const std::string before = done({"share", "list"});
  EXPECT_EQ(keelhouse({"share", "move", from, to}).status, 1);
  EXPECT_EQ(keelhouse({"share", "move", from, from}).status, 1);
  EXPECT_EQ(keelhouse({"share", "move", from, to + "/nowhere"}).status, 1);
  EXPECT_EQ(done({"share", "list"}), before);
}

TEST_F(KeelhouseMoves, AnAutomountFollows) {
  done({"record", "put", "users", "root"});
  ASSERT_EQ(keelhouse({"record", "password", "root"}, "secret\n").status, 0);
  const std::string from = makeFolder("old");
  const std::string to = makeFolder("new");
  const std::vector<std::string> account{"--admin", "root", "--password-fd", "0"};
  const auto asRoot = [&](std::vector<std::string> words) {
    words.insert(words.end(), account.begin(), account.end());
    return keelhouse(words, "secret\n");
  };
  ASSERT_EQ(
      asRoot({"share", "add", from, "--automount", "/Network/Plans", "--node", "/Local"}).status,
      0);
  const auto refused = keelhouse({"share", "move", from, to});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, HasSubstr("--admin USER\nNothing was changed."));
  const auto moved = asRoot({"share", "move", from, to});
  EXPECT_EQ(moved.status, 0) << moved.error;
  EXPECT_THAT(moved.output, HasSubstr("automountMountPath: /Network/Plans\n"));
  const std::string mounts = done({"record", "list", "mounts"});
  EXPECT_THAT(mounts, AllOf(HasSubstr(":" + to + "\n"), Not(HasSubstr(":" + from + "\n"))));
}

TEST_F(KeelhouseMoves, RenamedShareHasNewNamesAndKeepsOptions) {
  const std::string folder = makeFolder("plans");
  done({"share", "add", folder, "--ftp-name", "other", "--guest", "--read-only"});
  EXPECT_THAT(done({"share", "rename", "plans", "Übersicht"}),
              AllOf(HasSubstr("name: Übersicht\n"), HasSubstr("nameOverVSP: Übersicht\n"),
                    HasSubstr("nameOverSMB: Übersicht\n"), HasSubstr("nameOverFTP: other\n"),
                    HasSubstr("smb.guest: yes\n")));
  EXPECT_EQ(keelhouse({"record", "show", "sharepoints", "plans"}).status, 1);
  done({"share", "add", makeFolder("taken")});
  const auto refused = keelhouse({"share", "rename", folder, "taken"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.error, HasSubstr("\"taken\" is taken by the share "));
  EXPECT_THAT(done({"share", "show", folder}), HasSubstr("name: Übersicht\n"));
}

TEST_F(KeelhouseMoves, OptionsOverSmbSurviveOtherChanges) {
  const std::string folder = makeFolder("plans");
  done({"share", "add", folder, "--read-only", "--hide", "--allow-hosts", "10.0.0.0/8"});
  done({"share", "set", folder, "--no-ftp"});
  done({"index", "on", folder});
  const std::string shown = done({"share", "set", folder, "--smb-name", "Plans"});
  EXPECT_THAT(shown, HasSubstr("smb.allowHosts: 10.0.0.0/8\nsmb.hidden: yes\nsmb.readOnly: yes\n"));
  done({"share", "remove", folder});
  EXPECT_THAT(done({"share", "add", folder}), Not(HasSubstr("smb.")));
}

TEST_F(KeelhouseMoves, RiskySettingsCauseWarnings) {
  const std::string folder = makeFolder("plans");
  std::filesystem::permissions(folder, std::filesystem::perms(0777));
  const auto added =
      keelhouse({"share", "add", folder, "--guest", "--nfs", "*(rw,no_root_squash)"});
  EXPECT_EQ(added.status, 0);
  EXPECT_THAT(added.error, AllOf(HasSubstr("keelhouse: warning: no_root_squash for *: "),
                                 HasSubstr("keelhouse: warning: guests may write over SMB"),
                                 HasSubstr("keelhouse: warning: everybody may write to the folder: "
                                           "its mode is 777")));
}

}  // namespace
}  // namespace paddock::testing
