#include "keelhouse/share/share_automount.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "keelhouse/core/failure.h"
#include "keelhouse/share/share_changes.h"

namespace paddock::keelhouse {
namespace {

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

TEST(Automount, isOverVsp) {
  EXPECT_EQ(settingsOf(automountAt("/Network/Servers/", "/Local")),
            (Dictionary{{"isAutomounted", true},
                        {"automountMountPath", "/Network/Servers/"},
                        {"automountDSPath", "/Local"},
                        {"automountFileSystemType", 0}}));
}

TEST(Automount, isOverNfsWithOrWithoutClients) {
  for (const std::vector<std::string>& clients :
       std::vector<std::vector<std::string>>{{""}, {"*(ro)"}, {"", "10.0.0.1"}}) {
    ShareChanges changes = automountAt("/Network/a", "/Local");
    changes.nfsClients = clients;
    EXPECT_EQ(settingsOf(changes).integer("automountFileSystemType"), 1);
    EXPECT_EQ(settingsOf(changes).boolean("isAutomounted"), true);
  }
}

TEST(Automount, staysOnItsNodeUnlessAnotherIsNamed) {
  EXPECT_EQ(*settingsOf(automountAt("/b", std::nullopt), kAutomounted).string("automountDSPath"),
            "/LDAP/site");
  EXPECT_EQ(*settingsOf(automountAt("/b", "/Local"), kAutomounted).string("automountDSPath"),
            "/Local");
}

TEST(Automount, isNotTouchedByOtherChanges) {
  ShareChanges changes;
  changes.nfsClients = {"*"};
  changes.name = "n";
  EXPECT_TRUE(settingsOf(changes, kAutomounted).empty());
}

TEST(Automount, isTakenAwayByItsFlagAlone) {
  ShareChanges changes;
  changes.noAutomount = true;
  EXPECT_EQ(settingsOf(changes, kAutomounted), (Dictionary{{"isAutomounted", false}}));
}

TEST(Automount, needsANode) {
  EXPECT_THAT(refusal(automountAt("/a", std::nullopt)), HasSubstr("--automount needs --node"));
  EXPECT_THAT(refusal(automountAt("/a", "")), HasSubstr("--automount needs --node"));
  ShareChanges alone;
  alone.automountNode = "/Local";
  EXPECT_EQ(refusal(alone), "--node needs --automount");
}

TEST(Automount, isRefusedWithPathsThatCannotBeUsed) {
  EXPECT_EQ(refusal(automountAt("", "/Local")), "--automount \"\" is no absolute path");
  EXPECT_EQ(refusal(automountAt("a/b", "/Local")), "--automount \"a/b\" is no absolute path");
  EXPECT_EQ(refusal(automountAt("/a\n", "/Local")), "--automount holds a control character");
  EXPECT_EQ(refusal(automountAt("/\xFF", "/Local")), "--automount is not UTF-8");
  EXPECT_EQ(refusal(automountAt("/a", "Local")), "--node \"Local\" is no absolute path");
  EXPECT_EQ(refusal(automountAt("/a", "/\x1B[31m")), "--node holds a control character");
  EXPECT_EQ(refusal(automountAt("/a", "/\xFF")), "--node is not UTF-8");
  EXPECT_EQ(refusal(automountAt("/\"[a],%\xF0\x9F\x93\x81", "/Local")), "");
}

TEST(Automount, cannotBeOverAProtocolThatIsSwitchedOff) {
  ShareChanges changes = automountAt("/a", "/Local");
  changes.vsp = false;
  EXPECT_THAT(refusal(changes), HasSubstr("--no-vsp switches off"));
  changes.nfsClients = {""};
  EXPECT_EQ(refusal(changes), "");
}

TEST(Automount, isWhatNfsWithoutAClientIsFor) {
  ShareChanges changes;
  changes.nfsClients = {"*", ""};
  EXPECT_THAT(refusal(changes, kAutomounted), HasSubstr("and needs --automount\nTo export"));
}

TEST(AutomountPlan, writesWhereTheChangeSays) {
  const AutomountPlan plan = planAutomount(automountAt("/a", "/Local"), {}, false);
  EXPECT_EQ(plan.step, Step::write);
  EXPECT_EQ(plan.node, "/Local");
}

TEST(AutomountPlan, writesAgainWhatTheRecordTakesFromTheShare) {
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

TEST(AutomountPlan, writesAgainWhatStaysAsItIsWhenAsked) {
  ShareChanges changes;
  changes.smbName = "s";
  EXPECT_EQ(planAutomount(changes, kAutomounted, false).step, Step::none);
  EXPECT_EQ(planAutomount(changes, kAutomounted, true).step, Step::write);
  EXPECT_EQ(planAutomount(changes, {}, true).step, Step::none);
}

TEST(AutomountPlan, removesFromTheNodeThatIsStored) {
  ShareChanges changes;
  changes.noAutomount = true;
  EXPECT_EQ(planAutomount(changes, kAutomounted, false).step, Step::remove);
  EXPECT_EQ(planAutomount(changes, kAutomounted, false).node, "/LDAP/site");
  EXPECT_EQ(planAutomount(changes, {}, false).step, Step::none);
  EXPECT_EQ(planAutomountRemoval(kAutomounted).step, Step::remove);
  EXPECT_EQ(planAutomountRemoval({{"automountDSPath", ""}}).step, Step::none);
}

TEST(AutomountPlan, leavesNoRecordBehindOnAnotherNode) {
  EXPECT_THROW(planAutomount(automountAt("/a", "/Local"), kAutomounted, false), Failure);
  EXPECT_EQ(planAutomount(automountAt("/a", "/LDAP/site"), kAutomounted, false).step, Step::write);
}

}  // namespace
}  // namespace paddock::keelhouse
