#include "platform/linux/privileges/posix_projection.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <utility>

#include "platform/linux/acl/sid_forms.h"
#include "platform/testing/in_memory_membership.h"

namespace paddock::projection {

namespace {

using posix_acl::Acl;
using posix_acl::Bits;
using posix_acl::Named;

constexpr acl::Flag kBoth = acl::kFileInherit | acl::kDirectoryInherit;

using acl::Rule;
using acl::Subject;

Subject user(std::uint32_t id) { return {Subject::Kind::user, id}; }
Subject group(std::uint32_t id) { return {Subject::Kind::group, id}; }
Subject everyone() { return {Subject::Kind::everyone, 0}; }

acl::Permission permissionsOf(Bits bits) {
  return ((bits & posix_acl::kRead) != 0 ? acl::kReadData : 0U) |
         ((bits & posix_acl::kWrite) != 0 ? acl::kWriteData : 0U) |
         ((bits & posix_acl::kExecute) != 0 ? acl::kExecute : 0U);
}
Rule allow(Subject subject, Bits bits, acl::Flag flags = 0) {
  return {true, subject, permissionsOf(bits), flags};
}
Rule deny(Subject subject, Bits bits, acl::Flag flags = 0) {
  return {false, subject, permissionsOf(bits), flags};
}

// The group 100 owns the object; user 1001 is in it, user 1002 in 200, user 1003 in both.
class AclProjection : public ::testing::Test {
 protected:
  static Source source(std::vector<Rule> rules, mode_t mode, bool complete = false) {
    return {std::move(rules), complete, posix_acl::classesOf(mode), 100};
  }
  Acl access(std::vector<Rule> rules, mode_t mode, bool complete = false) const {
    return accessAcl(source(std::move(rules), mode, complete), groupsOf_);
  }
  Acl inherited(std::vector<Rule> rules, mode_t mode, bool complete = false) const {
    return defaultAcl(source(std::move(rules), mode, complete), groupsOf_);
  }

  const std::map<std::uint32_t, std::vector<std::uint32_t>> groups_{
      {1001, {100}}, {1002, {200}}, {1003, {100, 200}}};
  const std::vector<std::uint32_t> none_{};
  const GroupsOf groupsOf_ = [this](std::uint32_t uid) -> const std::vector<std::uint32_t>& {
    const auto found = groups_.find(uid);
    return found == groups_.end() ? none_ : found->second;
  };
};

TEST_F(AclProjection, AListWithoutEntriesSaysOnlyTheMode) {
  const Acl acl = access({}, 0754);
  EXPECT_FALSE(acl.namesAnybody());
  EXPECT_EQ(acl.classes, (posix_acl::Classes{7, 5, 4}));
  EXPECT_FALSE(acl.mask);
  EXPECT_FALSE(inherited({}, 0754).namesAnybody());
}

TEST_F(AclProjection, NamedUserCombinesListAndModeBits) {
  EXPECT_EQ(access({allow(user(1000), 2)}, 0754).users, (std::vector<Named>{{1000, 6}}));
}

TEST_F(AclProjection, NamedUserInGroupFallsToGroupBits) {
  EXPECT_EQ(access({allow(user(1001), 2)}, 0754).users, (std::vector<Named>{{1001, 7}}));
}

TEST_F(AclProjection, ADeniedUserHasLessThanTheMode) {
  EXPECT_EQ(access({deny(user(1000), 4)}, 0755).users, (std::vector<Named>{{1000, 1}}));
}

TEST_F(AclProjection, TheFirstEntryThatNamesABitDecides) {
  EXPECT_EQ(access({deny(user(1000), 2), allow(user(1000), 6)}, 0700).users,
            (std::vector<Named>{{1000, 4}}));
  EXPECT_EQ(access({allow(user(1000), 6), deny(user(1000), 2)}, 0700).users,
            (std::vector<Named>{{1000, 6}}));
}

TEST_F(AclProjection, GroupsCountForANamedUser) {
  const auto acl = access({allow(user(1002), 1), deny(group(200), 2), allow(group(200), 6)}, 0700);
  EXPECT_EQ(acl.users, (std::vector<Named>{{1002, 5}}));
  EXPECT_EQ(acl.groups, (std::vector<Named>{{200, 4}}));
}

TEST_F(AclProjection, EveryoneAppliesToAllButIsNotNamed) {
  const auto acl = access({allow(user(1000), 1), allow(group(200), 2), allow(everyone(), 4)}, 0700);
  EXPECT_EQ(acl.users, (std::vector<Named>{{1000, 5}}));
  EXPECT_EQ(acl.groups, (std::vector<Named>{{200, 6}}));
  EXPECT_EQ(acl.classes, (posix_acl::Classes{7, 0, 0}));
}

TEST_F(AclProjection, GroupFallbackDiffersForNamedAndOwningGroup) {
  const auto acl = access({allow(group(100), 2), allow(group(200), 2)}, 0751);
  EXPECT_EQ(acl.groups, (std::vector<Named>{{100, 7}, {200, 3}}));
}

TEST_F(AclProjection, CompleteListHasNoFallbackToMode) {
  const auto acl = access({allow(user(1001), 4), allow(group(200), 2)}, 0777, true);
  EXPECT_EQ(acl.users, (std::vector<Named>{{1001, 4}}));
  EXPECT_EQ(acl.groups, (std::vector<Named>{{200, 2}}));
  EXPECT_EQ(acl.classes, (posix_acl::Classes{7, 7, 7}));
}

TEST_F(AclProjection, WhoIsNobodyIsNotNamed) {
  EXPECT_FALSE(access({allow({}, 7)}, 0700).namesAnybody());
}

TEST_F(AclProjection, InheritOnlyEntriesDoNotAffectObject) {
  EXPECT_FALSE(access({allow(user(1000), 7, kBoth | acl::kOnlyInherit)}, 0700).namesAnybody());
}

TEST_F(AclProjection, AnEntryForTwoPlacesStandsOnce) {
  const auto acl = access({allow(user(1000), 4), allow(user(1000), 2)}, 0700);
  EXPECT_EQ(acl.users, (std::vector<Named>{{1000, 6}}));
}

TEST_F(AclProjection, TheMaskBoundsNothing) {
  EXPECT_EQ(access({allow(user(1000), 2)}, 0710).mask, Bits{3});
}

TEST_F(AclProjection, WhatFilesAndFoldersInheritIsTheDefault) {
  const std::vector<Rule> rules{allow(user(1000), 6, kBoth),
                                allow(group(200), 5, kBoth | acl::kOnlyInherit)};
  const auto acl = inherited(rules, 0750);
  EXPECT_EQ(acl.users, (std::vector<Named>{{1000, 6}}));
  EXPECT_EQ(acl.groups, (std::vector<Named>{{200, 5}}));
  EXPECT_EQ(acl.classes, (posix_acl::Classes{7, 5, 0}));
  EXPECT_EQ(acl.mask, Bits{7});
}

TEST_F(AclProjection, DefaultGivesCreatorEverythingDespiteFolderOwnerBits) {
  const auto acl = inherited({allow(user(1000), 6, kBoth)}, 0050);
  EXPECT_EQ(acl.classes, (posix_acl::Classes{7, 5, 0}));
}

TEST_F(AclProjection, EntriesThatAreNotInheritedAreNoDefault) {
  EXPECT_FALSE(inherited({allow(user(1000), 6)}, 0750).namesAnybody());
}

TEST_F(AclProjection, DefaultWithholdsFolderOnlyEntriesFromFiles) {
  EXPECT_EQ(inherited({allow(user(1000), 4, acl::kDirectoryInherit)}, 0700).users,
            (std::vector<Named>{{1000, 0}}));
  EXPECT_EQ(inherited({allow(user(1000), 4, acl::kFileInherit)}, 0700).users,
            (std::vector<Named>{{1000, 0}}));
}

TEST_F(AclProjection, DefaultReachesNoDeeperThanEntry) {
  EXPECT_EQ(inherited({allow(user(1000), 4, kBoth | acl::kLimitInherit)}, 0700).users,
            (std::vector<Named>{{1000, 0}}));
}

TEST_F(AclProjection, DefaultIncludesDenialsReachingAnyChild) {
  const std::vector<Rule> rules{deny(user(1000), 2, acl::kDirectoryInherit | acl::kLimitInherit),
                                allow(user(1000), 6, kBoth)};
  EXPECT_EQ(inherited(rules, 0700).users, (std::vector<Named>{{1000, 4}}));
}

TEST_F(AclProjection, UsersWhoseGroupsMatterAreListedOnce) {
  EXPECT_EQ(namedUsers({allow(user(7), 1), allow(group(3), 1), allow(user(5), 1),
                        deny(user(7), 2, acl::kOnlyInherit)}),
            (std::vector<std::uint32_t>{5, 7}));
}

}  // namespace

}  // namespace paddock::projection

namespace paddock::nt_acl {

namespace {

using acl::Rule;
using acl::Subject;

class ProjectionRules : public ::testing::Test {
 protected:
  Rule ruleOf(const Ace& ace) {
    std::vector<Rule> rules;
    EXPECT_EQ(readRules(sids_, membership_, {ace}, rules), 0);
    EXPECT_EQ(rules.size(), 1U);
    return rules.at(0);
  }
  Subject subjectOf(const Sid& sid) { return ruleOf({kAllowed, 0, 1, sid, {}}).subject; }
  Subject subjectOf(const char* sid) { return subjectOf(parseSid(sid).value()); }

  InMemoryMembership membership_;
  PrincipalSids sids_{membership_, ""};
};

TEST_F(ProjectionRules, UnixSidsAreUsersAndGroups) {
  EXPECT_EQ(subjectOf("S-1-22-1-1000"), (Subject{Subject::Kind::user, 1000}));
  EXPECT_EQ(subjectOf("S-1-22-2-50"), (Subject{Subject::Kind::group, 50}));
}

TEST_F(ProjectionRules, EveryoneAndAuthenticatedUsersAreEveryone) {
  EXPECT_EQ(subjectOf("S-1-1-0").kind, Subject::Kind::everyone);
  EXPECT_EQ(subjectOf("S-1-5-11").kind, Subject::Kind::everyone);
}

TEST_F(ProjectionRules, AGuidIsWhoHasIt) {
  const Guid guid = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
  EXPECT_EQ(subjectOf(guidSid(guid)).kind, Subject::Kind::nobody);
  membership_.setGuid({PrincipalType::group, 77}, guid);
  EXPECT_EQ(subjectOf(guidSid(guid)), (Subject{Subject::Kind::group, 77}));
}

TEST_F(ProjectionRules, CreatorsForeignersAndTheUndefinedIdAreNobody) {
  for (const char* sid :
       {"S-1-3-0", "S-1-3-1", "S-1-3-4", "S-1-5-21-1-2-3-1104", "S-1-22-1-4294967295"})
    EXPECT_EQ(subjectOf(sid).kind, Subject::Kind::nobody) << sid;
}

TEST_F(ProjectionRules, AForeignEntryDecidesNothing) {
  EXPECT_EQ(ruleOf({5, 0, 1, unixSid({PrincipalType::user, 1000}), "bytes"}).subject.kind,
            Subject::Kind::nobody);
}

TEST_F(ProjectionRules, ReadingWritingAndExecutingAreTheDataBits) {
  const Sid sid = unixSid({PrincipalType::user, 1000});
  const auto bitsOf = [&](std::uint32_t mask) {
    return acl::kernelBitsOf(ruleOf({kAllowed, 0, mask, sid, {}}).permissions);
  };
  EXPECT_EQ(bitsOf(0x1), posix_acl::kRead);
  EXPECT_EQ(bitsOf(0x2), posix_acl::kWrite);
  EXPECT_EQ(bitsOf(0x20), posix_acl::kExecute);
  EXPECT_EQ(bitsOf(0xF01DC | 0x100000), 0);
}

TEST_F(ProjectionRules, DenialsAndFlagsAreKept) {
  const Rule rule = ruleOf({kDenied, 0x0B, 0x23, unixSid({PrincipalType::user, 1000}), {}});
  EXPECT_FALSE(rule.allow);
  EXPECT_EQ(rule.permissions, acl::kDecisive);
  EXPECT_EQ(rule.flags, acl::kFileInherit | acl::kDirectoryInherit | acl::kOnlyInherit);
}

TEST_F(ProjectionRules, AMembershipServiceThatCannotAnswerIsReported) {
  membership_.failWith(EIO);
  std::vector<Rule> rules;
  EXPECT_EQ(readRules(sids_, membership_, {{kAllowed, 0, 1, {5, {21, 1, 2, 3}}, {}}}, rules), EIO);
}

}  // namespace

}  // namespace paddock::nt_acl
