#include "daemon/audit/audit_subject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr std::string_view kSharing = "paddock_sharing";
constexpr std::string_view kDirectory = "paddock_directory";

TEST(AuditSubjects, PathComesFromArgumentsOrRequest) {
  EXPECT_EQ(
      subjectOf(kSharing, {{"optionalArguments", Dictionary{{"path", "/a"}}}, {"path", "/b"}}).path,
      "/a");
  EXPECT_EQ(subjectOf(kSharing, {{"path", "/b"}, {"paths", Array{"/c"}}}).path, "/b");
  EXPECT_EQ(subjectOf(kSharing, {{"path", 7}}).path, std::nullopt);
}

TEST(AuditSubjects, AListOfPathsIsNamedWhole) {
  const AuditSubject subject = subjectOf(kSharing, {{"paths", Array{"/a", 7, "/b"}}});
  EXPECT_EQ(subject.path, std::nullopt);
  EXPECT_THAT(subject.paths, ElementsAre("/a", "/b"));
}

TEST(AuditSubjects, WholeServerSharePointsAreNamedByPath) {
  const Array records{Dictionary{{"path", "/a"}}, "none", Dictionary{{"name", "b"}},
                      Dictionary{{"path", "/c"}}};
  const Dictionary request{{"configuration", Dictionary{{"sharePointList", records}}}};
  EXPECT_THAT(subjectOf(kSharing, request).paths, ElementsAre("/a", "/c"));
}

TEST(AuditSubjects, PasswordCheckWhileReadingNamesUserAndNode) {
  const Dictionary request{{"type", "users"}, {"name", "carl"}, {"adminUserName", "root"}};
  EXPECT_TRUE(carriesCredentials(request));
  EXPECT_EQ(subjectOfAttempt(request).name, "root");
  EXPECT_EQ(subjectOfAttempt(request).node, "/Local");
  EXPECT_EQ(subjectOfAttempt(request).type, std::nullopt);
  EXPECT_EQ(subjectOfAttempt({{"node", "/System"}, {"adminUserName", 7}}).node, "/System");
  EXPECT_EQ(subjectOfAttempt({{"node", 7}, {"adminUserName", 7}}).name, std::nullopt);
  EXPECT_TRUE(carriesCredentials({{"adminPassword", "x"}}));
  EXPECT_FALSE(carriesCredentials({{"type", "users"}, {"name", "carl"}}));
}

TEST(AuditSubjects, ALongNameMakesNoLongLine) {
  const std::string name(1U << 20U, 'x');
  EXPECT_EQ(subjectOfAttempt({{"adminUserName", name}}).name, std::string(256, 'x') + "...");
  EXPECT_EQ(subjectOf(kSharing, {{"path", "/" + name}}).path->size(), 4099U);
}

TEST(AuditSubjects, TriedNamesIncludeAllCredentialsOfRequest) {
  const Array credentials{
      Dictionary{{"nodePath", "/LDAP/a"}, {"adminUserName", "secret"}, {"adminPassword", "x"}},
      Dictionary{{"nodePath", "/LDAP/a"}, {"adminUserName", "without"}}, 7};
  const Dictionary request{{"adminUserName", "anna"},
                           {"adminPassword", "x"},
                           {"dsAdminName", "bert"},
                           {"dsAdminPW", "x"},
                           {"dsCredentials", credentials}};
  EXPECT_THAT(namesTried(request), ElementsAre("anna", "bert", "secret"));
  EXPECT_THAT(namesTried({{"adminUserName", "anna"}, {"adminPassword", ""}}), SizeIs(0));
  EXPECT_TRUE(mayBeTold(request, "anna"));
  EXPECT_TRUE(mayBeTold(request, "bert"));
  EXPECT_FALSE(mayBeTold(request, "secret"));
}

TEST(AuditSubjects, AListIsNamedUpToABound) {
  const Dictionary request{{"paths", Array(kMostAuditedPaths + 1, Value("/a"))}};
  EXPECT_THAT(subjectOf(kSharing, request).paths, SizeIs(kMostAuditedPaths));
}

TEST(AuditSubjects, RecordIsNamedByNodeTypeAndName) {
  const Dictionary request{{"node", "/LDAP/a"}, {"type", "t"}, {"name", "n"}, {"password", "p"}};
  const AuditSubject subject = subjectOf(kDirectory, request);
  EXPECT_EQ(subject.node, "/LDAP/a");
  EXPECT_EQ(subject.type, "t");
  EXPECT_EQ(subject.name, "n");
  EXPECT_EQ(subjectOf(kDirectory, {{"name", "n"}}).node, "/Local");
  EXPECT_EQ(subjectOf(kDirectory, {}).node, std::nullopt);
  EXPECT_EQ(subjectOf(kDirectory, {{"node", 7}, {"name", "n"}}).node, std::nullopt);
  EXPECT_EQ(subjectOf(kSharing, request).name, std::nullopt);
}

class RequestRepetition : public ::testing::Test {
 protected:
  static Dictionary run(int pid) { return {{"pid", pid}, {"file", "/tmp/f"}}; }
  static Dictionary state(const char* word, int items) {
    return {{"status", Dictionary{{"status", word}, {"itemsDone", items}}}};
  }
  bool isRepeat(unsigned user, int pid, const Dictionary& reply) {
    return requests_.isRepeat({user, "a/follow", run(pid)}, &once_, reply);
  }

  const Dictionary once_{{"request", Array{"pid", "file"}},
                         {"reply", Array{"status.status", "error"}}};

  RepeatedRequests requests_;
};

TEST_F(RequestRepetition, ARunCountsOncePerState) {
  EXPECT_FALSE(isRepeat(0, 1, state("running", 1)));
  EXPECT_TRUE(isRepeat(0, 1, state("running", 2)));
  EXPECT_FALSE(isRepeat(0, 1, state("completed", 3)));
  EXPECT_TRUE(isRepeat(0, 1, state("completed", 3)));
  EXPECT_FALSE(isRepeat(0, 1, {{"error", "x"}}));
}

TEST_F(RequestRepetition, AnotherRunAndAnotherUserCountThemselves) {
  EXPECT_FALSE(isRepeat(0, 1, state("running", 1)));
  EXPECT_FALSE(isRepeat(0, 2, state("running", 1)));
  EXPECT_FALSE(isRepeat(7, 1, state("running", 1)));
}

TEST_F(RequestRepetition, OperationsWithoutRepeatRuleCountEachTime) {
  for (int count = 0; count < 2; ++count)
    EXPECT_FALSE(requests_.isRepeat({0, "a/follow", run(1)}, nullptr, {}));
}

TEST_F(RequestRepetition, OperationsAreApart) {
  EXPECT_FALSE(isRepeat(0, 1, state("running", 1)));
  EXPECT_FALSE(requests_.isRepeat({0, "b/follow", run(1)}, &once_, state("running", 1)));
}

TEST_F(RequestRepetition, WhatIsAskedAtLengthIsNotKept) {
  const Dictionary request{{"file", std::string(10000, 'x')}};
  for (int count = 0; count < 2; ++count)
    EXPECT_FALSE(requests_.isRepeat({0, "a/follow", request}, &once_, {}));
}

}  // namespace
}  // namespace paddock
