// What directory.h promises of authenticating on a node that has users.
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
    DirectoryTest::SetUp();
    if (IsSkipped()) return;
    openNode()->newRecord("Docs", kShares);
    subject().addUser("anna", "anna's", true);
    subject().addUser("bert", "bert's", false);
    subject().addUserWithoutPassword("nobody");
  }
};
INSTANTIATE_TEST_SUITE_P(Directory, DirectoryAuthenticationContract,
                         ::testing::ValuesIn(kSubjectKinds), subjectName);

TEST_P(DirectoryAuthenticationContract, TheRightPasswordAuthenticates) {
  EXPECT_EQ(openNode()->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(openNode()->authenticateName("ANNA", "anna's", false), 0);
}

TEST_P(DirectoryAuthenticationContract, EverythingElseIsReturnedAsNotAllowed) {
  for (const bool authOnly : {false, true}) {
    EXPECT_EQ(openNode()->authenticateName("anna", "wrong", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("anna", "Anna's", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("anna", "", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("bert", "anna's", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("stranger", "x", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("", "x", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("nobody", "x", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("nobody", "", authOnly), EACCES);
    EXPECT_EQ(openNode()->authenticateName("\xFF", "x", authOnly), EACCES);
  }
}

TEST_P(DirectoryAuthenticationContract, ANewPasswordReplacesTheOld) {
  subject().setPassword("anna", "second");
  EXPECT_EQ(openNode()->authenticateName("anna", "second", true), 0);
  EXPECT_EQ(openNode()->authenticateName("anna", "anna's", true), EACCES);
}

TEST_P(DirectoryAuthenticationContract, ASessionWithoutAUserMayWrite) {
  EXPECT_EQ(raised([&] { openNode()->newRecord("New", kShares)->removeRecord(); }), 0);
}

TEST_P(DirectoryAuthenticationContract, APasswordIsNoAttribute) {
  const auto answers = openNode()->findRecordNames("anna", {kAttributesAll}, schema::kUsers,
                                                   MatchType::caseInsensitiveExact);
  ASSERT_EQ(answers.size(), 1U);
  for (const auto& [attribute, values] : *answers[0].dictionary())
    EXPECT_THAT(*values.array(), ::testing::Not(::testing::Contains(Value("anna's")))) << attribute;
}

TEST_P(DirectoryAuthenticationContract, AUserWithTheRightMayWrite) {
  const auto node = openNode();
  ASSERT_EQ(node->authenticateName("anna", "anna's", false), 0);
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares)->removeRecord(); }), 0);
}

TEST_P(DirectoryAuthenticationContract, AnotherUserMayReadAndNotWrite) {
  const auto node = openNode();
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
  EXPECT_THAT(allNames(*openNode()), ElementsAre("Docs"));
  EXPECT_THAT(namesWith(*openNode(), "a", "1"), IsEmpty());
}

TEST_P(DirectoryAuthenticationContract, AuthOnlyKeepsNothing) {
  const auto node = openNode();
  ASSERT_EQ(node->authenticateName("bert", "bert's", true), 0);
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares); }), 0);
  ASSERT_EQ(node->authenticateName("bert", "bert's", false), 0);
  ASSERT_EQ(node->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(raised([&] { node->newRecord("Newer", kShares); }), EACCES);
}

TEST_P(DirectoryAuthenticationContract, AnAuthenticationBelongsToItsNodeObject) {
  const auto session = service().openLocal();
  ASSERT_EQ(nodeOf(*session)->authenticateName("bert", "bert's", false), 0);
  EXPECT_EQ(raised([&] { nodeOf(*session)->newRecord("New", kShares); }), 0);
}

TEST_P(DirectoryAuthenticationContract, AFailedAuthenticationLeavesTheEarlierOne) {
  const auto node = openNode();
  ASSERT_EQ(node->authenticateName("bert", "bert's", false), 0);
  ASSERT_EQ(node->authenticateName("anna", "wrong", false), EACCES);
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares); }), EACCES);
  ASSERT_EQ(node->authenticateName("anna", "anna's", false), 0);
  EXPECT_EQ(raised([&] { node->newRecord("New", kShares); }), 0);
}

TEST_P(DirectoryAuthenticationContract, SearchNodeAuthenticatesAtNodeHoldingUser) {
  const auto search = service().openLocal()->searchNode();
  EXPECT_EQ(search->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(search->authenticateName("anna", "wrong", true), EACCES);
  EXPECT_EQ(search->authenticateName("no such user anywhere", "x", true), EACCES);
}

}  // namespace
}  // namespace paddock::contract
