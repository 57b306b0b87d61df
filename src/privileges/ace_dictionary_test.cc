#include "privileges/ace_dictionary.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

std::uint32_t bits(const Value& value) { return readBits(&value); }
std::optional<std::int64_t> id(const Value& value) { return readId(&value); }

TEST(AceNumbers, BitsAcceptNumbersBooleansAndDecimalTexts) {
  EXPECT_EQ(bits(16382), 16382U);
  EXPECT_EQ(bits("16382"), 16382U);
  EXPECT_EQ(bits("+2"), 2U);
  EXPECT_EQ(bits(true), 1U);
  EXPECT_EQ(bits(false), 0U);
}

TEST(AceNumbers, BitsAbove32AreCutOff) {
  EXPECT_EQ(bits(0x1'0000'0002), 2U);
  EXPECT_EQ(bits(Value::fromUnsigned(0x8000'0000'0000'0004)), 4U);
  EXPECT_EQ(bits("9223372036854775812"), 4U);
  EXPECT_EQ(bits("18446744073709551615"), 0xFFFFFFFFU);
}

TEST(AceNumbers, NegativeNumberHasTwosComplementBits) {
  EXPECT_EQ(bits(-1), 0xFFFFFFFFU);
  EXPECT_EQ(bits("-2"), 0xFFFFFFFEU);
}

TEST(AceNumbers, WhatIsNoNumberHasNoBits) {
  EXPECT_EQ(readBits(nullptr), 0U);
  for (const Value& value :
       std::vector<Value>{"", "x", "2x", " 2", "0x2", "2.0", "99999999999999999999", "++2",
                          Array{2}, Dictionary{{"2", 2}}, Data{{2}}, Value()})
    EXPECT_EQ(bits(value), 0U);
}

TEST(AceNumbers, IdsAcceptNumbersBooleansAndDecimalTexts) {
  EXPECT_EQ(id(20), 20);
  EXPECT_EQ(id("20"), 20);
  EXPECT_EQ(id(-2), -2);
  EXPECT_EQ(id(true), 1);
  EXPECT_EQ(id(false), 0);
  EXPECT_EQ(id(4'294'967'296), 4'294'967'296);
}

TEST(AceNumbers, IdAboveSignedRangeIsPresentButInvalid) {
  EXPECT_EQ(id(Value::fromUnsigned(0xFFFF'FFFF'FFFF'FFFF)), -1);
  EXPECT_EQ(id("18446744073709551615"), -1);
}

TEST(AceNumbers, WhatIsNoNumberIsNoId) {
  EXPECT_EQ(readId(nullptr), std::nullopt);
  for (const Value& value :
       std::vector<Value>{"", "x", "20x", " 20", Array{}, Dictionary{}, Data{}})
    EXPECT_EQ(id(value), std::nullopt);
}

}  // namespace
}  // namespace paddock
