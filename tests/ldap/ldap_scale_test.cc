// Many records, and many threads.
#include <sstream>
#include <thread>

#include "ldap/ldap_fixture.h"
#include "platform/linux/ldap/ldap_record_format.h"

namespace paddock {
namespace {

using ::testing::ElementsAre;

constexpr int kRecords = 10'000;

// The records 0 to kRecords - 1 as entries, made the way a node makes them.
std::string manyEntries() {
  std::ostringstream text;
  for (int i = 0; i < kRecords; ++i) {
    const std::string name = "share" + std::to_string(i);
    LdapRecordState record;
    record.type = kShares;
    record.revision = std::to_string(i);
    record.attributes = {{0, schema::kRecordName, {name}},
                         {1, "dsAttrTypeNative:directory_path", {"/srv/" + name}}};
    text << "dn: " << recordRdn(record.type, name) << "," << SlapdServer::kRecords << "\n"
         << "paddockKey: " << recordKey(record.type, name) << "\npaddockCreated: " << 1000 + i
         << "\n";
    for (const auto& [attribute, values] : entryOf(record))
      for (const std::string& value : values) text << attribute << ": " << value << "\n";
    text << "\n";
  }
  return text.str();
}

class LdapScale : public LdapTest {
 protected:
  SlapdOptions slapdOptions() override {
    return {.database = "limits dn.exact=\"cn=service,dc=example\" size=unlimited\n"};
  }
};

TEST_F(LdapScale, TenThousandRecordsAreAllReturnedAndFound) {
  slapd().add(manyEntries());
  const auto all = allNames(*node());
  ASSERT_EQ(all.size(), static_cast<std::size_t>(kRecords));
  for (const int i : {0, 1, 499, 500, 501, 9'999}) {
    const std::string name = "share" + std::to_string(i);
    EXPECT_THAT(namesWith(*node(), "dsAttrTypeNative:directory_path", "/SRV/" + name),
                ElementsAre(name));
    EXPECT_NE(node()->findRecord(name, kShares), nullptr);
  }
}

TEST_F(LdapScale, SixteenThreadsWorkOnOneConfiguration) {
  slapd().addPerson("anna", "anna's", true);
  constexpr int kThreads = 16;
  constexpr int kRounds = 5;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread)
    threads.emplace_back([this, thread] {
      for (int round = 0; round < kRounds; ++round) {
        const std::string name = std::to_string(thread) + "-" + std::to_string(round);
        const auto mine = node();
        if (thread % 4 == 0) {
          EXPECT_EQ(mine->authenticateName("anna", "anna's", false), 0);
        }
        const auto record = mine->newRecord(name, kShares);
        record->setAttribute("thread", std::to_string(thread));
        EXPECT_NE(node()->findRecord(name, kShares), nullptr);
        EXPECT_EQ(mine->getAttributeFirstValue(schema::kReadOnlyNode), "ReadWrite");
        if (round % 2 == 1) record->removeRecord();
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(allNames(*node()).size(), static_cast<std::size_t>(kThreads * (kRounds - kRounds / 2)));
}

}  // namespace
}  // namespace paddock
