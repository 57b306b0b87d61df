// What directory.h promises of authenticating on the local node.
#include <gmock/gmock.h>

#include <cerrno>

#include "directory_subject.h"

namespace paddock::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DirectoryAuthenticationContract : public DirectoryTest {
 protected:
  void SetUp() override {
    local()->newRecord("Docs", kShares);
    addUser("anna", "anna's");
    addUser("bert", "bert's");
    addUser("zero", "zero's");
    local()->findRecord("zero", schema::kUsers)->setAttribute(schema::kUniqueID, "0");
    local()->newRecord("nobody", schema::kUsers);  // without a password
    local()
        ->newRecord(kAdmins, schema::kGroups)
        ->setAttribute(schema::kGroupMembership, Array{"someone", "Anna"});
  }

  void addUser(const std::string& name, const std::string& password) {
    local()->newRecord(name, schema::kUsers);
    subject().setPassword(name, password);
  }
};
INSTANTIATE_TEST_SUITE_P(Directory, DirectoryAuthenticationContract,
                         ::testing::ValuesIn(kSubjectKinds), subjectName);

TEST_P(DirectoryAuthenticationContract, TheRightPasswordAuthenticates) {
  EXPECT_EQ(local()->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(local()->authenticateName("ANNA", "anna's", false), 0);
}

TEST_P(DirectoryAuthenticationContract, EverythingElseIsReturnedAsNotAllowed) {
  for (const bool authOnly : {false, true}) {
    EXPECT_EQ(local()->authenticateName("anna", "wrong", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("anna", "Anna's", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("anna", "", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("bert", "anna's", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("stranger", "x", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("", "x", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("nobody", "x", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("nobody", "", authOnly), EACCES);
    EXPECT_EQ(local()->authenticateName("\xFF", "x", authOnly), EACCES);
  }
}

TEST_P(DirectoryAuthenticationContract, ANewPasswordReplacesTheOld) {
  subject().setPassword("anna", "second");
  EXPECT_EQ(local()->authenticateName("anna", "second", true), 0);
  EXPECT_EQ(local()->authenticateName("anna", "anna's", true), EACCES);
}

TEST_P(DirectoryAuthenticationContract, APasswordIsNoAttribute) {
  const auto record = local()->findRecord("anna", schema::kUsers);
  EXPECT_THAT(record->getAllAttributes(), ElementsAre(schema::kRecordName, schema::kRecordType));
}

TEST_P(DirectoryAuthenticationContract, APasswordGoesWithItsRecordAndStaysThroughARename) {
  local()->findRecord("anna", schema::kUsers)->setAttribute(schema::kRecordName, "anja");
  EXPECT_EQ(local()->authenticateName("anja", "anna's", true), 0);
  EXPECT_EQ(local()->authenticateName("anna", "anna's", true), EACCES);
  local()->findRecord("anja", schema::kUsers)->removeRecord();
  local()->newRecord("anja", schema::kUsers);
  EXPECT_EQ(local()->authenticateName("anja", "anna's", true), EACCES);
}

TEST_P(DirectoryAuthenticationContract, OnlyUsersOfTheNodeHavePasswords) {
  EXPECT_EQ(raised([&] { subject().setPassword("stranger", "x"); }), ENOENT);
  EXPECT_EQ(raised([&] { subject().setPassword("Docs", "x"); }), ENOENT);
}

TEST_P(DirectoryAuthenticationContract, ASessionWithoutAUserMayWrite) {
  EXPECT_EQ(raised([&] { local()->newRecord("New", kShares)->removeRecord(); }), 0);
}

TEST_P(DirectoryAuthenticationContract, AMemberOfTheAdminGroupAndRootMayWrite) {
  for (const auto& [user, password] : {std::pair{"anna", "anna's"}, std::pair{"zero", "zero's"}}) {
    const auto node = local();
    ASSERT_EQ(node->authenticateName(user, password, false), 0);
    EXPECT_EQ(raised([&] { node->newRecord("New", kShares)->removeRecord(); }), 0) << user;
  }
}

TEST_P(DirectoryAuthenticationContract, AnotherUserMayReadAndNotWrite) {
  const auto node = local();
  ASSERT_EQ(node->authenticateName("bert", "bert's", false), 0);
  const auto record = node->findRecord("Docs", kShares);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->getAttributeFirstValue(schema::kRecordName), "Docs");
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares); }), EACCES);
  EXPECT_EQ(raised([&] { record->setAttribute("a", "1"); }), EACCES);
  EXPECT_EQ(raised([&] { record->setAttribute("a", Array{"1"}); }), EACCES);
  EXPECT_EQ(raised([&] { record->setAttributesAndValues({{"a", "1"}}); }), EACCES);
  EXPECT_EQ(raised([&] { record->removeAttribute("a"); }), EACCES);
  EXPECT_EQ(raised([&] { record->removeRecord(); }), EACCES);
  EXPECT_THAT(allNames(*local()), ElementsAre("Docs"));
  EXPECT_THAT(namesWith(*local(), "a", "1"), IsEmpty());
}

TEST_P(DirectoryAuthenticationContract, AuthOnlyKeepsNothing) {
  const auto node = local();
  ASSERT_EQ(node->authenticateName("bert", "bert's", true), 0);
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares); }), 0);
  ASSERT_EQ(node->authenticateName("bert", "bert's", false), 0);
  ASSERT_EQ(node->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(raised([&] { node->newRecord("Newer", kShares); }), EACCES);
}

TEST_P(DirectoryAuthenticationContract, AnAuthenticationBelongsToItsNodeObject) {
  const auto session = service().openLocal();
  ASSERT_EQ(session->localNode()->authenticateName("bert", "bert's", false), 0);
  EXPECT_EQ(raised([&] { session->localNode()->newRecord("New", kShares); }), 0);
}

TEST_P(DirectoryAuthenticationContract, AFailedAuthenticationLeavesTheEarlierOne) {
  const auto node = local();
  ASSERT_EQ(node->authenticateName("bert", "bert's", false), 0);
  ASSERT_EQ(node->authenticateName("anna", "wrong", false), EACCES);
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares); }), EACCES);
  ASSERT_EQ(node->authenticateName("anna", "anna's", false), 0);
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares); }), 0);
}

TEST_P(DirectoryAuthenticationContract, TheSearchNodeAsksTheNodeThatHasTheUser) {
  const auto search = service().openLocal()->searchNode();
  EXPECT_EQ(search->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(search->authenticateName("anna", "wrong", true), EACCES);
  EXPECT_EQ(search->authenticateName("no such user anywhere", "x", true), EACCES);
}

}  // namespace
}  // namespace paddock::contract
