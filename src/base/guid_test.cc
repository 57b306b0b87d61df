#include "base/guid.h"

#include <gtest/gtest.h>

namespace paddock {

namespace {

constexpr const char* kText = "00112233-4455-6677-8899-AABBCCDDEEFF";

TEST(GuidText, TextRoundTrips) {
  const auto guid = parseGuid(kText);
  ASSERT_TRUE(guid);
  EXPECT_EQ(guid->bytes[0], 0x00);
  EXPECT_EQ(guid->bytes[15], 0xFF);
  EXPECT_EQ(guidText(*guid), kText);
}

TEST(GuidText, ReadsLowerCaseDigits) {
  EXPECT_EQ(parseGuid("00112233-4455-6677-8899-aabbccddeeff"), parseGuid(kText));
}

TEST(GuidText, RefusesOtherTexts) {
  for (const char* text :
       {"", "00112233-4455-6677-8899-AABBCCDDEEF", "00112233-4455-6677-8899-AABBCCDDEEFF0",
        "001122334-455-6677-8899-AABBCCDDEEFF", "0011223G-4455-6677-8899-AABBCCDDEEFF",
        "{0112233-4455-6677-8899-AABBCCDDEEF}"}) {
    EXPECT_FALSE(parseGuid(text)) << text;
  }
}

TEST(ComputedGuid, IsStableInVersionFourForm) {
  EXPECT_EQ(guidText(computedGuid({PrincipalType::user, 1000})),
            "2918733C-ACBF-4C23-AD09-B8FC000003E8");
  EXPECT_EQ(guidText(computedGuid({PrincipalType::group, 0xFFFFFFFE})),
            "8872134E-C1BC-44B8-8DF6-B292FFFFFFFE");
}

TEST(ComputedGuid, MapsBack) {
  for (const std::uint32_t id : {0U, 1U, 89U, 65534U, 0x80000000U, 0xFFFFFFFFU})
    for (const PrincipalType type : {PrincipalType::user, PrincipalType::group})
      EXPECT_EQ(computedPrincipal(computedGuid({type, id})), (Principal{type, id}));
}

TEST(ComputedGuid, OtherGuidsHaveNoPrincipal) {
  EXPECT_FALSE(computedPrincipal(Guid{}));
  Guid guid = computedGuid({PrincipalType::user, 7});
  guid.bytes[11] ^= 1U;
  EXPECT_FALSE(computedPrincipal(guid));
}

}  // namespace

}  // namespace paddock
