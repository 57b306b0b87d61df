// The users and groups of a site.
#include "base/guid.h"
#include "base/text.h"
#include "ldap/ldap_fixture.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr const char* kOthers = R"(dn: cn=Bert Blum,ou=people,dc=example
objectClass: inetOrgPerson
uid: bert
cn: Bert Blum
sn: Blum
userPassword: bert's

dn: cn=staff,ou=groups,dc=example
objectClass: posixGroup
cn: staff
gidNumber: 3001
memberUid: anna
memberUid: somebody

dn: cn=editors,ou=groups,dc=example
objectClass: groupOfNames
cn: editors
member: uid=anna,ou=people,dc=example
member: cn=Bert Blum,ou=people,dc=example
member: cn=gone,ou=people,dc=example

dn: cn=everybody,ou=groups,dc=example
objectClass: groupOfNames
cn: everybody
member: cn=editors,ou=groups,dc=example
member: cn=service,dc=example
)";

class LdapDirectoryAccounts : public LdapTest {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (!IsSkipped()) slapd().add(annaEntry("uid: ann\nloginShell: /bin/bash\n") + kOthers);
  }
  std::vector<std::string> users(const std::string& attribute, const std::string& value) {
    return namesWith(*node(), attribute, value, schema::kUsers);
  }
  std::vector<std::string> groups(const std::string& attribute, const std::string& value) {
    return namesWith(*node(), attribute, value, schema::kGroups);
  }
  std::string guidOf(const std::string& name, const std::string& type) {
    return node()->findRecord(name, type)->getAttributeFirstValue(schema::kGeneratedUID).value();
  }
  std::string entryUuid(const std::string& filter) {
    const std::string text = slapd().search({"-b", SlapdServer::kBase, filter, "entryUUID"});
    const auto at = text.find("entryUUID: ") + 11;
    return text.substr(at, 36);
  }
};

TEST_F(LdapDirectoryAccounts, AUserHasWhatItsEntryHas) {
  const auto user = node()->findRecord("ANNA", schema::kUsers);
  ASSERT_NE(user, nullptr);
  EXPECT_EQ(user->getAllAttributesAndValues(),
            (Dictionary{{schema::kRecordName, Array{"anna", "ann"}},
                        {schema::kRecordType, Array{schema::kUsers}},
                        {schema::kRealName, Array{"Anna Arendt"}},
                        {schema::kUniqueID, Array{"2001"}},
                        {schema::kPrimaryGroupID, Array{"3001"}},
                        {schema::kHomeDirectory, Array{"/home/anna"}},
                        {schema::kUserShell, Array{"/bin/bash"}},
                        {schema::kGeneratedUID, Array{guidOf("anna", schema::kUsers)}}}));
  EXPECT_EQ(user->getAllAttributes().at(0), schema::kRecordName);
  EXPECT_EQ(user->getAllAttributes().at(1), schema::kRecordType);
}

TEST_F(LdapDirectoryAccounts, AGeneratedUidIsTheEntrysOwn) {
  const std::string guid = guidOf("anna", schema::kUsers);
  EXPECT_EQ(asciiLower(guid), entryUuid("(uid=anna)"));
  EXPECT_EQ(guidText(parseGuid(guid).value()), guid);
  EXPECT_THAT(users(schema::kGeneratedUID, guid), ElementsAre("anna"));
  EXPECT_THAT(users(schema::kGeneratedUID, asciiLower(guid)), ElementsAre("anna"));
  EXPECT_THAT(groups(schema::kGeneratedUID, guid), IsEmpty());
  for (const char* other : {"", "x", "00000000-0000-0000-0000-000000000000", "*"})
    EXPECT_THAT(users(schema::kGeneratedUID, other), IsEmpty()) << other;
}

TEST_F(LdapDirectoryAccounts, AGeneratedUidMayComeFromAnotherAttribute) {
  slapd().modify(
      "dn: uid=anna,ou=people,dc=example\nchangetype: modify\nadd: employeeNumber\n"
      "employeeNumber: 01234567-89ab-cdef-0123-456789abcdef\n");
  LdapOptions other = options();
  other.accounts.guid = "employeeNumber";
  const auto asked = nodeWith(other);
  const std::string guid = "01234567-89AB-CDEF-0123-456789ABCDEF";
  EXPECT_EQ(asked->findRecord("anna", schema::kUsers)->getAttribute(schema::kGeneratedUID),
            Array{guid});
  EXPECT_THAT(namesWith(*asked, schema::kGeneratedUID, guid, schema::kUsers), ElementsAre("anna"));
  EXPECT_THAT(asked->findRecord("bert", schema::kUsers)->getAttribute(schema::kGeneratedUID),
              IsEmpty());
}

TEST_F(LdapDirectoryAccounts, UsersAreFoundByEveryAttribute) {
  EXPECT_THAT(users(schema::kRecordName, "Ann"), ElementsAre("anna"));
  EXPECT_THAT(users(schema::kUniqueID, "2001"), ElementsAre("anna"));
  EXPECT_THAT(users(schema::kPrimaryGroupID, "3001"), ElementsAre("anna"));
  EXPECT_THAT(users(schema::kRealName, "anna ARENDT"), ElementsAre("anna"));
  EXPECT_THAT(users(schema::kHomeDirectory, "/HOME/anna"), ElementsAre("anna"));
  EXPECT_THAT(users(schema::kUserShell, "/bin/bash"), ElementsAre("anna"));
  EXPECT_THAT(users(schema::kRecordType, "dsrectypestandard:users"), ElementsAre("anna", "bert"));
  EXPECT_THAT(users("uid", "anna"), IsEmpty());
  EXPECT_THAT(users(schema::kUniqueID, "02001"), IsEmpty());
}

TEST_F(LdapDirectoryAccounts, BlanksThatAServerSqueezesCount) {
  for (const char* other : {" anna", "anna ", "Anna  Arendt"}) {
    EXPECT_THAT(users(schema::kRecordName, other), IsEmpty()) << other;
    EXPECT_THAT(users(schema::kRealName, other), IsEmpty()) << other;
    EXPECT_EQ(node()->findRecord(other, schema::kUsers), nullptr) << other;
  }
}

TEST_F(LdapDirectoryAccounts, MembersAreNamesAndGroupsAreGuids) {
  const auto members = [&](const char* group, const char* attribute) {
    return node()->findRecord(group, schema::kGroups)->getAttribute(attribute);
  };
  EXPECT_EQ(members("staff", schema::kGroupMembership), (Array{"anna", "somebody"}));
  EXPECT_EQ(members("editors", schema::kGroupMembership), (Array{"anna", "bert"}));
  EXPECT_THAT(members("editors", schema::kNestedGroups), IsEmpty());
  EXPECT_THAT(members("everybody", schema::kGroupMembership), IsEmpty());
  EXPECT_EQ(members("everybody", schema::kNestedGroups), Array{guidOf("editors", schema::kGroups)});
  EXPECT_EQ(members("staff", schema::kPrimaryGroupID), Array{"3001"});
}

TEST_F(LdapDirectoryAccounts, GroupsAreFoundByTheirMembers) {
  EXPECT_THAT(groups(schema::kGroupMembership, "anna"), UnorderedElementsAre("staff", "editors"));
  EXPECT_THAT(groups(schema::kGroupMembership, "ANNA"), UnorderedElementsAre("staff", "editors"));
  EXPECT_THAT(groups(schema::kGroupMembership, "bert"), ElementsAre("editors"));
  EXPECT_THAT(groups(schema::kGroupMembership, "somebody"), ElementsAre("staff"));
  EXPECT_THAT(groups(schema::kGroupMembership, "nobody"), IsEmpty());
  EXPECT_THAT(groups(schema::kNestedGroups, guidOf("editors", schema::kGroups)),
              ElementsAre("everybody"));
  EXPECT_THAT(groups(schema::kNestedGroups, guidOf("staff", schema::kGroups)), IsEmpty());
  EXPECT_THAT(groups(schema::kPrimaryGroupID, "3001"), ElementsAre("staff"));
}

TEST_F(LdapDirectoryAccounts, UsersAndGroupsAreReadOnly) {
  const auto user = node()->findRecord("anna", schema::kUsers);
  EXPECT_EQ(raised([&] { user->setAttribute("a", "1"); }), EACCES);
  EXPECT_EQ(raised([&] { user->setAttribute("a", Array{"1"}); }), EACCES);
  EXPECT_EQ(raised([&] { user->setAttributesAndValues({{"a", "1"}}); }), EACCES);
  EXPECT_EQ(raised([&] { user->removeAttribute("a"); }), EACCES);
  EXPECT_EQ(raised([&] { user->removeRecord(); }), EACCES);
  EXPECT_NE(node()->findRecord("anna", schema::kUsers), nullptr);
}

TEST_F(LdapDirectoryAccounts, UsersAuthenticateByNameEntriesByDistinguishedName) {
  EXPECT_EQ(node()->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(node()->authenticateName("ANN", "anna's", true), 0);
  EXPECT_EQ(node()->authenticateName("bert", "bert's", true), 0);
  EXPECT_EQ(node()->authenticateName("cn=service,dc=example", "service's", true), 0);
  EXPECT_EQ(node()->authenticateName("cn=service,dc=example", "wrong", true), EACCES);
  EXPECT_EQ(node()->authenticateName("cn=service,dc=example", "", true), EACCES);
  EXPECT_EQ(node()->authenticateName("cn=nobody,dc=example", "x", true), EACCES);
  EXPECT_EQ(node()->authenticateName("service", "service's", true), EACCES);
  EXPECT_EQ(node()->authenticateName("an*", "anna's", true), EACCES);
}

TEST_F(LdapDirectoryAccounts, PasswordBytesAfterNulCount) {
  const std::string password = std::string("anna's") + '\0';
  EXPECT_EQ(node()->authenticateName("anna", password + "x", true), EACCES);
  EXPECT_EQ(node()->authenticateName("anna", password, true), EACCES);
  EXPECT_EQ(node()->authenticateName(std::string("anna") + '\0', "anna's", true), EACCES);
  EXPECT_EQ(node()->authenticateName(std::string("anna") + '\0' + "x", "anna's", true), EACCES);
}

TEST_F(LdapDirectoryAccounts, EmptyNameOrPasswordIsRefusedBeforeQuery) {
  slapd().stop();
  EXPECT_EQ(node()->authenticateName("anna", "", true), EACCES);
  EXPECT_EQ(node()->authenticateName("uid=anna,ou=people,dc=example", "", false), EACCES);
  EXPECT_EQ(node()->authenticateName("", "anna's", true), EACCES);
  EXPECT_EQ(raised([&] { node()->authenticateName("anna", "anna's", true); }), ECONNREFUSED);
}

TEST_F(LdapDirectoryAccounts, DistinguishedNameSyntaxInNamesIsPlainText) {
  const std::string name = "o'a,b+c=\"d\";<#\\>*)(";
  const std::string dn =
      "uid=o'a\\,b\\+c\\=\\\"d\\\"\\;\\<#\\\\\\>*)(," + std::string(SlapdServer::kPeople);
  slapd().add("dn: " + dn + "\nobjectClass: inetOrgPerson\nuid: " + name +
              "\ncn: x\nsn: x\nuserPassword: secret\n\n"
              "dn: cn=named,ou=groups,dc=example\nobjectClass: groupOfNames\ncn: named\nmember: " +
              dn + "\n");
  EXPECT_THAT(users(schema::kRecordName, name), ElementsAre(name));
  EXPECT_EQ(node()->authenticateName(name, "secret", true), 0);
  EXPECT_EQ(node()->findRecord("named", schema::kGroups)->getAttribute(schema::kGroupMembership),
            Array{name});
  EXPECT_THAT(groups(schema::kGroupMembership, name), ElementsAre("named"));
}

TEST_F(LdapDirectoryAccounts, ConfiguredClassAndAttributeNamesAreUsed) {
  slapd().add(
      "dn: cn=Cora,ou=people,dc=example\nobjectClass: organizationalPerson\n"
      "objectClass: extensibleObject\ncn: Cora\nsn: C\nmail: cora@example\n"
      "serialNumber: 77\n");
  LdapOptions other = options();
  other.accounts.userClasses = {"organizationalPerson"};
  other.accounts.userName = "mail";
  other.accounts.userId = "serialNumber";
  other.accounts.userRealName = "";
  const auto user = nodeWith(other)->findRecord("cora@example", schema::kUsers);
  ASSERT_NE(user, nullptr);
  EXPECT_EQ(user->getAttribute(schema::kUniqueID), Array{"77"});
  EXPECT_THAT(user->getAttribute(schema::kRealName), IsEmpty());
}

class LdapMemberOf : public LdapDirectoryAccounts {
 protected:
  SlapdOptions slapdOptions() override {
    return {.global = "moduleload memberof.so\n", .database = "overlay memberof\n"};
  }
};

TEST_F(LdapMemberOf, ServerMaintainedMembersCostOneSearch) {
  LdapOptions other = options();
  other.accounts.memberOf = "memberOf";
  const auto asked = nodeWith(other);
  const auto members =
      asked->findRecord("editors", schema::kGroups)->getAttribute(schema::kGroupMembership);
  EXPECT_THAT(members, UnorderedElementsAre(Value("anna"), Value("bert")));
  EXPECT_EQ(asked->findRecord("everybody", schema::kGroups)->getAttribute(schema::kNestedGroups),
            Array{guidOf("editors", schema::kGroups)});
}

}  // namespace
}  // namespace paddock
