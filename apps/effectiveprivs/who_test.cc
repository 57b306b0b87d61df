#include "effectiveprivs/who.h"

#include <gmock/gmock.h>

#include "effectiveprivs/judged_objects.h"
#include "platform/directory.h"
#include "platform/linux/process/case_fold.h"
#include "platform/testing/in_memory_accounts.h"
#include "platform/testing/in_memory_directory.h"
#include "wire/json.h"

namespace paddock::effectiveprivs {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Kind = Subject::Kind;

// Ids that no account of the host has.
constexpr std::uint32_t kZoe = 2'051'000'001;
constexpr std::uint32_t kYuri = 2'051'000'002;
constexpr std::uint32_t kClub = 2'052'000'001;

class WhoMay : public ::testing::Test {
 protected:
  WhoMay() {
    addUser("zoe", kZoe);
    addUser("yuri", kYuri);
    directory_.addRecord("/Local", schema::kGroups, "club",
                         {{schema::kPrimaryGroupID, std::to_string(kClub)},
                          {schema::kGroupMembership, Array{"zoe", "yuri"}}});
    directory_.addRecord(
        "/Local", schema::kGroups, "all",
        {{schema::kPrimaryGroupID, std::to_string(kClub + 1)},
         {schema::kNestedGroups, guidText(computedGuid({PrincipalType::group, kClub}))}});
  }
  void addUser(const std::string& name, std::uint32_t uid) {
    directory_.addRecord("/Local", schema::kUsers, name,
                         {{schema::kUniqueID, std::to_string(uid)}});
    accounts_.addUser(name, uid);
  }

  Who who(const ObjectPrivileges& object) {
    AccountListing listing(directory_);
    return whoMay(object, doors(), listing, accounts_);
  }
  // Every user reaches the path, as far as the list permits.
  static DoorQuestions doors() {
    return {[](const Visitor&, const ListRights& list) {
      PathAnswer answer;
      for (std::size_t at = 0; at < kDoors; ++at) {
        answer.doors[at].name = std::array{"SMB", "local", "NFS"}[at];
        answer.doors[at].rights = list;
      }
      answer.whole = list;
      return answer;
    }};
  }
  // "zoe rw-" and the like.
  static std::string line(const std::string& name, const Rights& rights) {
    std::string text = name + " ";
    for (std::size_t at = 0; at < kRights; ++at) text += rights[at].granted ? "rwp"[at] : '-';
    return text;
  }
  std::vector<std::string> linesOf(const ObjectPrivileges& object) {
    const Who found = who(object);
    std::vector<std::string> lines;
    for (const Person& person : found.people) lines.push_back(line(person.name, *person.rights));
    lines.push_back(line("else", *found.everybodyElse.rights));
    lines.push_back(line("without", *found.withoutAccount.rights));
    return lines;
  }
  static ObjectPrivileges nobodysFile(mode_t mode) { return owned(fileWith(mode), 0, 4711); }

  InMemoryDirectory directory_{caseFold};
  InMemoryAccounts accounts_;
};

TEST_F(WhoMay, RootAlwaysMay) {
  EXPECT_THAT(linesOf(listed(nobodysFile(0), {}, true)),
              ElementsAre("root rwp", "else ---", "without ---"));
}

TEST_F(WhoMay, TheOwnerIsTold) {
  EXPECT_THAT(linesOf(owned(fileWith(0600), kZoe, 4711)),
              ElementsAre("root rwp", "zoe rwp", "else ---", "without ---"));
}

TEST_F(WhoMay, UsersOfEntriesAreTold) {
  EXPECT_THAT(
      linesOf(listed(nobodysFile(0), {allow(userSubject(kZoe), 2), allow(userSubject(kYuri), 32)})),
      ElementsAre("root rwp", "yuri -w-", "zoe r--", "else ---", "without ---"));
}

TEST_F(WhoMay, GroupsOfEntriesAreExpanded) {
  const auto file =
      listed(nobodysFile(0), {deny(userSubject(kYuri), 4), allow(groupSubject(kClub + 1), 2 | 4)});
  EXPECT_THAT(linesOf(file),
              ElementsAre("root rwp", "yuri r--", "zoe rw-", "else ---", "without ---"));
  const Who found = who(file);
  const Right& reading = (*found.people.at(2).rights)[0];
  EXPECT_EQ(reading.by, "entry");
  EXPECT_EQ(reading.entry, 1U);
  EXPECT_EQ(reading.principal, "group:all");
  EXPECT_THAT(reading.through, ElementsAre("club", "all"));
}

TEST_F(WhoMay, EntriesByGuidAreToldToo) {
  const auto file =
      listed(nobodysFile(0), {allow(guidSubject(computedGuid({PrincipalType::user, kZoe})), 4096),
                              allow(guidSubject(computedGuid({PrincipalType::group, kClub})), 2)});
  EXPECT_THAT(linesOf(file),
              ElementsAre("root rwp", "yuri r--", "zoe r-p", "else ---", "without ---"));
}

TEST_F(WhoMay, OwningGroupMembersComeFromHost) {
  // All users whose group of the host is root's, and no user whom only the directory lists there.
  directory_.addRecord("/Local", schema::kGroups, "roots",
                       {{schema::kPrimaryGroupID, "0"}, {schema::kGroupMembership, "zoe"}});
  const auto lines = linesOf(owned(fileWith(0060), 4711, 0));
  EXPECT_THAT(lines, Contains("root rwp"));
  EXPECT_THAT(lines, Not(Contains("zoe rw-")));
}

TEST_F(WhoMay, ExceptionsAreListedWhenEveryoneMay) {
  EXPECT_THAT(linesOf(listed(nobodysFile(0004), {deny(groupSubject(kClub), 2)})),
              ElementsAre("root rwp", "yuri ---", "zoe ---", "else r--", "without r--"));
}

TEST_F(WhoMay, AuthenticatedUsersAreThoseWithAnAccount) {
  EXPECT_THAT(linesOf(listed(nobodysFile(0), {allow(subjectOf(Kind::authenticated), 2)})),
              ElementsAre("root rwp", "else r--", "without ---"));
}

TEST_F(WhoMay, WhatIsOnlyInheritedDoesNotCount) {
  Rule rule = allow(userSubject(kZoe), 2);
  rule.onlyInherit = true;
  EXPECT_THAT(linesOf(listed(nobodysFile(0), {rule})),
              ElementsAre("root rwp", "else ---", "without ---"));
}

TEST_F(WhoMay, UidWithoutAccountIsListedByNumber) {
  EXPECT_THAT(linesOf(listed(nobodysFile(0), {allow(userSubject(4712), 2)})),
              ElementsAre("4712 r--", "root rwp", "else ---", "without ---"));
}

TEST_F(WhoMay, MissingGroupEntriesListNoUsers) {
  EXPECT_THAT(
      linesOf(owned(listed(fileWith(0), {allow(groupSubject(4712), 2), allow({}, 2)}), 0, 4711)),
      ElementsAre("root rwp", "else ---", "without ---"));
}

TEST_F(WhoMay, DeniedStrangerLeavesLaterUsersInDoubt) {
  const Who found =
      who(listed(nobodysFile(0), {allow(userSubject(kYuri), 2), deny(subjectOf(Kind::unknown), 2),
                                  allow(userSubject(kZoe), 2)}));
  EXPECT_TRUE(found.isDoubted());
  const std::string text = whoText("", found);
  EXPECT_THAT(text, HasSubstr("  yuri              yes   no"));
  EXPECT_THAT(text, HasSubstr("  zoe               ?     no"));
  EXPECT_THAT(text, HasSubstr("nobody here knows who that is"));
}

TEST_F(WhoMay, WhomADoorAloneLetsInIsTold) {
  AccountListing listing(directory_);
  DoorQuestions asked = doors();
  asked.uids = {kZoe};
  asked.answerFor = [](const Visitor& visitor, const ListRights& list) {
    PathAnswer answer = doors().answerFor(visitor, list);
    if (visitor.kernel.uid == kZoe) answer.doors[1].rights = {};
    return answer;
  };
  const Who found = whoMay(nobodysFile(0), asked, listing, accounts_);
  EXPECT_THAT(
      whoText("", found),
      HasSubstr("  zoe               no    no     no           no          read,write  no "));
}

TEST_F(WhoMay, ExcessPeopleAreOmittedWithNotice) {
  AccountListing listing(directory_);
  const auto file = listed(nobodysFile(0), {allow(groupSubject(kClub), 2)});
  const Who found = whoMay(file, doors(), listing, accounts_, 2);
  ASSERT_EQ(found.people.size(), 2U);
  EXPECT_EQ(found.people[0].name, "root");
  EXPECT_EQ(found.people[1].name, "yuri");
  // Users named individually by an entry are not cut.
  const auto named =
      listed(nobodysFile(0), {allow(groupSubject(kClub), 2), allow(userSubject(kZoe), 4)});
  EXPECT_EQ(whoMay(named, doors(), listing, accounts_, 2).people[1].name, "zoe");
  EXPECT_EQ(found.left, 1U);
  EXPECT_THAT(whoText("", found), HasSubstr("\n1 more, whom only groups mean, are not listed\n"));
  EXPECT_THAT(whoJson("/srv/a", found), HasSubstr("\"notListed\":1,"));
}

TEST_F(WhoMay, TheTextSaysByWhat) {
  const auto file = listed(nobodysFile(0),
                           {allow(groupSubject(kClub + 1), 2 | 4), allow(userSubject(kZoe), 4096)});
  EXPECT_EQ(
      whoText("/srv/a\n", who(file)),
      "No: the mode gives others ---\n"
      "/srv/a\n"
      "  WHO               READ  WRITE  PERMISSIONS  SMB         LOCAL       NFS         BY\n"
      "  root              yes   yes    yes          read,write  read,write  read,write  "
      "read, write, permissions: root may do everything\n"
      "  yuri              yes   yes    no           read,write  read,write  read,write  "
      "read, write: entry 1: allow group:all (through club, all)\n"
      "  zoe               yes   yes    yes          read,write  read,write  read,write  "
      "read, write: entry 1: allow group:all (through club, all); permissions: entry 2: allow "
      "user:zoe\n"
      "  (everybody else)  no    no     no           no          no          no          -\n"
      "NFS: the mode gives others ---\n"
      "SMB: the mode gives others ---\n"
      "local: the mode gives others ---\n");
}

TEST_F(WhoMay, TextDistinguishesUidsWithoutAccountWhereRelevant) {
  EXPECT_THAT(whoText("", who(listed(nobodysFile(0), {allow(subjectOf(Kind::authenticated), 2)}))),
              HasSubstr("  (a uid without an account)  no"));
}

TEST_F(WhoMay, SameNamesAreDistinguishedByUid) {
  directory_.addNode("/LDAP/site", "ReadWrite");
  directory_.addRecord("/LDAP/site", schema::kUsers, "zoe",
                       {{schema::kUniqueID, std::to_string(kZoe + 5)}});
  const std::string text = whoText(
      "",
      who(listed(nobodysFile(0), {allow(userSubject(kZoe), 2), allow(userSubject(kZoe + 5), 2)})));
  EXPECT_THAT(text, HasSubstr("  zoe (uid " + std::to_string(kZoe) + ")  "));
  EXPECT_THAT(text, HasSubstr("  zoe (uid " + std::to_string(kZoe + 5) + ")  "));
}

TEST_F(WhoMay, JsonHoldsTheSame) {
  const auto file = listed(nobodysFile(0), {allow(groupSubject(kClub), 2)});
  std::string error;
  const auto value = wire::parseJson(whoJson("/srv/a", who(file)), error);
  ASSERT_TRUE(value) << error;
  const Dictionary& all = *value->dictionary();
  EXPECT_EQ(*all.string("path"), "/srv/a");
  const Dictionary& yuri = *all.array("people")->at(1).dictionary();
  EXPECT_EQ(*yuri.string("user"), "yuri");
  EXPECT_EQ(yuri.integer("uid"), kYuri);
  EXPECT_EQ(*yuri.dictionary("rights")->dictionary("read"),
            (Dictionary{{"granted", true},
                        {"sure", true},
                        {"by", "entry"},
                        {"entry", 0},
                        {"principal", "group:club"},
                        {"through", Array{"club"}},
                        {"text", "entry 1: allow group:club"}}));
  EXPECT_EQ(yuri.dictionary("rights")->dictionary("write")->boolean("granted"), false);
  EXPECT_NE(all.dictionary("everybodyElse"), nullptr);
}

}  // namespace
}  // namespace paddock::effectiveprivs
