#include "base/name_list.h"

#include <gtest/gtest.h>

#include <set>

namespace paddock {
namespace {

std::multiset<std::string> allOf(NameList list) {
  std::multiset<std::string> names;
  while (!list.empty()) names.insert(list.take());
  return names;
}

TEST(NameList, TheLastNameComesFirst) {
  NameList list;
  list.add("one");
  list.add("two");
  EXPECT_EQ(list.take(), "two");
  EXPECT_EQ(list.take(), "one");
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(list.bytes(), 0U);
}

TEST(NameList, HalvesTogetherHoldEveryName) {
  for (int count = 1; count <= 9; ++count) {
    NameList list;
    std::multiset<std::string> all;
    for (int number = 0; number < count; ++number) {
      const std::string name(static_cast<std::size_t>(number * number % 7 + 1), 'n');
      list.add(name);
      all.insert(name);
    }
    std::multiset<std::string> found = allOf(list.cutHalf());
    EXPECT_FALSE(found.empty());
    found.merge(allOf(list));
    EXPECT_EQ(found, all) << count;
  }
}

TEST(NameList, OneNameIsGivenAwayAsAWhole) {
  NameList list;
  list.add("one");
  EXPECT_TRUE(list.isOne());
  EXPECT_EQ(allOf(list.cutHalf()), (std::multiset<std::string>{"one"}));
  EXPECT_TRUE(list.empty());
}

TEST(NameList, NamesMayHoldLineFeedsAndInvalidBytes) {
  NameList list;
  list.add("a\nb");
  list.add("\xFF\xFE");
  EXPECT_EQ(list.take(), "\xFF\xFE");
  EXPECT_EQ(list.take(), "a\nb");
}

}  // namespace
}  // namespace paddock
