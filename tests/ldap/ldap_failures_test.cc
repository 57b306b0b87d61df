// Servers that are not there, do not answer, or say something else.
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <chrono>
#include <filesystem>
#include <functional>
#include <sstream>
#include <thread>

#include "ldap/ldap_fixture.h"
#include "ldap/ldap_tls_fixture.h"
#include "support/run_to_end.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Seconds = std::chrono::duration<double>;

LdapOptions impatient(const std::string& uri) {
  LdapOptions options;
  options.name = "x";
  options.uri = uri;
  options.base = "dc=example";
  options.timeout = std::chrono::milliseconds(500);
  return options;
}

// While it lives, the leak sanitizer, where there is one, tolerates what the thread's calls leave.
class LeaksOfLibraries {
 public:
#ifdef __SANITIZE_ADDRESS__
  LeaksOfLibraries() { __lsan_disable(); }
  ~LeaksOfLibraries() { __lsan_enable(); }
#else
  LeaksOfLibraries() = default;
  ~LeaksOfLibraries() = default;
#endif
  LeaksOfLibraries(const LeaksOfLibraries&) = delete;
  LeaksOfLibraries& operator=(const LeaksOfLibraries&) = delete;
};

template <typename Work>
Seconds timeOf(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::steady_clock::now() - start;
}

// Every operation that asks the server.
std::vector<std::function<void(DirectoryNode&)>> everyOperation() {
  return {[](DirectoryNode& node) { node.findRecord("a", kShares); },
          [](DirectoryNode& node) { node.findRecord("a", schema::kUsers); },
          [](DirectoryNode& node) { node.newRecord("a", kShares); },
          [](DirectoryNode& node) { node.findRecordsOfTypes({kShares}, "a", "b", kExact); },
          [](DirectoryNode& node) { node.findRecordNames("a", {}, kShares, kExact); },
          [](DirectoryNode& node) { node.authenticateName("a", "b", true); },
          [](DirectoryNode& node) { node.authenticateName("cn=a", "b", false); },
          [](DirectoryNode& node) { node.getAttribute(schema::kReadOnlyNode); }};
}

void expectOfEveryOperation(const LdapOptions& options, Status status) {
  for (const auto& operation : everyOperation())
    EXPECT_EQ(raised([&] { operation(*nodeWith(options)); }), status);
}

TEST(LdapFailures, AServerThatIsNotThereRefuses) {
  expectOfEveryOperation(impatient("ldap://127.0.0.1:" + std::to_string(freeLoopbackPort())),
                         ECONNREFUSED);
  expectOfEveryOperation(impatient("ldapi://%2Fnowhere%2Fsocket"), ECONNREFUSED);
}

TEST(LdapFailures, UnknownHostReturnsNoRoute) {
  EXPECT_EQ(
      raised([] { nodeWith(impatient("ldap://no-such-host.invalid"))->findRecord("a", "b"); }),
      EHOSTUNREACH);
}

TEST(LdapFailures, AUriThatIsNoneIsInvalid) {
  expectOfEveryOperation(impatient("ldap://[x"), EINVAL);
  LdapOptions options = impatient("ldap://127.0.0.1:1");
  options.tls = LdapTls::ldaps;
  expectOfEveryOperation(options, EINVAL);
}

TEST(LdapFailures, AServerThatNeverAnswersCostsOneTimeout) {
  TalkingServer server("");
  for (const auto& operation : everyOperation()) {
    const auto node = nodeWith(impatient(server.uri()));
    const Seconds time = timeOf([&] { EXPECT_EQ(raised([&] { operation(*node); }), ETIMEDOUT); });
    EXPECT_GE(time.count(), 0.4);
    EXPECT_LT(time.count(), 4.0);
  }
}

TEST(LdapFailures, UnresponsiveServerIsSkippedForRestPeriod) {
  TalkingServer server("");
  const auto shared = std::make_shared<LdapServer>(impatient(server.uri()));
  const auto look = [&] {
    EXPECT_EQ(raised([&] { makeLdapNode(shared)->findRecord("a", kShares); }), ETIMEDOUT);
  };
  look();
  const int connections = server.connections();
  constexpr int kLookups = 200;
  const Seconds time = timeOf([&] {
    for (int i = 0; i < kLookups; ++i) look();
  });
  EXPECT_LT(time.count(), 0.4);
  EXPECT_EQ(server.connections(), connections);
}

TEST(LdapFailures, AfterAWhileItIsAskedAgain) {
  TalkingServer server("");
  LdapOptions options = impatient(server.uri());
  options.silence = std::chrono::milliseconds(1);
  const auto shared = std::make_shared<LdapServer>(options);
  for (int round = 1; round <= 2; ++round) {
    EXPECT_EQ(raised([&] { makeLdapNode(shared)->findRecord("a", kShares); }), ETIMEDOUT);
    EXPECT_EQ(server.connections(), round);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void expectProtocolErrorFor(const std::string& garbage) {
  TalkingServer server(garbage);
  const Status status =
      raised([&] { nodeWith(impatient(server.uri()))->findRecord("a", kShares); });
  EXPECT_THAT(status, ::testing::AnyOf(EPROTO, ETIMEDOUT, ECONNRESET));
}

TEST(LdapFailures, GarbageIsAProtocolError) {
  const std::vector<std::string> garbage{
      "HTTP/1.1 400 Bad Request\r\n\r\n",
      std::string("\x30\x84\x7F\xFF\xFF\xFF", 6) + std::string(1000, 'x'),  // a message of 2 GiB
      std::string("\x30\x05\x02\x01\x01\x64\x7F", 7) + std::string(200, '\0'),
      std::string(1000, '\xFF'), std::string(1000, '\0')};
  for (std::size_t at = 0; at < garbage.size(); ++at) {
    SCOPED_TRACE(at);
    expectProtocolErrorFor(garbage[at]);
  }
}

TEST(LdapFailures, AnswerTruncatedAfterNumberIsProtocolError) {
  // libldap never frees the request that such an answer belongs to, not with the connection either.
  [[maybe_unused]] const LeaksOfLibraries tolerated;
  expectProtocolErrorFor(std::string("\x30\x03\x02\x01\x01", 5));
}

// --- A real server

class LdapServerFailures : public LdapTest {};

TEST_F(LdapServerFailures, ABaseThatDoesNotExistIsNamed) {
  LdapOptions other = options();
  other.base = "dc=nowhere";
  other.recordsBase = "ou=nowhere,dc=example";
  const auto asked = nodeWith(other);
  EXPECT_EQ(raised([&] { asked->findRecord("a", kShares); }), ENOENT);
  EXPECT_EQ(raised([&] { asked->newRecord("a", kShares); }), ENOENT);
  EXPECT_EQ(raised([&] { asked->findRecord("a", schema::kUsers); }), ENOENT);
  EXPECT_EQ(raised([&] { asked->getAttribute(schema::kReadOnlyNode); }), ENOENT);
  EXPECT_THAT(textRaised([&] { asked->findRecord("a", kShares); }),
              HasSubstr("ou=nowhere,dc=example"));
  other.base = "no name";
  other.recordsBase = "no name";
  EXPECT_EQ(raised([&] { nodeWith(other)->findRecord("a", kShares); }), EINVAL);
  EXPECT_EQ(raised([&] { nodeWith(other)->findRecord("a", schema::kUsers); }), EINVAL);
}

TEST_F(LdapServerFailures, TheConfiguredAccountMustBeRight) {
  const auto with = [&](const std::string& dn, const std::string& passwordFile) {
    LdapOptions other = options();
    other.bindDn = dn;
    other.passwordFile = passwordFile;
    return raised([&] { nodeWith(other)->findRecord("a", kShares); });
  };
  const std::string file = options().passwordFile;
  EXPECT_EQ(with(SlapdServer::kService, file), 0);
  EXPECT_EQ(with("cn=nobody,dc=example", file), EACCES);
  EXPECT_EQ(with(SlapdServer::kService, slapd().folder().path("absent")), EACCES);
  EXPECT_EQ(with(SlapdServer::kService, slapd().folder().path()), EACCES);
  const std::string other = slapd().folder().path("other");
  for (const std::string& text :
       {std::string("wrong"), std::string(), std::string("\n"), std::string(5000, 'x')}) {
    writeWholeFile(other, text);
    std::filesystem::permissions(other, std::filesystem::perms(0600));
    EXPECT_EQ(with(SlapdServer::kService, other), EACCES) << text.substr(0, 10);
  }
  writeWholeFile(other, SlapdServer::kServicePassword);
  EXPECT_EQ(with(SlapdServer::kService, other), 0);
  std::filesystem::permissions(other, std::filesystem::perms(0644));
  EXPECT_EQ(with(SlapdServer::kService, other), EACCES);
}

TEST_F(LdapServerFailures, APasswordIsInNoErrorText) {
  LdapOptions other = options();
  other.bindDn = "cn=nobody,dc=example";
  EXPECT_THAT(textRaised([&] { nodeWith(other)->findRecord("a", kShares); }),
              Not(HasSubstr(SlapdServer::kServicePassword)));
}

TEST_F(LdapServerFailures, RestartedServerIsReconnected) {
  const auto kept = node();
  const auto record = kept->newRecord("Docs", kShares);
  slapd().stop();
  slapd().start();
  record->setAttribute("a", "1");
  slapd().kill();
  slapd().start();
  EXPECT_THAT(namesWith(*kept, "a", "1"), ElementsAre("Docs"));
  slapd().kill();
  EXPECT_EQ(raised([&] { kept->findRecord("Docs", kShares); }), ECONNREFUSED);
  EXPECT_EQ(raised([&] { record->setAttribute("a", "2"); }), ECONNREFUSED);
  slapd().start();
  EXPECT_EQ(record->getAttributeFirstValue("a"), "1");
}

TEST_F(LdapServerFailures, AnAuthenticationIsMadeAgainWithTheConnection) {
  slapd().addPerson("reader", "reader's", false);
  slapd().addPerson("writer", "writer's", true);
  for (const char* name : {"reader", "writer"}) {
    const auto kept = node();
    ASSERT_EQ(kept->authenticateName(name, std::string(name) + "'s", false), 0);
    slapd().stop();
    slapd().start();
    EXPECT_EQ(raised([&] { kept->newRecord(name, kShares); }),
              std::string(name) == "writer" ? 0 : EACCES);
  }
}

TEST_F(LdapServerFailures, AFrozenServerTimesOut) {
  LdapOptions other = options();
  other.timeout = std::chrono::milliseconds(500);
  const auto kept = nodeWith(other);
  const auto record = kept->newRecord("Docs", kShares);
  slapd().freeze();
  EXPECT_EQ(raised([&] { record->setAttribute("a", "1"); }), ETIMEDOUT);
  EXPECT_EQ(raised([&] { kept->findRecord("Docs", kShares); }), ETIMEDOUT);
  slapd().thaw();
  EXPECT_NE(node()->findRecord("Docs", kShares), nullptr);
}

TEST_F(LdapServerFailures, ReferencesToOtherServersAreNotFollowed) {
  TalkingServer other("");
  slapd().add(
      "dn: ou=elsewhere,ou=paddock,dc=example\nobjectClass: referral\n"
      "objectClass: extensibleObject\nou: elsewhere\nref: " +
      other.uri() + "/dc=other\n");
  node()->newRecord("Docs", kShares);
  // Below the base it is passed over; the base itself cannot be elsewhere.
  EXPECT_EQ(allNames(*node()), std::vector<std::string>{"Docs"});
  LdapOptions elsewhere = options();
  elsewhere.recordsBase = "ou=elsewhere,ou=paddock,dc=example";
  EXPECT_EQ(raised([&] { nodeWith(elsewhere)->findRecord("Docs", kShares); }), EACCES);
  EXPECT_EQ(raised([&] { nodeWith(elsewhere)->newRecord("New", kShares); }), EACCES);
  EXPECT_EQ(other.connections(), 0);
}

class LdapConnections : public LdapTest {
 protected:
  SlapdOptions slapdOptions() override { return {.statistics = true}; }
  // The number of connections made by `work`.
  template <typename Work>
  int madeBy(Work&& work) {
    const int before = slapd().connections();
    work();
    return slapd().connections() - before;
  }
};

TEST_F(LdapConnections, SessionPassesItsConnectionToNext) {
  const auto work = [this] {
    const auto mine = node();
    const auto record = mine->newRecord("Docs", kShares);
    record->setAttribute("a", "1");
    EXPECT_EQ(allNames(*mine).size(), 1U);
    EXPECT_EQ(mine->getAttributeFirstValue(schema::kReadOnlyNode), schema::kReadWrite);
    record->removeRecord();
  };
  EXPECT_EQ(madeBy(work), 1);
  EXPECT_EQ(madeBy(work), 0);
}

TEST_F(LdapConnections, SessionsAtTheSameTimeHaveOneEach) {
  EXPECT_EQ(madeBy([this] {
              const auto one = node();
              const auto other = node();
              for (const auto& each : {one, other, one, other}) allNames(*each);
            }),
            2);
}

TEST_F(LdapConnections, AuthenticatedConnectionIsNotReusedForOthers) {
  slapd().addPerson("anna", "anna's", true);
  EXPECT_EQ(madeBy([this] { allNames(*node()); }), 1);
  const auto authenticate = [this] {
    const auto mine = node();
    EXPECT_EQ(mine->authenticateName("anna", "anna's", false), 0);
    EXPECT_TRUE(allNames(*mine).empty());
  };
  EXPECT_EQ(madeBy(authenticate), 1);
  EXPECT_EQ(madeBy(authenticate), 1);
  EXPECT_EQ(madeBy([this] { allNames(*node()); }), 0);
}

class LdapWithoutSchema : public LdapTest {
 protected:
  SlapdOptions slapdOptions() override { return {.schema = false}; }
};

TEST_F(LdapWithoutSchema, UsersAreReadAndRecordsCannotBeMade) {
  slapd().addPerson("anna", "anna's", true);
  EXPECT_NE(node()->findRecord("anna", schema::kUsers), nullptr);
  EXPECT_EQ(node()->authenticateName("anna", "anna's", true), 0);
  EXPECT_EQ(node()->findRecord("a", kShares), nullptr);
  EXPECT_THAT(allNames(*node()), IsEmpty());
  EXPECT_EQ(raised([&] { node()->newRecord("a", kShares); }), ENOTSUP);
  EXPECT_THAT(textRaised([&] { node()->newRecord("a", kShares); }), HasSubstr("schema"));
  EXPECT_EQ(node()->getAttributeFirstValue(schema::kReadOnlyNode), "ReadOnly");
}

class LdapWithALimit : public LdapTest {
 protected:
  SlapdOptions slapdOptions() override {
    return {.database = "limits dn.exact=\"cn=service,dc=example\" size=5\n"};
  }
};

TEST_F(LdapWithALimit, SearchHittingLimitFailsInsteadOfTruncating) {
  for (int i = 0; i < 5; ++i) node()->newRecord(std::to_string(i), kShares)->setAttribute("a", "1");
  EXPECT_EQ(allNames(*node()).size(), 5U);
  node()->newRecord("5", kMounts)->setAttribute("a", "1");
  EXPECT_EQ(allNames(*node()).size(), 5U);
  node()->newRecord("6", kShares);
  EXPECT_EQ(raised([&] { allNames(*node()); }), EOVERFLOW);
  EXPECT_EQ(namesWith(*node(), "a", "1").size(), 5U);
}

// --- TLS

TEST_F(LdapTlsCertificates, AGoodCertificateIsTakenByStartTls) {
  makeCertificate("good", "IP:127.0.0.1", false);
  const auto server = serverWith("good");
  const auto asked = nodeWith(clientOf(*server));
  asked->newRecord("Docs", kShares)->setAttribute("a", "1");
  EXPECT_THAT(namesWith(*asked, "a", "1"), ElementsAre("Docs"));
  server->addPerson("anna", "anna's", true);
  EXPECT_EQ(asked->authenticateName("anna", "anna's", false), 0);
}

TEST_F(LdapTlsCertificates, AGoodCertificateIsTakenByLdaps) {
  makeCertificate("good", "IP:127.0.0.1", false);
  const auto server = serverWith("good", true);
  LdapOptions options = clientOf(*server);
  options.uri.replace(0, 4, "ldaps");
  for (const LdapTls tls : {LdapTls::ldaps, LdapTls::startTls, LdapTls::none}) {
    options.tls = tls;
    EXPECT_EQ(look(options), 0);
  }
  options.caFile = path("other.pem");
  for (const LdapTls tls : {LdapTls::ldaps, LdapTls::startTls, LdapTls::none}) {
    options.tls = tls;
    EXPECT_EQ(look(options), EKEYREJECTED);
  }
}

TEST_F(LdapTlsCertificates, ACertificateOfAnotherAuthorityIsRejected) {
  makeCertificate("good", "IP:127.0.0.1", false);
  const auto server = serverWith("good");
  EXPECT_EQ(look(clientOf(*server, "other")), EKEYREJECTED);
}

TEST_F(LdapTlsCertificates, AnExpiredCertificateIsRejected) {
  makeCertificate("old", "IP:127.0.0.1", true);
  EXPECT_EQ(look(clientOf(*serverWith("old"))), EKEYREJECTED);
}

TEST_F(LdapTlsCertificates, ACertificateForAnotherNameIsRejected) {
  makeCertificate("named", "DNS:elsewhere.example", false);
  EXPECT_EQ(look(clientOf(*serverWith("named"))), EKEYREJECTED);
}

TEST_F(LdapTlsCertificates, ServerWithoutTlsIsRefused) {
  SlapdOptions options;
  options.tcp = true;
  const SlapdServer server(options);
  EXPECT_EQ(look(clientOf(server)), EKEYREJECTED);
  LdapOptions plain = clientOf(server);
  plain.tls = LdapTls::none;
  EXPECT_EQ(look(plain), 0);
}

TEST_F(LdapTlsCertificates, TlsWithUnresponsiveServerTimesOut) {
  TalkingServer server("");
  for (const LdapTls tls : {LdapTls::startTls, LdapTls::ldaps}) {
    LdapOptions options = impatient(server.uri());
    if (tls == LdapTls::ldaps) options.uri.replace(0, 4, "ldaps");
    options.tls = tls;
    options.caFile = path("ca.pem");
    const Seconds time = timeOf([&] {
      EXPECT_EQ(raised([&] { nodeWith(options)->findRecord("a", kShares); }), ETIMEDOUT);
    });
    EXPECT_LT(time.count(), 4.0);
  }
}

TEST_F(LdapTlsCertificates, UnreadableAuthorityFails) {
  makeCertificate("good", "IP:127.0.0.1", false);
  const auto server = serverWith("good");
  LdapOptions options = clientOf(*server, "absent");
  EXPECT_EQ(look(options), EKEYREJECTED);
  EXPECT_THAT(textRaised([&] { nodeWith(options)->findRecord("a", kShares); }),
              HasSubstr("absent.pem"));
}

}  // namespace
}  // namespace paddock
