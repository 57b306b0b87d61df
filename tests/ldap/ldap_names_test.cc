// How often a directory server is asked who the principals of a list are.
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <set>
#include <thread>

#include "base/guid.h"
#include "ldap/ldap_fixture.h"
#include "platform/linux/accounts/account_searches.h"
#include "platform/testing/recording_host_services.h"
#include "privileges/get_acl.h"
#include "privileges/set_acl.h"
#include "support/file_acl_world.h"
#include "support/privileges_world.h"
#include "support/temporary_folder.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kEntries = 128;
// Ids that no account of the host has.
constexpr int kFirstId = 2'011'000'000;

// A folder that can have long lists: ext4 has room for one of a hundred entries at most.
class ListedFolder {
 public:
  ListedFolder() {
    if (::mkdtemp(path_.data()) == nullptr) path_.clear();
  }
  ListedFolder(const ListedFolder&) = delete;
  ListedFolder& operator=(const ListedFolder&) = delete;
  ~ListedFolder() {
    if (!path_.empty()) ::rmdir(path_.c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_ = "/dev/shm/paddock-test.XXXXXX";
};

std::string posixAccount(int number) {
  const std::string text = std::to_string(number);
  return "dn: uid=user" + text + ",ou=people,dc=example\nobjectClass: inetOrgPerson\n" +
         "objectClass: posixAccount\nuid: user" + text + "\ncn: User " + text +
         "\nsn: x\nuidNumber: " + std::to_string(kFirstId + number) +
         "\ngidNumber: 2012000000\nhomeDirectory: /\n\n";
}

std::string posixGroup(int number) {
  const std::string text = std::to_string(number);
  return "dn: cn=group" + text + ",ou=groups,dc=example\nobjectClass: posixGroup\ncn: group" +
         text + "\ngidNumber: " + std::to_string(kFirstId + number) + "\nmemberUid: user1\n\n";
}

class LdapNames : public LdapTest {
 protected:
  void SetUp() override {
    LdapTest::SetUp();
    if (IsSkipped()) return;
    if (listed_.path().empty()) GTEST_SKIP() << "no folder can be made in /dev/shm";
    if (const std::string why = whyNoLists(listed_.path()); !why.empty()) GTEST_SKIP() << why;
    std::string entries;
    for (int number = 0; number < kEntries; ++number)
      entries += number % 4 == 3 ? posixGroup(number) : posixAccount(number);
    slapd().add(entries);
  }
  SlapdOptions slapdOptions() override { return {.statistics = true}; }

  LdapOptions keeping(std::chrono::milliseconds time) {
    LdapOptions options = slapd().nodeOptions();
    options.keeping = time;
    return options;
  }

  // Writes a list of all of them to the folder, through a separate cache of answers.
  void writeList() {
    PrivilegesWorld world(folder_.path(), {keeping(std::chrono::hours(1))});
    const ServicesGuard guard(world.services);
    Array entries;
    for (int number = 0; number < kEntries; ++number) {
      const bool isGroup = number % 4 == 3;
      entries.emplace_back(Dictionary{{"isUser", isGroup ? 1 : 0},
                                      {isGroup ? "groupID" : "uniqueID", kFirstId + number},
                                      {"allowPermission", "YES"},
                                      {"bitmap", 2},
                                      {"flags", 0}});
    }
    ASSERT_EQ(set_acl(listed_.path(), entries), 0);
  }

  std::string namesInList() const {
    Array entries;
    EXPECT_EQ(get_acl(listed_.path(), entries), 0);
    std::string names;
    for (const Value& entry : entries) {
      names += *entry.dictionary()->string("displayName");
      names += *entry.dictionary()->integer("isUser") == 0 ? " " : "(group) ";
    }
    return names;
  }
  static std::string expectedNames() {
    std::string names;
    for (int number = 0; number < kEntries; ++number)
      names += number % 4 == 3 ? "group" + std::to_string(number) + "(group) "
                               : "User " + std::to_string(number) + " ";
    return names;
  }

  // The searches made by `work`.
  template <typename Work>
  std::vector<std::string> searchesOf(Work&& work) {
    const auto before = static_cast<std::ptrdiff_t>(slapd().searches().size());
    work();
    auto all = slapd().searches();
    all.erase(all.begin(), all.begin() + before);
    return all;
  }

  TestFolder folder_;
  ListedFolder listed_;
};

TEST_F(LdapNames, AListOf128PrincipalsCosts128Searches) {
  writeList();
  PrivilegesWorld world(folder_.path(), {keeping(std::chrono::hours(1))});
  const ServicesGuard guard(world.services);
  const auto searches = searchesOf([&] { EXPECT_EQ(namesInList(), expectedNames()); });
  EXPECT_EQ(searches.size(), static_cast<std::size_t>(kEntries));
  EXPECT_EQ(std::set(searches.begin(), searches.end()).size(), searches.size());
  // Who they are is known then.
  EXPECT_THAT(searchesOf([&] { EXPECT_EQ(namesInList(), expectedNames()); }), IsEmpty());
}

TEST_F(LdapNames, ParallelRequestsAskForEachPrincipalOnce) {
  writeList();
  PrivilegesWorld world(folder_.path(), {keeping(std::chrono::hours(1))});
  const ServicesGuard guard(world.services);
  constexpr int kThreads = 16;
  const auto searches = searchesOf([&] {
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread)
      threads.emplace_back([this] { EXPECT_EQ(namesInList(), expectedNames()); });
    for (std::thread& thread : threads) thread.join();
  });
  EXPECT_EQ(searches.size(), static_cast<std::size_t>(kEntries));
  EXPECT_EQ(std::set(searches.begin(), searches.end()).size(), searches.size());
}

TEST_F(LdapNames, UncachedPrincipalCostsIdAndGuidSearch) {
  writeList();
  PrivilegesWorld world(folder_.path(), {keeping(std::chrono::milliseconds(0))});
  const ServicesGuard guard(world.services);
  const auto searches = searchesOf([&] { EXPECT_EQ(namesInList(), expectedNames()); });
  EXPECT_EQ(searches.size(), static_cast<std::size_t>(2 * kEntries));
}

// What a node is asked, and answers.
class LdapLookUps : public LdapNames {
 protected:
  void SetUp() override {
    LdapNames::SetUp();
    if (IsSkipped()) return;
    options_ = keeping(std::chrono::hours(1));
    server_ = std::make_shared<LdapServer>(options_);
  }
  SlapdOptions slapdOptions() override {
    return {.global = "objectclass ( 2.25.1.2.3 NAME 'sitePerson' SUP inetOrgPerson STRUCTURAL )\n",
            .database =
                "limits dn.exact=\"cn=service,dc=example\" size.soft=500 size.hard=unlimited "
                "size.prtotal=unlimited\n",
            .statistics = true};
  }

  static std::vector<std::string> find(DirectoryNode& node, const std::vector<std::string>& types,
                                       const char* attribute, const std::string& value) {
    std::vector<std::string> found;
    for (const Value& answer : node.findRecordsOfTypes(types, attribute, value, kExact)) {
      const Dictionary& record = *answer.dictionary();
      found.push_back(*record.array(schema::kRecordName)->front().string() + " of " +
                      *record.array(schema::kRecordType)->front().string());
    }
    return found;
  }
  std::vector<std::string> who(const std::string& guid) {
    return find(*makeLdapNode(server_), {schema::kUsers, schema::kGroups}, schema::kGeneratedUID,
                guid);
  }
  std::vector<std::string> userOf(int uid) {
    return find(*makeLdapNode(server_), {schema::kUsers}, schema::kUniqueID, std::to_string(uid));
  }
  std::string guidOf(const std::string& filter) {
    const std::string text = slapd().search({"-b", SlapdServer::kBase, filter, "entryUUID"});
    return guidText(*parseGuid(text.substr(text.find("entryUUID: ") + 11, 36)));
  }
  // The number of searches that `work` makes on slapd.
  std::size_t costOf(const std::function<void()>& work) { return searchesOf(work).size(); }

  LdapOptions options_;
  std::shared_ptr<LdapServer> server_;
};

TEST_F(LdapLookUps, GuidCostsOneSearchForUsersAndGroups) {
  const std::string user = guidOf("(uid=user1)");
  const std::string group = guidOf("(cn=group3)");
  EXPECT_EQ(
      costOf([&] { EXPECT_THAT(who(user), ElementsAre("user1 of dsRecTypeStandard:Users")); }), 1U);
  EXPECT_EQ(
      costOf([&] { EXPECT_THAT(who(group), ElementsAre("group3 of dsRecTypeStandard:Groups")); }),
      1U);
}

TEST_F(LdapLookUps, AGuidThatNobodyHasCostsOneSearch) {
  const std::string nobody = "DEADBEEF-0000-4000-8000-000000000001";
  EXPECT_EQ(costOf([&] {
              EXPECT_THAT(who(nobody), IsEmpty());
              EXPECT_THAT(who(nobody), IsEmpty());
            }),
            1U);
}

TEST_F(LdapLookUps, PrincipalFoundByIdIsKnownByGuid) {
  const std::string guid = guidOf("(uid=user1)");
  EXPECT_EQ(costOf([&] {
              EXPECT_THAT(userOf(kFirstId + 1), ElementsAre("user1 of dsRecTypeStandard:Users"));
              EXPECT_THAT(who(guid), ElementsAre("user1 of dsRecTypeStandard:Users"));
            }),
            1U);
}

TEST_F(LdapLookUps, GuidWithoutGuaranteedUniquenessIsSearched) {
  const std::string guid = "01234567-89AB-CDEF-0123-456789ABCDEF";
  for (const char* name : {"user0", "user1"})
    slapd().modify("dn: uid=" + std::string(name) +
                   ",ou=people,dc=example\nchangetype: modify\nadd: employeeNumber\n"
                   "employeeNumber: " +
                   guid + "\n");
  options_.accounts.guid = "employeeNumber";
  server_ = std::make_shared<LdapServer>(options_);
  EXPECT_EQ(costOf([&] {
              EXPECT_EQ(userOf(kFirstId + 1).size(), 1U);
              EXPECT_EQ(who(guid).size(), 2U);
            }),
            2U);
}

TEST_F(LdapLookUps, DualEntryIsBothRegardlessOfFirstSearch) {
  slapd().add(
      "dn: cn=both,ou=groups,dc=example\nobjectClass: posixGroup\nobjectClass: posixAccount\n"
      "cn: both\nuid: both\nuidNumber: 2013000001\ngidNumber: 2013000002\nhomeDirectory: /\n");
  const std::string guid = guidOf("(uid=both)");
  EXPECT_THAT(userOf(2'013'000'001), ElementsAre("both of dsRecTypeStandard:Users"));
  EXPECT_THAT(who(guid),
              ElementsAre("both of dsRecTypeStandard:Users", "both of dsRecTypeStandard:Groups"));
}

TEST_F(LdapLookUps, EntryOfDerivedClassIsFoundByGuid) {
  slapd().add(
      "dn: uid=own,ou=people,dc=example\nobjectClass: sitePerson\nuid: own\ncn: Own\nsn: x\n");
  EXPECT_THAT(who(guidOf("(uid=own)")), ElementsAre("own of dsRecTypeStandard:Users"));
}

TEST_F(LdapLookUps, ANameIsAskedForEachTime) {
  EXPECT_EQ(costOf([&] {
              for (int i = 0; i < 2; ++i)
                EXPECT_NE(makeLdapNode(server_)->findRecord("user1", schema::kUsers), nullptr);
            }),
            2U);
}

// The names that are found for each uid, asked for together.
std::vector<std::vector<std::string>> usersOf(DirectoryNode& node, const std::vector<int>& uids) {
  std::vector<AccountQuestion> questions;
  for (const int uid : uids)
    questions.push_back({schema::kUsers, schema::kUniqueID, std::to_string(uid)});
  std::vector<std::vector<std::string>> names;
  for (const Array& answer : dynamic_cast<AccountSearches&>(node).findEach(questions))
    names.push_back(namesOf(answer));
  return names;
}

TEST_F(LdapLookUps, BatchedLookupsMakeEachPrincipalKnown) {
  const std::string guid = guidOf("(uid=user4)");
  const auto ask = [&] {
    EXPECT_THAT(usersOf(*makeLdapNode(server_), {kFirstId + 1, 2'013'000'009, kFirstId + 4}),
                ElementsAre(ElementsAre("user1"), IsEmpty(), ElementsAre("user4")));
  };
  EXPECT_EQ(userOf(kFirstId + 1).size(), 1U);
  EXPECT_EQ(costOf(ask), 2U);
  EXPECT_EQ(costOf(ask), 0U);
  EXPECT_EQ(costOf([&] { EXPECT_EQ(who(guid).size(), 1U); }), 0U);
}

TEST_F(LdapLookUps, UncachedLookupsAreBatchedToo) {
  options_.keeping = std::chrono::milliseconds(0);
  const auto node = nodeWith(options_);
  EXPECT_EQ(costOf([&] {
              EXPECT_THAT(usersOf(*node, {kFirstId + 1, kFirstId + 1}),
                          ElementsAre(ElementsAre("user1"), ElementsAre("user1")));
            }),
            2U);
}

TEST_F(LdapLookUps, BatchedLookupsOfUnreachableServerFailTogether) {
  options_.base = "dc=nowhere";
  const auto node = nodeWith(options_);
  EXPECT_EQ(raised([&] { usersOf(*node, {kFirstId + 1, kFirstId + 2}); }), ENOENT);
  slapd().stop();
  EXPECT_EQ(raised([&] {
              usersOf(*nodeWith(keeping(std::chrono::hours(1))), {1, 2});
            }),
            ECONNREFUSED);
}

TEST_F(LdapLookUps, AnswerHittingLimitIsRequestedInPages) {
  std::string entries;
  for (int number = 0; number < 700; ++number) {
    const std::string text = std::to_string(number);
    entries += "dn: uid=same" + text + ",ou=people,dc=example\nobjectClass: inetOrgPerson\n" +
               "objectClass: posixAccount\nuid: same" + text +
               "\ncn: x\nsn: x\nuidNumber: 2013000001\ngidNumber: 1\nhomeDirectory: /\n\n";
  }
  slapd().add(entries);
  const auto found = usersOf(*makeLdapNode(server_), {kFirstId + 1, 2'013'000'001, kFirstId + 2});
  EXPECT_THAT(found.at(0), ElementsAre("user1"));
  EXPECT_EQ(found.at(1).size(), 700U);
  EXPECT_THAT(found.at(2), ElementsAre("user2"));
}

TEST_F(LdapLookUps, WhoHasAuthenticatedGetsAnswersOfItsOwn) {
  slapd().addPerson("anna", "anna's", false);
  const std::string guid = guidOf("(uid=user1)");
  EXPECT_THAT(who(guid).size(), 1U);
  const auto mine = makeLdapNode(server_);
  ASSERT_EQ(mine->authenticateName("anna", "anna's", false), 0);
  const auto ask = [&] {
    EXPECT_EQ(find(*mine, {schema::kUsers, schema::kGroups}, schema::kGeneratedUID, guid).size(),
              1U);
  };
  EXPECT_EQ(costOf(ask), 1U);
  EXPECT_EQ(costOf(ask), 1U);
}

TEST_F(LdapLookUps, ChangedAnswerIsSeenAfterExpiry) {
  options_.keeping = std::chrono::milliseconds(1);
  server_ = std::make_shared<LdapServer>(options_);
  EXPECT_EQ(userOf(kFirstId + 1).size(), 1U);
  slapd().modify(
      "dn: uid=user1,ou=people,dc=example\nchangetype: modify\nreplace: uidNumber\n"
      "uidNumber: 2013000003\n");
  std::this_thread::sleep_for(options_.keeping);
  EXPECT_THAT(userOf(kFirstId + 1), IsEmpty());
  EXPECT_EQ(userOf(2'013'000'003).size(), 1U);
}

}  // namespace
}  // namespace paddock
