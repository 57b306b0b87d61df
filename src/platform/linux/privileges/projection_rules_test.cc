#include "platform/linux/privileges/projection_rules.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/acl/sid_text.h"
#include "platform/testing/in_memory_membership.h"

namespace paddock::nt_acl {
namespace {

using projection::Rule;
using projection::Subject;

class ProjectionRulesTest : public ::testing::Test {
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

TEST_F(ProjectionRulesTest, UnixSidsAreUsersAndGroups) {
  EXPECT_EQ(subjectOf("S-1-22-1-1000"), (Subject{Subject::Kind::user, 1000}));
  EXPECT_EQ(subjectOf("S-1-22-2-50"), (Subject{Subject::Kind::group, 50}));
}

TEST_F(ProjectionRulesTest, EveryoneAndAuthenticatedUsersAreEveryone) {
  EXPECT_EQ(subjectOf("S-1-1-0").kind, Subject::Kind::everyone);
  EXPECT_EQ(subjectOf("S-1-5-11").kind, Subject::Kind::everyone);
}

TEST_F(ProjectionRulesTest, AGuidIsWhoHasIt) {
  const Guid guid = *parseGuid("DEADBEEF-0000-4000-8000-000000000001");
  EXPECT_EQ(subjectOf(guidSid(guid)).kind, Subject::Kind::nobody);
  membership_.setGuid({PrincipalType::group, 77}, guid);
  EXPECT_EQ(subjectOf(guidSid(guid)), (Subject{Subject::Kind::group, 77}));
}

TEST_F(ProjectionRulesTest, CreatorsForeignersAndTheUndefinedIdAreNobody) {
  for (const char* sid :
       {"S-1-3-0", "S-1-3-1", "S-1-3-4", "S-1-5-21-1-2-3-1104", "S-1-22-1-4294967295"})
    EXPECT_EQ(subjectOf(sid).kind, Subject::Kind::nobody) << sid;
}

TEST_F(ProjectionRulesTest, AForeignEntryDecidesNothing) {
  EXPECT_EQ(ruleOf({5, 0, 1, unixSid({PrincipalType::user, 1000}), "bytes"}).subject.kind,
            Subject::Kind::nobody);
}

TEST_F(ProjectionRulesTest, ReadingWritingAndExecutingAreTheDataBits) {
  const Sid sid = unixSid({PrincipalType::user, 1000});
  EXPECT_EQ(ruleOf({kAllowed, 0, 0x1, sid, {}}).bits, posix_acl::kRead);
  EXPECT_EQ(ruleOf({kAllowed, 0, 0x2, sid, {}}).bits, posix_acl::kWrite);
  EXPECT_EQ(ruleOf({kAllowed, 0, 0x20, sid, {}}).bits, posix_acl::kExecute);
  EXPECT_EQ(ruleOf({kAllowed, 0, 0xF01DC | 0x100000, sid, {}}).bits, 0);
}

TEST_F(ProjectionRulesTest, DenialsAndFlagsAreKept) {
  const Rule rule = ruleOf({kDenied, 0x0B, 0x23, unixSid({PrincipalType::user, 1000}), {}});
  EXPECT_FALSE(rule.allow);
  EXPECT_EQ(rule.bits, posix_acl::kAllBits);
  EXPECT_EQ(rule.flags, acl::kFileInherit | acl::kDirectoryInherit | acl::kOnlyInherit);
}

TEST_F(ProjectionRulesTest, AMembershipServiceThatCannotAnswerIsReported) {
  membership_.failWith(EIO);
  std::vector<Rule> rules;
  EXPECT_EQ(readRules(sids_, membership_, {{kAllowed, 0, 1, {5, {21, 1, 2, 3}}, {}}}, rules), EIO);
}

}  // namespace
}  // namespace paddock::nt_acl
