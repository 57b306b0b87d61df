// Servers that answer slowly for ever, send without an end, or make little steps of a long way:
// each operation ends, at a bound that is the same however they go about it.
#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <thread>

#include "ldap/ldap_fixture.h"
#include "ldap/ldap_tls_fixture.h"
#include "platform/linux/accounts/account_searches.h"
#include "support/lying_ldap_server.h"

namespace paddock {
namespace {

using ::testing::HasSubstr;
using namespace std::chrono_literals;
using Send = LyingLdapServer::Send;
using Seconds = std::chrono::duration<double>;

// A server that would go on for ever gives up then, so that a client that waits for it fails.
constexpr auto kForEver = 20s;
// What a client that heeds its bounds takes at most, however busy the machine is.
constexpr Seconds kInTime = 10s;

LdapOptions optionsFor(const std::string& uri) {
  LdapOptions options;
  options.name = "liar";
  options.uri = uri;
  options.base = "dc=example";
  options.tls = LdapTls::none;
  options.timeout = 1s;
  options.deadline = 2s;
  return options;
}

// The status of a user lookup, which must return in time.
Status lookInTime(const LdapOptions& options) {
  const auto start = std::chrono::steady_clock::now();
  const Status status = raised([&] { nodeWith(options)->findRecord("anna", schema::kUsers); });
  EXPECT_LT(Seconds(std::chrono::steady_clock::now() - start), kInTime);
  return status;
}

// Calls `step` until it reports that the client is gone, or for kForEver.
template <typename Step>
void forEver(Step&& step) {
  const auto end = std::chrono::steady_clock::now() + kForEver;
  while (std::chrono::steady_clock::now() < end)
    if (!step()) return;
}

std::string person(int request, int number) {
  const std::string name = "anna" + std::to_string(number);
  return ldap_messages::entry(request, "uid=" + name + ",dc=example",
                              {{"objectClass", {"posixAccount"}}, {"uid", {name, "anna"}}});
}

// --- Slowly for ever

TEST(LdapLies, SlowlyTrickledEntriesEndAtDeadline) {
  LyingLdapServer server([](int request, const Send& send) {
    int number = 0;
    forEver([&] {
      std::this_thread::sleep_for(50ms);
      return send(person(request, ++number));
    });
  });
  const LdapOptions options = optionsFor(server.uri());
  EXPECT_EQ(lookInTime(options), ETIMEDOUT);
  EXPECT_THAT(textRaised([&] { nodeWith(options)->findRecord("anna", schema::kUsers); }),
              HasSubstr("not done in the 2 s of \"deadline\""));
}

TEST(LdapLies, BytewiseMessageEndsAtDeadline) {
  LyingLdapServer server([](int request, const Send& send) {
    const std::string message =
        ldap_messages::entry(request, "uid=anna", {{"uid", {std::string(100'000, 'x')}}});
    std::size_t at = 0;
    forEver([&] {
      std::this_thread::sleep_for(20ms);
      return send(message.substr(at++, 1));
    });
  });
  EXPECT_EQ(lookInTime(optionsFor(server.uri())), ETIMEDOUT);
}

TEST(LdapLies, FastStepsShareOneDeadline) {
  LyingLdapServer server([](int request, const Send& send) {
    std::this_thread::sleep_for(10ms);
    // The group has 3,000 members that have to be looked up; none of them exists.
    std::vector<std::string> members;
    for (int i = 0; i < 3'000; ++i) members.push_back("cn=member" + std::to_string(i) + ",dc=x");
    if (request == 1)
      send(ldap_messages::entry(
          request, "cn=staff,dc=example",
          {{"objectClass", {"groupOfNames"}}, {"cn", {"staff"}}, {"member", members}}));
    send(ldap_messages::searchDone(request));
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(
      raised([&] { nodeWith(optionsFor(server.uri()))->findRecord("staff", schema::kGroups); }),
      ETIMEDOUT);
  EXPECT_LT(Seconds(std::chrono::steady_clock::now() - start), kInTime);
}

TEST(LdapLies, ServerExhaustingDeadlineIsSkippedForRestPeriod) {
  LyingLdapServer server([](int request, const Send& send) {
    int number = 0;
    forEver([&] {
      std::this_thread::sleep_for(50ms);
      return send(person(request, ++number));
    });
  });
  const auto shared = std::make_shared<LdapServer>(optionsFor(server.uri()));
  const auto look = [&] {
    EXPECT_EQ(raised([&] { makeLdapNode(shared)->findRecord("anna", schema::kUsers); }), ETIMEDOUT);
  };
  look();
  const int searches = server.searches();
  for (int i = 0; i < 100; ++i) look();
  EXPECT_EQ(server.searches(), searches);
}

using LdapDeafness = LdapTest;

TEST_F(LdapDeafness, ServerRefusingMoreRequestsCostsOneStep) {
  LdapOptions impatient = options();
  impatient.timeout = 1s;
  impatient.deadline = 60s;
  const auto asked = nodeWith(impatient);
  EXPECT_EQ(raised([&] { asked->findRecord("anna", schema::kUsers); }), 0);
  slapd().freeze();
  // More than a socket holds.
  std::vector<AccountQuestion> questions;
  for (int i = 0; i < 60; ++i)
    questions.push_back(
        {schema::kUsers, schema::kRecordName, std::string(20'000, 'x') + std::to_string(i)});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(raised([&] { dynamic_cast<AccountSearches&>(*asked).findEach(questions); }), ETIMEDOUT);
  EXPECT_LT(Seconds(std::chrono::steady_clock::now() - start), kInTime);
}

using LdapTlsLies = LdapTlsCertificates;

TEST_F(LdapTlsLies, BytewiseRecordEndsAtDeadline) {
  makeCertificate("good", "IP:127.0.0.1", false);
  const auto server = serverWith("good", true);
  DrippingProxy proxy(server->port());
  LdapOptions options = clientOf(*server);
  options.uri = proxy.uri("ldaps");
  options.timeout = 60s;
  options.deadline = 6s;
  const auto asked = nodeWith(options);
  EXPECT_EQ(raised([&] { asked->findRecord("anna", schema::kUsers); }), 0);
  options.deadline = 2s;
  const auto slow = nodeWith(options);
  const auto start = std::chrono::steady_clock::now();
  proxy.drip();
  // At that pace the handshake takes longer than this.
  EXPECT_EQ(raised([&] { slow->findRecord("anna", schema::kUsers); }), ETIMEDOUT);
  // So does a record of TLS on the connection that is there, of which every byte is in time.
  server->add(
      "dn: uid=anna,ou=people,dc=example\nobjectClass: inetOrgPerson\nuid: anna\nsn: a\ncn: " +
      std::string(1'000, 'a') + "\n");
  EXPECT_EQ(raised([&] {
              asked->findRecordNames(kRecordsAll, {kAttributesAll}, schema::kUsers, kExact);
            }),
            ETIMEDOUT);
  EXPECT_LT(Seconds(std::chrono::steady_clock::now() - start), 20s);
}

// --- Without an end

struct Flood {
  const char* name;
  std::string (*message)(int request, int number);
};

std::string manyNames(int request, int number) {
  std::vector<ldap_messages::Attribute> attributes;
  for (int i = 0; i < 1'000; ++i)
    attributes.push_back({"a" + std::to_string(number) + "x" + std::to_string(i), {}});
  return ldap_messages::entry(request, "uid=anna", attributes);
}

std::string manyValues(int request, int) {
  return ldap_messages::entry(request, "uid=anna", {{"uid", std::vector<std::string>(10'000, "")}});
}

std::string longName(int request, int) {
  return ldap_messages::entry(request, "uid=" + std::string(10'000, 'x'), {});
}

std::string references(int request, int) {
  std::string many;
  for (int i = 0; i < 100; ++i)
    many += ldap_messages::reference(request, "ldap://elsewhere.example/dc=other");
  return many;
}

class LdapFloods : public ::testing::TestWithParam<Flood> {};
INSTANTIATE_TEST_SUITE_P(Ldap, LdapFloods,
                         ::testing::Values(Flood{"Entries", person},
                                           Flood{"NamesOfAttributes", manyNames},
                                           Flood{"EmptyValues", manyValues},
                                           Flood{"NamesOfEntries", longName},
                                           Flood{"References", references}),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(LdapFloods, EveryByteCounts) {
  LyingLdapServer server([](int request, const Send& send) {
    int number = 0;
    forEver([&] { return send(GetParam().message(request, ++number)); });
  });
  LdapOptions options = optionsFor(server.uri());
  options.timeout = 5s;
  options.deadline = 1h;
  options.answerBytes = 8U << 20U;
  EXPECT_EQ(lookInTime(options), EOVERFLOW);
  EXPECT_THAT(textRaised([&] { nodeWith(options)->findRecord("anna", schema::kUsers); }),
              HasSubstr("more than the 8388608 bytes of \"answer_bytes\""));
}

TEST(LdapLies, DeclaredMessageLengthAboveLimitIsRejected) {
  LyingLdapServer server(
      [](int, const Send& send) { send(std::string("\x30\x84\x02\x80\x00\x00", 6)); });
  const LdapOptions options = optionsFor(server.uri());
  EXPECT_EQ(lookInTime(options), EPROTO);
  EXPECT_THAT(textRaised([&] { nodeWith(options)->findRecord("anna", schema::kUsers); }),
              HasSubstr("no LDAP message, or one of more than 33554432 bytes"));
}

// The library drops them silently, and takes longer for them than for valid ones.
TEST(LdapLies, UnsolicitedAnswersEndWithStep) {
  LyingLdapServer server([](int request, const Send& send) {
    std::string many;
    for (int i = 0; i < 100; ++i) many += ldap_messages::searchDone(request + 1'000);
    forEver([&] { return send(many); });
  });
  EXPECT_THAT(lookInTime(optionsFor(server.uri())), ::testing::AnyOf(ETIMEDOUT, EOVERFLOW));
}

TEST(LdapLies, PagesWithoutProgressAreAProtocolError) {
  LyingLdapServer server([](int request, const Send& send) {
    constexpr int kPages = 5'000;
    send(ldap_messages::searchDone(request, request < kPages ? "the next" : ""));
  });
  EXPECT_EQ(lookInTime(optionsFor(server.uri())), EPROTO);
  EXPECT_EQ(server.searches(), 1);
}

TEST(LdapLies, PagesWithEntriesAreAllAskedFor) {
  LyingLdapServer server([](int request, const Send& send) {
    constexpr int kPages = 20;
    send(person(request, request) +
         ldap_messages::searchDone(request, request < kPages ? "c" : ""));
  });
  EXPECT_EQ(allNames(*nodeWith(optionsFor(server.uri())), schema::kUsers).size(), 20U);
}

TEST(LdapLies, ServersErrorTextIsTruncated) {
  LyingLdapServer server(
      [](int, const Send&) {},
      [](int request, const Send& send) {
        constexpr int kBusy = 51;
        send(ldap_messages::bindDone(request, kBusy, std::string(1'000'000, 'x')));
      });
  LdapOptions options = optionsFor(server.uri());
  const TestFolder folder;
  options.bindDn = "cn=service";
  options.passwordFile = folder.path("password");
  writeWholeFile(options.passwordFile, "secret");
  std::filesystem::permissions(options.passwordFile, std::filesystem::perms(0600));
  const std::string text =
      textRaised([&] { nodeWith(options)->findRecord("anna", schema::kUsers); });
  EXPECT_THAT(text, HasSubstr("xxx..."));
  EXPECT_LT(text.size(), 2'000U);
}

// --- Much of one thing

// What this thread has had of a processor, which others on the machine do not lengthen.
Seconds ownTime() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// The shortest time of three runs of `work`.
template <typename Work>
Seconds leastTime(Work&& work) {
  Seconds least = 1h;
  for (int round = 0; round < 3; ++round) {
    const Seconds start = ownTime();
    work();
    least = std::min(least, ownTime() - start);
  }
  return least;
}

// How long it takes to read what a server sends with `count` of something.
Seconds timeOfReading(int count, const std::string& type,
                      const std::function<std::string(int request, int count)>& message) {
  LyingLdapServer server([&](int request, const Send& send) {
    send(message(request, count) + ldap_messages::searchDone(request));
  });
  LdapOptions options = optionsFor(server.uri());
  options.timeout = 300s;
  options.deadline = 300s;
  return leastTime([&] { EXPECT_NE(nodeWith(options)->findRecord("many", type), nullptr); });
}

void expectLinear(const char* what, const std::string& type,
                  const std::function<std::string(int request, int count)>& message) {
  constexpr int kFew = 10'000;
  constexpr int kMany = 100'000;
  const Seconds few = timeOfReading(kFew, type, message);
  const Seconds many = timeOfReading(kMany, type, message);
  std::cout << what << ": " << kFew << " in " << few.count() << " s, " << kMany << " in "
            << many.count() << " s\n";
  // Ten times as many: a hundred times as long where each is compared with each.
  EXPECT_LT(many, 30 * few + Seconds(0.5));
}

std::vector<std::string> numbered(const std::string& before, int count,
                                  const std::string& behind = {}) {
  std::vector<std::string> texts;
  texts.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) texts.push_back(before + std::to_string(i) + behind);
  return texts;
}

TEST(LdapLies, MemberCostGrowsLinearly) {
  expectLinear("members by name", schema::kGroups, [](int request, int count) {
    return ldap_messages::entry(request, "cn=many,dc=example",
                                {{"objectClass", {"posixGroup"}},
                                 {"cn", {"many"}},
                                 {"memberUid", numbered("member", count)}});
  });
  expectLinear("members by entry", schema::kGroups, [](int request, int count) {
    return ldap_messages::entry(request, "cn=many,dc=example",
                                {{"objectClass", {"groupOfNames"}},
                                 {"cn", {"many"}},
                                 {"member", numbered("uid=member", count, ",dc=example")}});
  });
}

TEST(LdapLies, NameAndAttributeCostGrowsLinearly) {
  expectLinear("names of a user", schema::kUsers, [](int request, int count) {
    std::string dn = "uid=many";
    for (const std::string& name : numbered("+uid=name", count)) dn += name;
    auto names = numbered("name", count);
    names.emplace_back("many");
    return ldap_messages::entry(request, dn + ",dc=example",
                                {{"objectClass", {"posixAccount"}}, {"uid", names}});
  });
  expectLinear("attributes of a record", kShares, [](int request, int count) {
    std::vector<std::string> values{"0.0 dsAttrTypeStandard:RecordName=many"};
    for (int i = 1; i < count; ++i)
      values.push_back(std::to_string(i) + ".0 a" + std::to_string(i) + "=x");
    return ldap_messages::entry(request, "paddockKey=many,dc=example",
                                {{"objectClass", {"paddockRecord"}},
                                 {"paddockType", {kShares}},
                                 {"cn", {"many"}},
                                 {"entryUUID", {"0b4c9a5e-0000-4000-8000-000000000001"}},
                                 {"paddockValue", values}});
  });
}

}  // namespace
}  // namespace paddock
