#include "base/guid.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

constexpr const char* kText = "00112233-4455-6677-8899-AABBCCDDEEFF";

TEST(GuidTest, TextRoundTrips) {
  const auto guid = parseGuid(kText);
  ASSERT_TRUE(guid);
  EXPECT_EQ(guid->bytes[0], 0x00);
  EXPECT_EQ(guid->bytes[15], 0xFF);
  EXPECT_EQ(guidText(*guid), kText);
}

TEST(GuidTest, ReadsLowerCaseDigits) {
  EXPECT_EQ(parseGuid("00112233-4455-6677-8899-aabbccddeeff"), parseGuid(kText));
}

TEST(GuidTest, RefusesOtherTexts) {
  for (const char* text :
       {"", "00112233-4455-6677-8899-AABBCCDDEEF", "00112233-4455-6677-8899-AABBCCDDEEFF0",
        "001122334-455-6677-8899-AABBCCDDEEFF", "0011223G-4455-6677-8899-AABBCCDDEEFF",
        "{0112233-4455-6677-8899-AABBCCDDEEF}"}) {
    EXPECT_FALSE(parseGuid(text)) << text;
  }
}

}  // namespace
}  // namespace paddock
