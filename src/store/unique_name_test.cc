#include "store/share_point_update.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>

#include "base/text.h"
#include "store/directory_access.h"
#include "support/module_fixture.h"

namespace paddock {
namespace {

using schema::kFtpName;
using schema::kMounts;
using schema::kRecordName;
using schema::kSharePoints;
using schema::kSmbName;
using schema::kVspName;

class UniqueNameChoice : public ModuleFixture {
 protected:
  void take(const std::string& attribute, const std::string& name) {
    const std::string record = "taken" + std::to_string(taken_++);
    addRecord(kSharePoints, record, {{attribute, name}});
  }
  void takeUpTo(const std::string& attribute, const std::string& name, int last) {
    take(attribute, name);
    for (int n = 1; n <= last; ++n) take(attribute, name + "-" + std::to_string(n));
  }

 private:
  int taken_ = 0;
};

TEST_F(UniqueNameChoice, AFreeNameIsKept) {
  EXPECT_EQ(unique_share_point_name("Documents", kVspName, kVspNameLimit), "Documents");
}

TEST_F(UniqueNameChoice, FreeNameAboveLimitKeepsFullLength) {
  const std::string longName(200, 'n');
  EXPECT_EQ(unique_share_point_name(longName, kVspName, kVspNameLimit), longName);
}

TEST_F(UniqueNameChoice, ATakenNameGetsMinusOne) {
  take(kVspName, "Documents");
  EXPECT_EQ(unique_share_point_name("Documents", kVspName, kVspNameLimit), "Documents-1");
}

TEST_F(UniqueNameChoice, TakenFirstSuffixLeadsToSecond) {
  takeUpTo(kVspName, "Documents", 1);
  EXPECT_EQ(unique_share_point_name("Documents", kVspName, kVspNameLimit), "Documents-2");
}

TEST_F(UniqueNameChoice, SuffixesCountFromTheBaseName) {
  takeUpTo(kVspName, "Documents", 12);
  EXPECT_EQ(unique_share_point_name("Documents", kVspName, kVspNameLimit), "Documents-13");
  take(kVspName, "Documents-1-1");
  EXPECT_EQ(unique_share_point_name("Documents-1", kVspName, kVspNameLimit), "Documents-1-2");
}

TEST_F(UniqueNameChoice, AGapAmongTheSuffixesIsUsed) {
  take(kVspName, "Documents");
  take(kVspName, "Documents-2");
  EXPECT_EQ(unique_share_point_name("Documents", kVspName, kVspNameLimit), "Documents-1");
}

TEST_F(UniqueNameChoice, NamesAreTakenWhateverTheirLetterCase) {
  take(kVspName, "DOCUMENTS");
  take(kVspName, "documents-1");
  EXPECT_EQ(unique_share_point_name("Documents", kVspName, kVspNameLimit), "Documents-2");
}

TEST_F(UniqueNameChoice, EachAttributeHasNamesOfItsOwn) {
  take(kVspName, "a");
  EXPECT_EQ(unique_share_point_name("a", kSmbName, kNoNameLimit), "a");
  EXPECT_EQ(unique_share_point_name("a", kFtpName, kNoNameLimit), "a");
  EXPECT_EQ(unique_share_point_name("a", kRecordName, kNoNameLimit), "a");
  EXPECT_EQ(unique_share_point_name("taken0", kRecordName, kNoNameLimit), "taken0-1");
}

TEST_F(UniqueNameChoice, RecordsOfOtherTypesLeaveNameFree) {
  addRecord(kMounts, "a", {{kVspName, "a"}});
  EXPECT_EQ(unique_share_point_name("a", kVspName, kVspNameLimit), "a");
  EXPECT_EQ(unique_share_point_name("a", kRecordName, kNoNameLimit), "a");
}

TEST_F(UniqueNameChoice, RecordsOfOtherNodesLeaveNameFree) {
  directory.addNode("/Other", "ReadWrite");
  directory.addRecord("/Other", kSharePoints, "a", {{kVspName, "a"}});
  EXPECT_EQ(unique_share_point_name("a", kRecordName, kNoNameLimit), "a");
}

TEST_F(UniqueNameChoice, TakenNameOfThirtyOneCharactersIsCut) {
  const std::string name = "abcdefghijklmnopqrstuvwxyz01234";
  ASSERT_EQ(name.size(), 31U);
  take(kVspName, name);
  EXPECT_EQ(unique_share_point_name(name, kVspName, kVspNameLimit),
            "abcdefghijklmnopqrstuvwxyz012-1");
}

TEST_F(UniqueNameChoice, LongerTakenNameIsCutTo31WithSuffix) {
  const std::string name(50, 'n');
  take(kVspName, name);
  EXPECT_EQ(unique_share_point_name(name, kVspName, kVspNameLimit), std::string(29, 'n') + "-1");
}

TEST_F(UniqueNameChoice, NameWithRoomForSuffixIsNotCut) {
  const std::string name(29, 'n');
  take(kVspName, name);
  EXPECT_EQ(unique_share_point_name(name, kVspName, kVspNameLimit), name + "-1");
  const std::string longer(30, 'm');
  take(kVspName, longer);
  EXPECT_EQ(unique_share_point_name(longer, kVspName, kVspNameLimit), std::string(29, 'm') + "-1");
}

TEST_F(UniqueNameChoice, LongerSuffixesCutMore) {
  const std::string name(31, 'n');
  take(kVspName, name);
  for (int n = 1; n <= 9; ++n) take(kVspName, std::string(29, 'n') + "-" + std::to_string(n));
  EXPECT_EQ(unique_share_point_name(name, kVspName, kVspNameLimit), std::string(28, 'n') + "-10");
}

TEST_F(UniqueNameChoice, TakenNameWithoutLimitIsNeverCut) {
  const std::string name(5000, 'n');
  take(kSmbName, name);
  EXPECT_EQ(unique_share_point_name(name, kSmbName, kNoNameLimit), name + "-1");
}

TEST_F(UniqueNameChoice, LengthsCountCharactersAndNotBytes) {
  std::string name;
  for (int i = 0; i < 31; ++i) name += "\xE2\x82\xAC";
  take(kVspName, name);
  const std::string unique = unique_share_point_name(name, kVspName, kVspNameLimit);
  EXPECT_EQ(unique, name.substr(0, 29UL * 3) + "-1");
  EXPECT_EQ(utf8Length(unique), 31U);
}

TEST_F(UniqueNameChoice, TheSuffix999IsReturnedWithoutALook) {
  takeUpTo(kVspName, "d", 999);
  trace.forgetCalls();
  EXPECT_EQ(unique_share_point_name("d", kVspName, kVspNameLimit), "d-999");
  EXPECT_EQ(trace.callsOf("findRecordsOfTypes").size(), 999U);
  EXPECT_EQ(trace.callsOf("findRecordsOfTypes").back().subject, "d-998");
}

TEST_F(UniqueNameChoice, Suffix998IsLastLookup) {
  takeUpTo(kVspName, "d", 997);
  EXPECT_EQ(unique_share_point_name("d", kVspName, kVspNameLimit), "d-998");
}

TEST_F(UniqueNameChoice, LookupFailingWithStatusCountsAsTaken) {
  trace.raise("findRecordsOfTypes", DirectoryError(EBUSY, "locked"), 2);
  EXPECT_EQ(unique_share_point_name("d", kVspName, kVspNameLimit), "d-2");
}

TEST_F(UniqueNameChoice, UnopenableNodeReturnsBaseName) {
  take(kVspName, "d");
  trace.raise("localNode", DirectoryError(EIO, "damaged"));
  EXPECT_EQ(unique_share_point_name("d", kVspName, kVspNameLimit), "d");
}

TEST_F(UniqueNameChoice, OtherLookupExceptionReturnsBaseName) {
  take(kVspName, "d");
  trace.raise("findRecordsOfTypes", std::runtime_error("broken"));
  EXPECT_EQ(unique_share_point_name("d", kVspName, kVspNameLimit), "d");
}

TEST_F(UniqueNameChoice, NoSessionIsLeftOpen) {
  take(kVspName, "d");
  unique_share_point_name("d", kVspName, kVspNameLimit);
  EXPECT_EQ(directory.openSessions(), 0);
}

}  // namespace
}  // namespace paddock
