#include "keelhouse/share/share_changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"
#include "keelhouse/share/nfs_exports.h"

namespace paddock::keelhouse {

namespace {

TEST(NewShare, TakesNamesFromLastPathComponent) {
  EXPECT_EQ(newShareRecord("/srv/my files", {}), (Dictionary{{"path", "/srv/my files"},
                                                             {"name", "my files"},
                                                             {"nameOverVSP", "my files"},
                                                             {"nameOverSMB", "my files"},
                                                             {"nameOverFTP", "my files"},
                                                             {"isSharedOverVSP", true}}));
}

TEST(NewShare, KeepsGivenNames) {
  ShareChanges changes;
  changes.name = "n";
  changes.vspName = "v";
  changes.smbName = "s";
  changes.ftpName = "f";
  EXPECT_EQ(newShareRecord("/srv/a", changes), (Dictionary{{"path", "/srv/a"},
                                                           {"name", "n"},
                                                           {"nameOverVSP", "v"},
                                                           {"nameOverSMB", "s"},
                                                           {"nameOverFTP", "f"},
                                                           {"isSharedOverVSP", true}}));
}

TEST(NewShare, IsUnpublishedOverDisabledProtocols) {
  ShareChanges changes;
  changes.vsp = false;
  changes.smb = false;
  changes.ftp = false;
  EXPECT_EQ(
      newShareRecord("/srv/a", changes),
      (Dictionary{
          {"path", "/srv/a"}, {"name", "a"}, {"nameOverVSP", "a"}, {"isSharedOverVSP", false}}));
}

TEST(NewShare, TruncatesVspNameToThirtyOneCharacters) {
  std::string folder;
  for (int count = 0; count < 40; ++count) folder += "\xC3\xA9";
  const Dictionary record = newShareRecord("/srv/" + folder, {});
  EXPECT_EQ(*record.string("nameOverVSP"), folder.substr(0, 62));
  EXPECT_EQ(*record.string("nameOverSMB"), folder);
}

TEST(NewShare, RefusesUnusableNames) {
  ShareChanges empty;
  empty.smbName = "";
  EXPECT_THROW(newShareRecord("/srv/a", empty), Failure);
  ShareChanges notUtf8;
  notUtf8.name = "\xFF";
  EXPECT_THROW(newShareRecord("/srv/a", notUtf8), Failure);
  ShareChanges tooLong;
  tooLong.vspName = std::string(32, 'v');
  EXPECT_THROW(newShareRecord("/srv/a", tooLong), Failure);
}

TEST(NewShare, RequiresNamesForRootFolder) {
  EXPECT_THROW(newShareRecord("/", {}), Failure);
  ShareChanges changes;
  changes.name = changes.vspName = changes.smbName = changes.ftpName = "all";
  EXPECT_EQ(*newShareRecord("/", changes).string("nameOverFTP"), "all");
}

TEST(NewShare, CarriesNfsClients) {
  ShareChanges changes;
  changes.nfsClients = {"10.0.0.0/8(rw,sync)", "*"};
  const Dictionary record = newShareRecord("/srv/a", changes);
  EXPECT_EQ(*record.dictionary("nfsExportRecord"),
            (Dictionary{{"clients",
                         Array{Dictionary{{"host", "10.0.0.0/8"}, {"options", Array{"rw", "sync"}}},
                               Dictionary{{"host", "*"}, {"options", Array{}}}}}}));
}

TEST(ChangedShare, ContainsOnlyChangedProperties) {
  ShareChanges changes;
  changes.vspName = "new";
  EXPECT_EQ(changedShareRecord("/srv/a", changes, {{"path", "/srv/a"}, {"name", "a"}}),
            (Dictionary{{"path", "/srv/a"}, {"nameOverVSP", "new"}}));
}

TEST(ChangedShare, KeepsStoredPathSpelling) {
  ShareChanges changes;
  changes.name = "n";
  EXPECT_EQ(changedShareRecord("/SRV/a", changes, {{"path", "/srv/a"}}),
            (Dictionary{{"path", "/srv/a"}, {"name", "n"}}));
}

TEST(ChangedShare, EmptyNameUnpublishes) {
  ShareChanges changes;
  changes.smb = false;
  changes.ftp = false;
  changes.vsp = false;
  EXPECT_EQ(changedShareRecord("/srv/a", changes, {{"path", "/srv/a"}}),
            (Dictionary{{"path", "/srv/a"},
                        {"isSharedOverVSP", false},
                        {"nameOverFTP", ""},
                        {"nameOverSMB", ""}}));
}

TEST(ChangedShare, PublishesUnderStoredOrFolderName) {
  ShareChanges changes;
  changes.smb = true;
  changes.ftp = true;
  changes.vsp = true;
  EXPECT_EQ(
      changedShareRecord("/srv/a", changes,
                         {{"path", "/srv/a"}, {"nameOverSMB", "stored"}, {"nameOverFTP", ""}}),
      (Dictionary{{"path", "/srv/a"},
                  {"isSharedOverVSP", true},
                  {"nameOverVSP", "a"},
                  {"nameOverSMB", "stored"},
                  {"nameOverFTP", "a"}}));
}

TEST(ChangedShare, DeletesExport) {
  ShareChanges changes;
  changes.noNfs = true;
  EXPECT_EQ(changedShareRecord("/srv/a", changes, {{"path", "/srv/a"}}),
            (Dictionary{{"path", "/srv/a"}, {"nfsExportRecord", Dictionary{{"isDeleted", true}}}}));
}

TEST(NfsClient, ParsesHostWithOptionalOptions) {
  EXPECT_EQ(parseNfsClient("host"), (Dictionary{{"host", "host"}, {"options", Array{}}}));
  EXPECT_EQ(parseNfsClient("host()"), (Dictionary{{"host", "host"}, {"options", Array{}}}));
  EXPECT_EQ(parseNfsClient("fe80::/10(ro,no_root_squash)"),
            (Dictionary{{"host", "fe80::/10"}, {"options", Array{"ro", "no_root_squash"}}}));
  for (const char* text : {"*", "10.0.0.1(rw)", "@group(ro,sync)"}) {
    EXPECT_EQ(formatNfsClient(parseNfsClient(text)), text);
  }
}

TEST(NfsClient, RefusesClientUnfitForExportsLine) {
  for (const char* text :
       {"", "(rw)", "a b", "a(rw", "a)", "a(r w)", "a((rw))", "a(rw)(ro)", "a\n(rw)", "a(rw\n)",
        "a(,)", "a(rw,)", "a\"b", "#a", "\xFF", "a(rw)x"}) {
    EXPECT_THROW(parseNfsClient(text), Failure) << text;
  }
}

using Step = AutomountPlan::Step;
using ::testing::HasSubstr;

ShareChanges automountAt(const char* path, std::optional<std::string> node) {
  ShareChanges changes;
  changes.automountPath = path;
  changes.automountNode = std::move(node);
  return changes;
}

Dictionary settingsOf(const ShareChanges& changes, const Dictionary& stored = {}) {
  Dictionary record;
  setAutomount(record, changes, stored);
  return record;
}

// The text of the refusal; empty when there is none.
std::string refusal(const ShareChanges& changes, const Dictionary& stored = {}) {
  try {
    settingsOf(changes, stored);
    return {};
  } catch (const Failure& failed) {
    EXPECT_EQ(failed.status(), ExitStatus::usage);
    return failed.what();
  }
}

const Dictionary kAutomounted{{"isAutomounted", true}, {"automountDSPath", "/LDAP/site"}};

TEST(Automount, DefaultsToVsp) {
  EXPECT_EQ(settingsOf(automountAt("/Network/Servers/", "/Local")),
            (Dictionary{{"isAutomounted", true},
                        {"automountMountPath", "/Network/Servers/"},
                        {"automountDSPath", "/Local"},
                        {"automountFileSystemType", 0}}));
}

TEST(Automount, SelectsNfsWithOrWithoutClients) {
  for (const std::vector<std::string>& clients :
       std::vector<std::vector<std::string>>{{""}, {"*(ro)"}, {"", "10.0.0.1"}}) {
    ShareChanges changes = automountAt("/Network/a", "/Local");
    changes.nfsClients = clients;
    EXPECT_EQ(settingsOf(changes).integer("automountFileSystemType"), 1);
    EXPECT_EQ(settingsOf(changes).boolean("isAutomounted"), true);
  }
}

TEST(Automount, StaysOnNodeUnlessAnotherNamed) {
  EXPECT_EQ(*settingsOf(automountAt("/b", std::nullopt), kAutomounted).string("automountDSPath"),
            "/LDAP/site");
  EXPECT_EQ(*settingsOf(automountAt("/b", "/Local"), kAutomounted).string("automountDSPath"),
            "/Local");
}

TEST(Automount, IgnoresOtherChanges) {
  ShareChanges changes;
  changes.nfsClients = {"*"};
  changes.name = "n";
  EXPECT_TRUE(settingsOf(changes, kAutomounted).empty());
}

TEST(Automount, IsRemovedOnlyByItsFlag) {
  ShareChanges changes;
  changes.noAutomount = true;
  EXPECT_EQ(settingsOf(changes, kAutomounted), (Dictionary{{"isAutomounted", false}}));
}

TEST(Automount, RequiresNode) {
  EXPECT_THAT(refusal(automountAt("/a", std::nullopt)), HasSubstr("--automount needs --node"));
  EXPECT_THAT(refusal(automountAt("/a", "")), HasSubstr("--automount needs --node"));
  ShareChanges alone;
  alone.automountNode = "/Local";
  EXPECT_EQ(refusal(alone), "--node needs --automount");
}

TEST(Automount, RefusesUnusablePaths) {
  EXPECT_EQ(refusal(automountAt("", "/Local")), "--automount \"\" is no absolute path");
  EXPECT_EQ(refusal(automountAt("a/b", "/Local")), "--automount \"a/b\" is no absolute path");
  EXPECT_EQ(refusal(automountAt("/a\n", "/Local")), "--automount holds a control character");
  EXPECT_EQ(refusal(automountAt("/\xFF", "/Local")), "--automount is not UTF-8");
  EXPECT_EQ(refusal(automountAt("/a", "Local")), "--node \"Local\" is no absolute path");
  EXPECT_EQ(refusal(automountAt("/a", "/\x1B[31m")), "--node holds a control character");
  EXPECT_EQ(refusal(automountAt("/a", "/\xFF")), "--node is not UTF-8");
  EXPECT_EQ(refusal(automountAt("/\"[a],%\xF0\x9F\x93\x81", "/Local")), "");
}

TEST(Automount, RefusesDisabledProtocol) {
  ShareChanges changes = automountAt("/a", "/Local");
  changes.vsp = false;
  EXPECT_THAT(refusal(changes), HasSubstr("--no-vsp switches off"));
  changes.nfsClients = {""};
  EXPECT_EQ(refusal(changes), "");
}

TEST(Automount, NfsWithoutClientRequiresAutomount) {
  ShareChanges changes;
  changes.nfsClients = {"*", ""};
  EXPECT_THAT(refusal(changes, kAutomounted), HasSubstr("and needs --automount\nTo export"));
}

TEST(AutomountPlan, WritesToRequestedNode) {
  const AutomountPlan plan = planAutomount(automountAt("/a", "/Local"), {}, false);
  EXPECT_EQ(plan.step, Step::write);
  EXPECT_EQ(plan.node, "/Local");
}

TEST(AutomountPlan, RewritesPropertiesDerivedFromShare) {
  ShareChanges renamed;
  renamed.vspName = "v";
  ShareChanges published;
  published.vsp = true;
  for (const ShareChanges& changes : {renamed, published, automountAt("/b", std::nullopt)}) {
    const AutomountPlan plan = planAutomount(changes, kAutomounted, false);
    EXPECT_EQ(plan.step, Step::write);
    EXPECT_EQ(plan.node, "/LDAP/site");
  }
  EXPECT_EQ(planAutomount(renamed, {{"isAutomounted", false}}, false).step, Step::none);
}

TEST(AutomountPlan, RewritesUnchangedRecordOnRequest) {
  ShareChanges changes;
  changes.smbName = "s";
  EXPECT_EQ(planAutomount(changes, kAutomounted, false).step, Step::none);
  EXPECT_EQ(planAutomount(changes, kAutomounted, true).step, Step::write);
  EXPECT_EQ(planAutomount(changes, {}, true).step, Step::none);
}

TEST(AutomountPlan, RemovesFromStoredNode) {
  ShareChanges changes;
  changes.noAutomount = true;
  EXPECT_EQ(planAutomount(changes, kAutomounted, false).step, Step::remove);
  EXPECT_EQ(planAutomount(changes, kAutomounted, false).node, "/LDAP/site");
  EXPECT_EQ(planAutomount(changes, {}, false).step, Step::none);
  EXPECT_EQ(planAutomountRemoval(kAutomounted).step, Step::remove);
  EXPECT_EQ(planAutomountRemoval({{"automountDSPath", ""}}).step, Step::none);
}

TEST(AutomountPlan, RefusesMoveLeavingRecordOnAnotherNode) {
  EXPECT_THROW(planAutomount(automountAt("/a", "/Local"), kAutomounted, false), Failure);
  EXPECT_EQ(planAutomount(automountAt("/a", "/LDAP/site"), kAutomounted, false).step, Step::write);
}

}  // namespace

}  // namespace paddock::keelhouse
