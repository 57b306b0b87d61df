#include "base/value.h"

#include <gtest/gtest.h>

#include <limits>

namespace paddock {
namespace {

TEST(ValueKinds, BooleanAndIntegerAreKeptApart) { EXPECT_FALSE(Value(true) == Value(1)); }

TEST(ValueKinds, UnsignedNumbersThatFitAreSigned) {
  EXPECT_EQ(Value(std::uint64_t{7}), Value(7));
  const Value large = Value::fromUnsigned(std::numeric_limits<std::uint64_t>::max());
  ASSERT_NE(large.unsignedInteger(), nullptr);
  EXPECT_EQ(*large.unsignedInteger(), std::numeric_limits<std::uint64_t>::max());
}

TEST(ValueKinds, ANumberIsABooleanOrAnInteger) {
  EXPECT_TRUE(Value(false).isNumber());
  EXPECT_TRUE(Value(-1).isNumber());
  EXPECT_TRUE(Value::fromUnsigned(std::numeric_limits<std::uint64_t>::max()).isNumber());
  EXPECT_FALSE(Value("1").isNumber());
  EXPECT_FALSE(Value().isNumber());
}

TEST(DictionaryEntries, IteratesInKeyOrder) {
  Dictionary dictionary;
  dictionary.set("b", 2);
  dictionary.set("a", 1);
  dictionary.set("c", 3);
  std::string keys;
  for (const auto& [key, value] : dictionary) keys += key;
  EXPECT_EQ(keys, "abc");
}

TEST(DictionaryEntries, SettingNullRemovesTheKey) {
  Dictionary dictionary{{"a", 1}};
  dictionary.set("a", Value());
  EXPECT_TRUE(dictionary.empty());
}

TEST(DictionaryEntries, SettingAgainReplaces) {
  Dictionary dictionary{{"a", 1}, {"a", 2}};
  EXPECT_EQ(dictionary.size(), 1U);
  EXPECT_EQ(dictionary.integer("a"), 2);
}

TEST(DictionaryEntries, FromEntriesRejectsRepeatedKeyByName) {
  std::string repeated;
  EXPECT_FALSE(Dictionary::fromEntries({{"x", 1}, {"a", 1}, {"x", Value()}}, &repeated));
  EXPECT_EQ(repeated, "x");
}

TEST(DictionaryEntries, FromEntriesLeavesNullsOut) {
  const auto dictionary = Dictionary::fromEntries({{"b", Value()}, {"a", 1}});
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(*dictionary, (Dictionary{{"a", 1}}));
}

TEST(DictionaryEntries, AValueOfAnotherKindReadsAsAbsent) {
  const Dictionary dictionary{{"text", "x"}, {"list", Array{1}}, {"tree", Dictionary{}}};
  EXPECT_EQ(dictionary.string("list"), nullptr);
  EXPECT_EQ(dictionary.array("tree"), nullptr);
  EXPECT_EQ(dictionary.dictionary("text"), nullptr);
  EXPECT_EQ(dictionary.string("missing"), nullptr);
  EXPECT_EQ(*dictionary.string("text"), "x");
}

TEST(DictionaryEntries, IntegersAreReadFromNumbersBooleansAndStrings) {
  const Dictionary dictionary{{"number", -5}, {"yes", true}, {"text", "42"}, {"bad", "4 2"}};
  EXPECT_EQ(dictionary.integer("number"), -5);
  EXPECT_EQ(dictionary.integer("yes"), 1);
  EXPECT_EQ(dictionary.integer("text"), 42);
  EXPECT_EQ(dictionary.integer("bad"), std::nullopt);
  EXPECT_EQ(dictionary.integer("missing"), std::nullopt);
}

TEST(DictionaryEntries, BooleansAreReadInAnyLetterCase) {
  for (const char* text : {"1", "YES", "yes", "True"}) EXPECT_EQ(readBoolean(text), true) << text;
  for (const char* text : {"0", "NO", "no", "FALSE"}) EXPECT_EQ(readBoolean(text), false) << text;
  for (const char* text : {"", "2", "on", " yes"}) {
    EXPECT_EQ(readBoolean(text), std::nullopt) << text;
  }
  const Value number(3);
  EXPECT_EQ(readBoolean(&number), true);
}

}  // namespace
}  // namespace paddock
