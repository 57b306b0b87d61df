#include "base/computed_guid.h"

#include <gtest/gtest.h>

namespace paddock {
namespace {

TEST(ComputedGuidTest, IsFixedForeverAndHasTheVersionFourForm) {
  EXPECT_EQ(guidText(computedGuid({PrincipalType::user, 1000})),
            "2918733C-ACBF-4C23-AD09-B8FC000003E8");
  EXPECT_EQ(guidText(computedGuid({PrincipalType::group, 0xFFFFFFFE})),
            "8872134E-C1BC-44B8-8DF6-B292FFFFFFFE");
}

TEST(ComputedGuidTest, MapsBack) {
  for (const std::uint32_t id : {0U, 1U, 89U, 65534U, 0x80000000U, 0xFFFFFFFFU})
    for (const PrincipalType type : {PrincipalType::user, PrincipalType::group})
      EXPECT_EQ(computedPrincipal(computedGuid({type, id})), (Principal{type, id}));
}

TEST(ComputedGuidTest, OtherGuidsHaveNoPrincipal) {
  EXPECT_FALSE(computedPrincipal(Guid{}));
  Guid guid = computedGuid({PrincipalType::user, 7});
  guid.bytes[11] ^= 1U;
  EXPECT_FALSE(computedPrincipal(guid));
}

}  // namespace
}  // namespace paddock
