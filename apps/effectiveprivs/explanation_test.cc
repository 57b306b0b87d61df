#include "effectiveprivs/explanation.h"

#include <gmock/gmock.h>

#include "effectiveprivs/judged_objects.h"
#include "platform/testing/in_memory_accounts.h"
#include "wire/json.h"

namespace paddock::effectiveprivs {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Kind = Subject::Kind;

class Explaining : public ::testing::Test {
 protected:
  Explaining() {
    accounts_.addUser("anna", kAnna);
    accounts_.addUser("bert", kBert);
    accounts_.addGroup("staff", kStaff);
    accounts_.addGroup("crew", kCrew);
  }

  Explanation explained(const ObjectPrivileges& object, const Identity& user = anna(),
                        const std::optional<KernelAnswer>& kernel = std::nullopt) {
    Answer answer{object, judge(
                              object, [] { return nullptr; }, user)};
    return explain(accounts_, "/srv/a", user, answer, kernel);
  }
  ExplainedPermission onReading(const ObjectPrivileges& object, const Identity& user = anna()) {
    return explained(object, user).permissions.at(0);
  }
  static ExplainedPermission on(acl::Permission permission, const Explanation& explanation) {
    for (const ExplainedPermission& one : explanation.permissions)
      if (one.permission == permission) return one;
    ADD_FAILURE() << permission;
    return {};
  }
  // As a kernel would answer that agrees with the object's list.
  static KernelAnswer agreeing(const Explanation& explanation) {
    return {{KernelClass::others, 0}, explanation.bitmap};
  }

  InMemoryAccounts accounts_;
};

TEST_F(Explaining, EntryNamesItsPositionAndPrincipal) {
  const auto one =
      onReading(listed(fileWith(0), {allow(userSubject(kBert), 2), deny(userSubject(kAnna), 2)}));
  EXPECT_FALSE(one.granted);
  EXPECT_EQ(one.by, "entry");
  EXPECT_EQ(one.entry, 1U);
  EXPECT_EQ(one.principal, "user:anna");
  EXPECT_THAT(one.through, IsEmpty());
  EXPECT_EQ(one.text, "entry 2: deny user:anna");
}

TEST_F(Explaining, GroupEntryNamesDecidingMembership) {
  const auto user = anna({groupOf(kCrew), groupOf(kStaff, HeldBy::nestedGroup, 0)});
  const auto direct = onReading(listed(fileWith(0), {allow(groupSubject(kCrew), 2)}), user);
  EXPECT_EQ(direct.principal, "group:crew");
  EXPECT_THAT(direct.through, ElementsAre("crew"));
  EXPECT_EQ(direct.text, "entry 1: allow group:crew");
  const auto nested = onReading(listed(fileWith(0), {allow(groupSubject(kStaff), 2)}), user);
  EXPECT_EQ(nested.principal, "group:staff");
  EXPECT_THAT(nested.through, ElementsAre("crew", "staff"));
  EXPECT_EQ(nested.text, "entry 1: allow group:staff (through crew, staff)");
}

TEST_F(Explaining, UnnamedGroupIsShownByNumberOrGuid) {
  const Guid guid = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
  const Identity user(kAnna, memberOf(kAnna, {groupOf(77), {{}, {guid}, {}, {}, {}, {}}}), {});
  EXPECT_EQ(onReading(listed(fileWith(0), {allow(groupSubject(77), 2)}), user).principal,
            "group:77");
  EXPECT_EQ(onReading(listed(fileWith(0), {allow(guidSubject(guid), 2)}), user).principal,
            "group:" + guidText(guid));
}

TEST_F(Explaining, GuidEntryNamesUser) {
  const Guid guid = computedGuid({PrincipalType::user, kAnna});
  EXPECT_EQ(onReading(listed(fileWith(0), {allow(guidSubject(guid), 2)})).principal, "user:anna");
}

TEST_F(Explaining, WellKnownPrincipalsHaveNames) {
  EXPECT_EQ(onReading(listed(fileWith(0), {allow(subjectOf(Kind::everyone), 2)})).principal,
            "everyone");
  EXPECT_EQ(onReading(listed(fileWith(0), {allow(subjectOf(Kind::authenticated), 2)})).principal,
            "authenticated users");
  EXPECT_EQ(
      onReading(listed(owned(fileWith(0), kAnna, kStaff), {allow(subjectOf(Kind::ownerRights), 2)}))
          .principal,
      "owner rights");
}

TEST_F(Explaining, ModeNamesClassAndItsBits) {
  EXPECT_EQ(onReading(owned(fileWith(0640), kAnna, kStaff)).text, "the mode gives owner rw-");
  EXPECT_EQ(onReading(owned(fileWith(0640), kBert, kStaff), anna({groupOf(kStaff)})).text,
            "the mode gives group:staff r--");
  const auto others = onReading(fileWith(0640));
  EXPECT_EQ(others.text, "the mode gives others ---");
  EXPECT_EQ(others.by, "mode");
  EXPECT_EQ(others.principal, "others");
  EXPECT_EQ(others.entry, std::nullopt);
}

TEST_F(Explaining, WhatComesFromNeitherSaysWhere) {
  const Explanation explanation = explained(owned(fileWith(0), kBert, kStaff));
  EXPECT_EQ(on(256, explanation).text, "only the owner has it");
  EXPECT_EQ(on(256, explanation).by, "owner");
  EXPECT_EQ(on(128, explanation).text, "everybody has it");
  EXPECT_EQ(on(128, explanation).by, "everybody");
  EXPECT_EQ(on(16, explanation).by, "parent");
  EXPECT_EQ(on(8192, explanation).text, "nothing gives it");
  EXPECT_EQ(on(8192, explanation).by, "nothing");
}

TEST_F(Explaining, ACompleteListSaysSo) {
  const auto one = onReading(listed(fileWith(0777), {}, true));
  EXPECT_EQ(one.by, "list");
  EXPECT_EQ(one.text, "the list is complete, and does not give it");
}

TEST_F(Explaining, RootNeedsNoReason) {
  const Explanation explanation = explained(fileWith(0), Identity(0, {}, {}));
  EXPECT_EQ(explanation.bitmap, 16382U);
  EXPECT_EQ(explanation.permissions.at(0).by, "root");
  EXPECT_THAT(explanationText(explanation), HasSubstr("yes  read-data         root may do"));
}

TEST_F(Explaining, TheTextBeginsWithTheAnswer) {
  Explanation explanation = explained(fileWith(0));
  explanation.answer.stop = "stopped at /srv, mode 700, owner bert";
  EXPECT_THAT(explanationText(explanation),
              ::testing::StartsWith("No: stopped at /srv, mode 700, owner bert"));
  EXPECT_THAT(explanationJson(explanation),
              HasSubstr("\"stop\":\"stopped at /srv, mode 700, owner bert\""));
}

TEST_F(Explaining, DeniedStrangerIsNamedWithAlternativeVerdict) {
  Subject stranger = subjectOf(Kind::unknown);
  stranger.sid = "S-1-5-21-1-2-3-1104";
  const Explanation explanation =
      explained(listed(fileWith(0), {deny(stranger, 2), allow(userSubject(kAnna), 2)}));
  const ExplainedPermission one = explanation.permissions.at(0);
  EXPECT_FALSE(one.granted);
  EXPECT_TRUE(one.isDoubted);
  EXPECT_EQ(one.text,
            "entry 1 denies S-1-5-21-1-2-3-1104, and nobody here knows who that is; else entry 2: "
            "allow user:anna");
  EXPECT_TRUE(explanation.isDoubted());
  EXPECT_EQ(listRights(explanation.permissions).read.access, Access::unknown);
  EXPECT_EQ(listRights(explanation.permissions).write.access, Access::no);
  EXPECT_THAT(explanationText(explanation), HasSubstr("\n  ?    read-data "));
}

TEST_F(Explaining, NumberAndQuestionFollowAnswer) {
  const auto folder =
      listed(owned(folderWith(0750), kBert, kStaff), {allow(userSubject(kAnna), 2)});
  EXPECT_THAT(explanationText(explained(folder)),
              HasSubstr("\n2178\nanna (uid 1000) on /srv/a: owner bert, group staff, "
                        "mode 750, a list of 1 entry\n"
                        "  yes  list              entry 1: allow user:anna\n"
                        "  no   add-file          the mode gives others ---\n"));
  EXPECT_THAT(explanationText(explained(fileWith(0))), HasSubstr("no list\n"));
  EXPECT_THAT(explanationText(explained(listed(fileWith(0), {}, true))),
              HasSubstr("a complete list of 0 entries\n"));
  EXPECT_THAT(explanationText(explained(fileWith(0), unknown(77))),
              HasSubstr("\nuid 77, which nobody has, on /srv/a"));
}

TEST_F(Explaining, NamesCannotSteerATerminal) {
  accounts_.addUser("a\x1b[1m", kAnna);
  EXPECT_THAT(explanationText(explained(fileWith(0))), Not(HasSubstr("\x1b")));
}

TEST_F(Explaining, AgreeingKernelIsNotMentioned) {
  const auto file = listed(fileWith(0), {allow(userSubject(kAnna), 2)});
  const Explanation explanation = explained(file, anna(), agreeing(explained(file)));
  EXPECT_THAT(explanation.kernelDisagrees, IsEmpty());
  EXPECT_THAT(explanationText(explanation), Not(HasSubstr("kernel")));
}

TEST_F(Explaining, WhereTheKernelSaysOtherwiseBothAreTold) {
  const auto file = listed(fileWith(0), {allow(userSubject(kAnna), 2)});
  KernelAnswer kernel{{KernelClass::group, posix_acl::kWrite}, 4 | 128 | 2048};
  const Explanation explanation = explained(file, anna(), kernel);
  ASSERT_EQ(explanation.kernelDisagrees.size(), 2U);
  const Disagreement& reading = explanation.kernelDisagrees[0];
  EXPECT_EQ(reading.permission, 2U);
  EXPECT_TRUE(reading.list);
  EXPECT_FALSE(reading.kernel);
  EXPECT_EQ(reading.why, "the groups of the host give -w-");
  EXPECT_TRUE(explanation.kernelDisagrees[1].kernel);
  EXPECT_THAT(explanationText(explanation),
              HasSubstr("kernel's own rules:\n"
                        "  no   read-data   the groups of the host give -w-\n"
                        "  yes  write-data  the groups of the host give -w-\n"));
}

TEST_F(Explaining, TheKernelIsQuotedInItsOwnTerms) {
  const auto file = listed(fileWith(0), {allow(userSubject(kAnna), 16 | 4096 | 8192)}, true);
  KernelAnswer kernel{{KernelClass::others, 0}, 128 | 2048};
  std::vector<std::string> reasons;
  for (const Disagreement& one : explained(file, anna(), kernel).kernelDisagrees)
    reasons.push_back(one.name + ": " + one.why);
  EXPECT_THAT(reasons,
              ElementsAre("delete: the folder around decides", "read-attributes: everybody may",
                          "read-security: everybody may", "write-security: the owner alone may",
                          "change-owner: root alone may"));
}

TEST_F(Explaining, RemovingInsideFileCausesNoDisagreement) {
  const auto file = listed(fileWith(0), {allow(userSubject(kAnna), 64)});
  KernelAnswer kernel{{}, 128 | 2048};
  EXPECT_THAT(explained(file, anna(), kernel).kernelDisagrees, IsEmpty());
}

TEST_F(Explaining, BlockingFolderIsNamed) {
  const auto file = fileWith(0);
  Explanation explanation = explained(file, anna(), agreeing(explained(file)));
  explanation.barrier = "/srv";
  EXPECT_THAT(explanationText(explanation),
              HasSubstr("  it does not let the user through the folder /srv\n"));
  EXPECT_THAT(explanationJson(explanation), HasSubstr("\"barrier\":\"/srv\""));
}

TEST_F(Explaining, SeparatelyGrantedKernelBitsAreExplained) {
  const auto file = fileWith(0);
  KernelAnswer kernel = agreeing(explained(file));
  kernel.bits = {KernelClass::group, posix_acl::kWrite | posix_acl::kExecute, true};
  const Explanation explanation = explained(file, anna(), kernel);
  EXPECT_THAT(
      explanationText(explanation),
      HasSubstr("kernel's own rules:\n  the groups of the host give -wx, but none of them all "
                "of it: who wants all at once is refused\n"));
  EXPECT_THAT(explanationJson(explanation), HasSubstr("\"kernelApart\":\"-wx\""));
}

TEST_F(Explaining, JsonHoldsTheSame) {
  const auto user = anna({groupOf(kCrew), groupOf(kStaff, HeldBy::nestedGroup, 0)});
  const auto file =
      listed(owned(fileWith(0640), kBert, kStaff), {allow(groupSubject(kStaff), 2)}, true);
  KernelAnswer kernel{{}, 2 | 4};
  std::string error;
  const auto value = wire::parseJson(explanationJson(explained(file, user, kernel)), error);
  ASSERT_TRUE(value) << error;
  const Dictionary& all = *value->dictionary();
  EXPECT_EQ(all.integer("bitmap"), 2);
  EXPECT_EQ(*all.string("user"), "anna");
  EXPECT_EQ(all.integer("entries"), 1);
  EXPECT_EQ(all.boolean("complete"), true);
  const Array& bits = *all.array("bits");
  ASSERT_EQ(bits.size(), 13U);
  EXPECT_EQ(*bits[0].dictionary(),
            (Dictionary{{"bit", 2},
                        {"name", "read-data"},
                        {"granted", true},
                        {"sure", true},
                        {"by", "entry"},
                        {"entry", 0},
                        {"principal", "group:staff"},
                        {"through", Array{"crew", "staff"}},
                        {"text", "entry 1: allow group:staff (through crew, staff)"}}));
  EXPECT_EQ(bits[1].dictionary()->find("entry"), nullptr);
  EXPECT_EQ(*all.array("kernelDisagrees"), (Array{Dictionary{{"bit", 4},
                                                             {"name", "write-data"},
                                                             {"list", false},
                                                             {"kernel", true},
                                                             {"why", "others have ---"}}}));
}

}  // namespace
}  // namespace paddock::effectiveprivs
