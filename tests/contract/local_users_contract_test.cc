// The guarantees of the node "/Local" for its users: their passwords belong to their records, and a
// group defines who may write.
#include <gmock/gmock.h>

#include <cerrno>

#include "directory_subject.h"

namespace paddock::contract {
namespace {

using ::testing::ElementsAre;

class LocalUsersContract : public DirectoryTest {
 protected:
  void SetUp() override {
    DirectoryTest::SetUp();
    openNode()->newRecord("Docs", kShares);
    for (const char* name : {"anna", "zero"}) {
      openNode()->newRecord(name, schema::kUsers);
      subject().setPassword(name, std::string(name) + "'s");
    }
    openNode()->findRecord("zero", schema::kUsers)->setAttribute(schema::kUniqueID, "0");
    openNode()
        ->newRecord(kAdmins, schema::kGroups)
        ->setAttribute(schema::kGroupMembership, Array{"someone", "Anna"});
  }
};
INSTANTIATE_TEST_SUITE_P(Directory, LocalUsersContract, ::testing::ValuesIn(kLocalSubjectKinds),
                         subjectName);

TEST_P(LocalUsersContract, APasswordIsNoAttribute) {
  const auto record = openNode()->findRecord("anna", schema::kUsers);
  EXPECT_THAT(record->getAllAttributes(), ElementsAre(schema::kRecordName, schema::kRecordType));
}

TEST_P(LocalUsersContract, PasswordSurvivesRenameAndEndsWithRecord) {
  openNode()->findRecord("anna", schema::kUsers)->setAttribute(schema::kRecordName, "anja");
  EXPECT_EQ(openNode()->authenticateName("anja", "anna's", true), 0);
  EXPECT_EQ(openNode()->authenticateName("anna", "anna's", true), EACCES);
  openNode()->findRecord("anja", schema::kUsers)->removeRecord();
  openNode()->newRecord("anja", schema::kUsers);
  EXPECT_EQ(openNode()->authenticateName("anja", "anna's", true), EACCES);
}

TEST_P(LocalUsersContract, OnlyUsersOfTheNodeHavePasswords) {
  EXPECT_EQ(raised([&] { subject().setPassword("stranger", "x"); }), ENOENT);
  EXPECT_EQ(raised([&] { subject().setPassword("Docs", "x"); }), ENOENT);
}

TEST_P(LocalUsersContract, RootAndAdminGroupMembersMayWrite) {
  for (const auto& [user, password] : {std::pair{"anna", "anna's"}, std::pair{"zero", "zero's"}}) {
    const auto node = openNode();
    ASSERT_EQ(node->authenticateName(user, password, false), 0);
    EXPECT_EQ(raised([&] { node->newRecord("New", kShares)->removeRecord(); }), 0) << user;
  }
}

}  // namespace
}  // namespace paddock::contract
