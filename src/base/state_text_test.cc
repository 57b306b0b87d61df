#include "base/state_text.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace paddock {
namespace {

TEST(StateText, ValuesThatDifferHaveDifferentTexts) {
  const Value values[] = {Value(),
                          Value(true),
                          Value(false),
                          Value(0),
                          Value(1),
                          Value(""),
                          Value("1"),
                          Value("0"),
                          Value(Array{}),
                          Value(Array{""}),
                          Value(Array{"", ""}),
                          Value(Array{"a", "b"}),
                          Value(Array{"b", "a"}),
                          Value(Array{"a1:b"}),
                          Value(Array{Array{"a"}, "b"}),
                          Value(Array{Array{"a", "b"}}),
                          Value(Dictionary{}),
                          Value(Dictionary{{"a", "b"}}),
                          Value(Dictionary{{"b", "a"}}),
                          Value(Dictionary{{"a", Array{"b"}}}),
                          Value(Dictionary{{"a", Dictionary{{"b", ""}}}})};
  std::set<std::string> texts;
  for (const Value& value : values) texts.insert(stateText(value));
  EXPECT_EQ(texts.size(), std::size(values));
}

TEST(StateText, EqualValuesHaveOneText) {
  const Value first(Dictionary{{"a", Array{"1", 2}}, {"b", true}});
  const Value second(Dictionary{{"b", true}, {"a", Array{"1", 2}}});
  EXPECT_EQ(stateText(first), stateText(second));
}

}  // namespace
}  // namespace paddock
