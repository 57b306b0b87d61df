#include "base/number_set.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace paddock {
namespace {

TEST(NumberSet, HasWhatWasPutIn) {
  NumberSet<std::uint32_t> numbers;
  EXPECT_FALSE(numbers.contains(7));
  EXPECT_TRUE(numbers.insert(7));
  EXPECT_FALSE(numbers.insert(7));
  EXPECT_TRUE(numbers.contains(7));
  EXPECT_FALSE(numbers.contains(8));
  EXPECT_EQ(numbers.size(), 1U);
}

TEST(NumberSet, HoldsSmallestAndLargestNumber) {
  NumberSet<std::uint64_t> numbers;
  for (const std::uint64_t number : {std::uint64_t{0}, std::numeric_limits<std::uint64_t>::max()}) {
    EXPECT_FALSE(numbers.contains(number));
    EXPECT_TRUE(numbers.insert(number));
    EXPECT_FALSE(numbers.insert(number));
    EXPECT_TRUE(numbers.contains(number));
  }
  EXPECT_EQ(numbers.size(), 2U);
}

TEST(NumberSet, StaysTheSameSetWhileItGrows) {
  NumberSet<std::uint32_t> numbers;
  std::set<std::uint32_t> wanted;
  // Many of them share their last bits.
  for (std::uint32_t number = 1; number <= 20'000; ++number) {
    wanted.insert(number << 12U);
    EXPECT_TRUE(numbers.insert(number << 12U) || number << 12U == 0);
  }
  EXPECT_EQ(numbers.size(), wanted.size());
  for (const std::uint32_t number : wanted) EXPECT_TRUE(numbers.contains(number));
  EXPECT_FALSE(numbers.contains(1));
}

}  // namespace
}  // namespace paddock
