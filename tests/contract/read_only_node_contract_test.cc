// What directory.h promises of a node that cannot be written, on "/System", on a double of it and
// on a directory server that hold the same root user and root group.
#include <gmock/gmock.h>

#include <cerrno>

#include "base/guid.h"
#include "directory_subject.h"

namespace paddock::contract {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr auto kExact = MatchType::caseInsensitiveExact;

std::string computedText(PrincipalType type, std::uint32_t id) {
  return guidText(computedGuid({type, id}));
}

std::unique_ptr<DirectorySubject> makeInMemory() {
  auto subject = std::make_unique<InMemorySubject>();
  auto& directory = dynamic_cast<InMemoryDirectory&>(subject->service());
  directory.addNode("/System", "ReadOnly");
  directory.addRecord("/System", schema::kUsers, "root",
                      {{schema::kUniqueID, "0"},
                       {schema::kPrimaryGroupID, "0"},
                       {schema::kRealName, "root"},
                       {schema::kHomeDirectory, "/root"},
                       {schema::kGeneratedUID, computedText(PrincipalType::user, 0)}});
  directory.addRecord("/System", schema::kGroups, "root",
                      {{schema::kPrimaryGroupID, "0"},
                       {schema::kGeneratedUID, computedText(PrincipalType::group, 0)}});
  return subject;
}

// A directory server on which the account may only read, behind a "/Local".
class ReadOnlyLdapSubject final : public LocalSubject {
 public:
  ReadOnlyLdapSubject() {
    slapd_.add(
        "dn: cn=reader,dc=example\nobjectClass: organizationalRole\n"
        "objectClass: simpleSecurityObject\ncn: reader\nuserPassword: reader's\n\n"
        "dn: uid=root,ou=people,dc=example\nobjectClass: inetOrgPerson\n"
        "objectClass: posixAccount\nuid: root\ncn: root\nsn: root\nuidNumber: 0\n"
        "gidNumber: 0\nhomeDirectory: /root\ndescription: " +
        computedText(PrincipalType::user, 0) +
        "\n\ndn: cn=root,ou=groups,dc=example\nobjectClass: posixGroup\ncn: root\n"
        "gidNumber: 0\ndescription: " +
        computedText(PrincipalType::group, 0) + "\n");
  }
  DirectoryService& service() override { return service_; }
  void setPassword(const std::string& user, const std::string& password) override {
    local_.openLocalNode()->setPassword(user, password);
  }

 private:
  LdapOptions options() {
    LdapOptions options = slapd_.nodeOptions();
    options.bindDn = "cn=reader,dc=example";
    options.writable = false;
    writeWholeFile(options.passwordFile, "reader's");
    options.accounts.guid = "description";
    return options;
  }

  TestFolder folder_;
  LinuxDirectoryService local_{{.databasePath = folder_.path("directory.sqlite"),
                                .adminGroup = kAdmins,
                                .pam = std::nullopt}};
  SlapdServer slapd_;
  std::shared_ptr<LdapServer> server_ = std::make_shared<LdapServer>(options());
  ListedNodes service_{{{kLocalNodePath, [this] { return local_.openLocalNode(); }},
                        {"/LDAP/contract", [server = server_] { return makeLdapNode(server); }}}};
};

const SubjectKind kKinds[] = {
    {"InMemory", makeInMemory},
    {"Linux", [] { return std::unique_ptr<DirectorySubject>(new LinuxSubject); }},
    {"Ldap", [] { return std::unique_ptr<DirectorySubject>(new ReadOnlyLdapSubject); }, whyNoSlapd},
};

class ReadOnlyNodeContract : public DirectoryTest {
 protected:
  static std::string path() {
    return std::string(GetParam().name) == "Ldap" ? "/LDAP/contract" : "/System";
  }
  std::shared_ptr<DirectoryNode> node() { return service().openLocal()->findNode(path()); }
  std::vector<std::string> users(const std::string& attribute, const std::string& value) {
    return namesWith(*node(), attribute, value, {schema::kUsers});
  }
  std::vector<std::string> groups(const std::string& attribute, const std::string& value) {
    return namesWith(*node(), attribute, value, {schema::kGroups});
  }
};
INSTANTIATE_TEST_SUITE_P(Directory, ReadOnlyNodeContract, ::testing::ValuesIn(kKinds), subjectName);

TEST_P(ReadOnlyNodeContract, SaysThatItIsReadOnly) {
  EXPECT_EQ(node()->path(), path());
  EXPECT_EQ(node()->getAttributeFirstValue(schema::kReadOnlyNode), "ReadOnly");
  EXPECT_THAT(node()->getAttribute("nothing"), IsEmpty());
}

TEST_P(ReadOnlyNodeContract, FollowsLocalNodeInSearchPath) {
  const auto search = service().openLocal()->searchNode();
  EXPECT_EQ(search->getAttribute(schema::kSearchPath), (Array{"/Local", path()}));
  EXPECT_EQ(search->findRecord("root", schema::kUsers)->getAttributeFirstValue(schema::kUniqueID),
            "0");
  service()
      .openLocal()
      ->localNode()
      ->newRecord("Root", schema::kUsers)
      ->setAttribute(schema::kUniqueID, "0");
  EXPECT_THAT(namesWith(*search, schema::kUniqueID, "0", {schema::kUsers}),
              ElementsAre("Root", "root"));
  EXPECT_EQ(search->findRecord("root", schema::kUsers)->getAttributeFirstValue(schema::kRecordName),
            "Root");
}

TEST_P(ReadOnlyNodeContract, FindsByNameInAnyLetterCase) {
  EXPECT_THAT(users(schema::kRecordName, "root"), ElementsAre("root"));
  EXPECT_THAT(users(schema::kRecordName, "ROOT"), ElementsAre("root"));
  EXPECT_THAT(groups(schema::kRecordName, "Root"), ElementsAre("root"));
  EXPECT_NE(node()->findRecord("rOOt", schema::kUsers), nullptr);
  EXPECT_EQ(node()->findRecord("no such user", schema::kUsers), nullptr);
  EXPECT_EQ(node()->findRecord("root", kShares), nullptr);
}

TEST_P(ReadOnlyNodeContract, FindsByIdAndByGuid) {
  EXPECT_THAT(users(schema::kUniqueID, "0"), ElementsAre("root"));
  EXPECT_THAT(groups(schema::kPrimaryGroupID, "0"), ElementsAre("root"));
  EXPECT_THAT(users(schema::kGeneratedUID, computedText(PrincipalType::user, 0)),
              ElementsAre("root"));
  EXPECT_THAT(groups(schema::kGeneratedUID, computedText(PrincipalType::group, 0)),
              ElementsAre("root"));
  EXPECT_THAT(users(schema::kGeneratedUID, computedText(PrincipalType::group, 0)), IsEmpty());
  EXPECT_THAT(users(schema::kGeneratedUID, guidText(Guid{})), IsEmpty());
  for (const char* other : {"", "00", "+0", "-1", "x", "4294967296"})
    EXPECT_THAT(users(schema::kUniqueID, other), IsEmpty()) << other;
}

TEST_P(ReadOnlyNodeContract, FindsByAnyOtherAttribute) {
  EXPECT_THAT(users(schema::kHomeDirectory, "/ROOT"), ::testing::Contains("root"));
  EXPECT_THAT(users(schema::kPrimaryGroupID, "0"), ::testing::Contains("root"));
  EXPECT_THAT(users("nobody has it", "x"), IsEmpty());
}

TEST_P(ReadOnlyNodeContract, TextThatNoRecordCanHaveMatchesNothing) {
  for (const std::string& text : {std::string(), std::string("\xFF"), std::string("root\0", 5)}) {
    EXPECT_EQ(node()->findRecord(text, schema::kUsers), nullptr);
    EXPECT_THAT(users(schema::kRecordName, text), IsEmpty());
    EXPECT_THAT(users(schema::kGeneratedUID, text), IsEmpty());
  }
}

TEST_P(ReadOnlyNodeContract, AnswersWhatWasAskedFor) {
  const Array some = node()->findRecordNames("ROOT", {schema::kUniqueID}, schema::kUsers, kExact);
  ASSERT_EQ(some.size(), 1U);
  EXPECT_EQ(some[0], Value(Dictionary{{schema::kUniqueID, Array{"0"}}}));
  const Array all = node()->findRecordNames(kRecordsAll, {kAttributesAll}, schema::kUsers, kExact);
  ASSERT_FALSE(all.empty());
  for (const Value& answer : all) {
    EXPECT_EQ(*answer.dictionary()->array(schema::kRecordType), Array{schema::kUsers});
    EXPECT_TRUE(answer.dictionary()->contains(schema::kRecordName));
    EXPECT_TRUE(answer.dictionary()->contains(schema::kGeneratedUID));
  }
}

TEST_P(ReadOnlyNodeContract, RecordsReadLikeAnyRecord) {
  const auto record = node()->findRecord("root", schema::kUsers);
  const auto attributes = record->getAllAttributes();
  EXPECT_EQ(attributes.at(0), schema::kRecordName);
  EXPECT_EQ(attributes.at(1), schema::kRecordType);
  EXPECT_EQ(record->getAllAttributesAndValues().size(), attributes.size());
  EXPECT_EQ(record->getAttribute(schema::kUniqueID), Array{"0"});
  EXPECT_THAT(record->getAttribute("nothing"), IsEmpty());
  EXPECT_FALSE(record->getAttributeFirstValue("nothing"));
}

TEST_P(ReadOnlyNodeContract, EveryChangeIsNotAllowed) {
  EXPECT_EQ(raised([&] { node()->newRecord("new", schema::kUsers); }), EACCES);
  const auto record = node()->findRecord("root", schema::kUsers);
  EXPECT_EQ(raised([&] { record->setAttribute("a", "1"); }), EACCES);
  EXPECT_EQ(raised([&] { record->setAttribute("a", Array{"1"}); }), EACCES);
  EXPECT_EQ(raised([&] { record->setAttributesAndValues({{"a", "1"}}); }), EACCES);
  EXPECT_EQ(raised([&] { record->removeAttribute("a"); }), EACCES);
  EXPECT_EQ(raised([&] { record->removeRecord(); }), EACCES);
}

TEST_P(ReadOnlyNodeContract, AnEmptyPasswordNeverAuthenticates) {
  EXPECT_EQ(node()->authenticateName("root", "", true), EACCES);
  EXPECT_EQ(node()->authenticateName("root", "", false), EACCES);
}

TEST_P(ReadOnlyNodeContract, AnUnknownMatchTypeIsInvalid) {
  const auto other = static_cast<MatchType>(0);
  EXPECT_EQ(raised([&] { node()->findRecordsOfTypes({}, "a", "b", other); }), EINVAL);
  EXPECT_EQ(raised([&] { node()->findRecordNames("a", {}, schema::kUsers, other); }), EINVAL);
}

}  // namespace
}  // namespace paddock::contract
