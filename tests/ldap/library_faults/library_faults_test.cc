// Every call of libldap that can fail, and of the system around it, fails in turn under every
// operation of a node: it ends in a status that says why, with the operation done or not done,
// nothing left open, and the next one succeeds.
#include "ldap/library_faults/library_faults.h"

#include "ldap/ldap_operations.h"
#include "ldap/ldap_tls_fixture.h"
#include "platform/linux/accounts/account_searches.h"
#include "support/open_descriptors.h"

namespace paddock {
namespace {

using ::testing::AnyOf;
using Kind = LibraryFaults::Kind;

constexpr const char* kOthers = R"(dn: cn=Bert Blum,ou=people,dc=example
objectClass: inetOrgPerson
uid: bert
cn: Bert Blum
sn: Blum

dn: cn=editors,ou=groups,dc=example
objectClass: groupOfNames
cn: editors
member: uid=anna,ou=people,dc=example
member: cn=Bert Blum,ou=people,dc=example

dn: cn=everybody,ou=groups,dc=example
objectClass: groupOfNames
cn: everybody
member: cn=editors,ou=groups,dc=example
)";

void nothing(DirectoryNode&) {}
bool always(DirectoryNode&) { return true; }

void authenticateAndCreate(DirectoryNode& node) {
  EXPECT_EQ(node.authenticateName("anna", "anna's", false), 0);
  node.newRecord("Docs", kShares);
}

void askWhoIsWho(DirectoryNode& node) {
  EXPECT_EQ(namesWith(node, schema::kPrimaryGroupID, "3001", schema::kUsers),
            std::vector<std::string>{"anna"});
  const auto answers = dynamic_cast<AccountSearches&>(node).findEach(
      {{schema::kUsers, schema::kUniqueID, "2001"}, {schema::kUsers, schema::kUniqueID, "9"}});
  EXPECT_EQ(namesOf(answers.at(0)), std::vector<std::string>{"anna"});
  EXPECT_TRUE(answers.at(1).empty());
  const auto editors = node.findRecord("editors", schema::kGroups);
  EXPECT_EQ(editors->getAttribute(schema::kGroupMembership), (Array{"anna", "bert"}));
  EXPECT_EQ(node.findRecord("everybody", schema::kGroups)->getAttribute(schema::kNestedGroups),
            editors->getAttribute(schema::kGeneratedUID));
  EXPECT_EQ(allNames(node, schema::kUsers), (std::vector<std::string>{"anna", "bert"}));
}

void askWhetherItCanBeWritten(DirectoryNode& node) {
  EXPECT_EQ(node.getAttributeFirstValue(schema::kReadOnlyNode), schema::kReadWrite);
}

std::vector<Operation> operations() {
  auto all = operationsOnRecords();
  const auto hasOne = [](DirectoryNode& node) { return allNames(node).size() == 1; };
  const auto hasNone = [](DirectoryNode& node) { return allNames(node).empty(); };
  all.push_back({"Authenticate", nothing, authenticateAndCreate, hasOne, hasNone});
  all.push_back({"WhoIsWho", nothing, askWhoIsWho, always, always});
  all.push_back({"CanBeWritten", nothing, askWhetherItCanBeWritten, always, always});
  return all;
}

struct Mode {
  const char* name;
  Kind kind;
  bool forGood;
};

// What one call that fails ends in.
Status statusAfter(const std::string& call, Kind kind) {
  if (kind == Kind::serverDown) return 0;        // the connection is made again
  if (call == "ldap_create") return 0;           // only makes the library read its files early
  if (call == "poll") return 0;                  // the connection is made again
  if (call == "ldap_set_option") return EINVAL;  // says only that it does not take it
  return ENOMEM;
}

class LdapLibraryFaults : public LdapTest,
                          public ::testing::WithParamInterface<std::tuple<Operation, Mode>> {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    slapd().add(annaEntry("employeeType: writer\n") + kOthers);
    healthy_ = std::make_shared<LdapServer>(options());
  }
  // A node whose calls do not fail.
  std::shared_ptr<DirectoryNode> node() { return makeLdapNode(healthy_); }

  const Operation& operation() const { return std::get<0>(GetParam()); }
  const Mode& mode() const { return std::get<1>(GetParam()); }

  // Runs it while this call fails, and checks the postconditions. Returns whether there was such a
  // call.
  bool failCall(int number) {
    operation().prepare(*node());
    healthy_->closeIdle();
    const std::set<int> before = openDescriptors();
    auto asked = nodeWith(options());
    LibraryFaults::failAt(number, mode().kind, mode().forGood);
    const Status status = raised([&] { operation().run(*asked); });
    LibraryFaults::heal();
    const std::string call = LibraryFaults::failed();
    const std::string what = call + ", call " + std::to_string(number);
    expectStatus(status, call, what);
    EXPECT_TRUE(status == 0 ? operation().isDone(*node()) : operation().isWhollyDoneOrNot(*node()))
        << what << ", status " << status;
    if (!operation().isDone(*node())) {
      const std::string text = textRaised([&] { operation().run(*asked); });
      // What a lost connection carried may be done by the server just before it is asked again.
      const bool isDoneLate = mode().kind == Kind::serverDown && operation().isDone(*node());
      EXPECT_TRUE(text.empty() || isDoneLate) << what << ": " << text;
    }
    EXPECT_TRUE(operation().isDone(*node())) << what;
    asked.reset();
    healthy_->closeIdle();
    EXPECT_EQ(openDescriptors(), before) << what;
    removeAll(*node());
    return !call.empty();
  }

 private:
  void expectStatus(Status status, const std::string& call, const std::string& what) {
    if (call.empty()) {
      EXPECT_EQ(status, 0);
    } else if (!mode().forGood) {
      EXPECT_EQ(status, statusAfter(call, mode().kind)) << what;
    } else if (mode().kind == Kind::serverDown) {
      EXPECT_THAT(status, AnyOf(ECONNRESET, ECONNREFUSED)) << what;
    } else {
      EXPECT_THAT(status, AnyOf(ENOMEM, EINVAL)) << what;
    }
  }

  std::shared_ptr<LdapServer> healthy_;
};
INSTANTIATE_TEST_SUITE_P(
    Ldap, LdapLibraryFaults,
    ::testing::Combine(::testing::ValuesIn(operations()),
                       ::testing::Values(Mode{"Once", Kind::noMemory, false},
                                         Mode{"FromThenOn", Kind::noMemory, true},
                                         Mode{"ConnectionLostOnce", Kind::serverDown, false},
                                         Mode{"ConnectionLostForGood", Kind::serverDown, true})),
    [](const auto& each) {
      return std::string(std::get<0>(each.param).name) + std::get<1>(each.param).name;
    });

TEST_P(LdapLibraryFaults, EveryCallFailsInTurn) {
  constexpr int kMoreThanAnyOperationMakes = 1000;
  int number = 1;
  while (failCall(number) && !HasFailure()) ASSERT_LT(++number, kMoreThanAnyOperationMakes);
  EXPECT_GT(number, mode().kind == Kind::noMemory ? 20 : 5);
}

using LdapTlsFaults = LdapTlsCertificates;

// What one call that fails may end in besides: the option at which the library reads certificates
// fails as they do, and a handshake that breaks is made again.
Status statusInHandshake(const std::string& call, Kind kind) {
  if (call.empty()) return 0;
  if (call == "ldap_set_option") return EKEYREJECTED;
  return call == "poll" || call == "ber_sockbuf_ctrl" ? 0 : statusAfter(call, kind);
}

TEST_F(LdapTlsFaults, EveryCallFailsInTurn) {
  makeCertificate("good", "IP:127.0.0.1", false);
  const auto server = serverWith("good");
  const LdapOptions options = clientOf(*server);
  const std::set<int> before = openDescriptors();
  for (const Kind kind : {Kind::noMemory, Kind::serverDown}) {
    std::set<std::string> failed;
    bool hasFailed = true;
    for (int number = 1; hasFailed && !HasFailure(); ++number) {
      LibraryFaults::failAt(number, kind, false);
      const Status status = look(options);
      LibraryFaults::heal();
      const std::string call = LibraryFaults::failed();
      const Status expected = call.empty() ? 0 : statusAfter(call, kind);
      EXPECT_THAT(status, AnyOf(expected, statusInHandshake(call, kind)))
          << call << ", call " << number;
      EXPECT_EQ(openDescriptors(), before) << call << ", call " << number;
      hasFailed = !call.empty();
      failed.insert(call);
    }
    EXPECT_EQ(failed.count("ldap_start_tls"), 1U);
    EXPECT_EQ(failed.count("ldap_install_tls"), 1U);
  }
}

}  // namespace
}  // namespace paddock
