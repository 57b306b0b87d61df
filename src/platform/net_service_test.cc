#include "platform/net_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace paddock {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Data bytes(const std::string& text) { return Data{{text.begin(), text.end()}}; }

std::vector<std::string> strings(const Data& data) {
  std::vector<std::string> found;
  EXPECT_TRUE(stringsOfTxtRecord(data, found));
  return found;
}

TEST(TxtRecord, HasOneLengthPrefixedStringPerKey) {
  EXPECT_EQ(dataFromTxtRecordDictionary({{"a", "1"}, {"bc", bytes("23")}}), bytes("\x03"
                                                                                  "a=1"
                                                                                  "\x05"
                                                                                  "bc=23"));
}

TEST(TxtRecord, BeginsWithSys) {
  EXPECT_THAT(strings(dataFromTxtRecordDictionary({{"dk0", "x"}, {"dk1", "y"}, {"sys", "z"}})),
              ElementsAre("sys=z", "dk0=x", "dk1=y"));
}

TEST(TxtRecord, OrdersKeysByNumber) {
  Dictionary entries{{"sys", "s"}, {"dk", "n"}, {"a9", "x"}, {"zz", "x"}, {"dk010", "x"}};
  for (int number = 0; number <= 100; ++number) entries.set("dk" + std::to_string(number), "x");
  std::vector<std::string> expected = {"sys=s", "a9=x", "dk=n"};
  for (int number = 0; number <= 100; ++number) {
    if (number == 10) expected.emplace_back("dk010=x");
    expected.push_back("dk" + std::to_string(number) + "=x");
  }
  expected.emplace_back("zz=x");
  EXPECT_EQ(strings(dataFromTxtRecordDictionary(entries)), expected);
}

TEST(TxtRecord, OfNothingIsEmpty) { EXPECT_EQ(dataFromTxtRecordDictionary({}), Data{}); }

TEST(TxtRecord, TakesStringsOf254And255BytesAndNoneOf256) {
  EXPECT_TRUE(fitsTxtString("dk0", std::string(250, 'x')));
  EXPECT_TRUE(fitsTxtString("dk0", std::string(251, 'x')));
  EXPECT_FALSE(fitsTxtString("dk0", std::string(252, 'x')));
  EXPECT_THAT(strings(dataFromTxtRecordDictionary({{"dk0", std::string(250, 'x')},
                                                   {"dk1", std::string(251, 'y')},
                                                   {"dk2", std::string(252, 'z')}})),
              ElementsAre("dk0=" + std::string(250, 'x'), "dk1=" + std::string(251, 'y')));
}

TEST(TxtRecord, OmitsNonTextValuesAndInvalidKeys) {
  EXPECT_THAT(strings(dataFromTxtRecordDictionary(
                  {{"a", 1}, {"b=", "x"}, {"", "x"}, {"c\n", "x"}, {"d", "x"}})),
              ElementsAre("d=x"));
}

TEST(TxtRecord, KeepsEveryByteOfAValue) {
  const std::string value("a=b\0c\xFF\n", 7);
  EXPECT_THAT(strings(dataFromTxtRecordDictionary({{"k", bytes(value)}})),
              ElementsAre("k=" + value));
}

TEST(TxtRecord, ThatIsCutOffIsNone) {
  std::vector<std::string> found;
  EXPECT_FALSE(stringsOfTxtRecord(bytes("\x04"
                                        "a=1"),
                                  found));
}

TEST(TxtRecord, EmptyDataHasNoStrings) { EXPECT_THAT(strings(Data{}), IsEmpty()); }

}  // namespace
}  // namespace paddock
