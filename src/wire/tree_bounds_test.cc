#include "wire/tree_bounds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "wire/json.h"
#include "wire/property_list.h"

namespace paddock::wire {
namespace {

using testing::HasSubstr;

class ParsedTreeBounds : public testing::Test {
 protected:
  // The error, empty when it was read. `isList`: a property list.
  std::string read(const std::string& text, bool isList, std::size_t values) {
    std::string error;
    TreeBounds bounds{values, [this](std::size_t bytes) {
                        if (bytes > memory_ - taken_) return false;
                        taken_ += bytes;
                        return true;
                      }};
    const auto value =
        isList ? parsePropertyList(text, error, bounds) : parseJson(text, error, bounds);
    EXPECT_EQ(value.has_value(), error.empty());
    return error;
  }

  std::size_t memory_ = std::size_t{1} << 40U;
  std::size_t taken_ = 0;
};

std::string list(const std::string& value) { return "<plist>" + value + "</plist>"; }

TEST_F(ParsedTreeBounds, AsManyValuesAsAreAllowedAreRead) {
  EXPECT_EQ(read(R"({"a":[1,{}],"b":"x"})", false, 5), "");
  EXPECT_EQ(read(R"({"a":[1,{}],"b":"x"})", false, 4), "line 1, column 20: more than 4 values");
  const std::string same = list(
      "<dict><key>a</key><array><integer>1</integer><dict/></array><key>b</key><string>x</string>"
      "</dict>");
  EXPECT_EQ(read(same, true, 5), "");
  EXPECT_THAT(read(same, true, 4), HasSubstr("more than 4 values"));
}

TEST_F(ParsedTreeBounds, MemoryIsAskedForBeforeItIsTaken) {
  memory_ = 100000;
  std::string text = "[[]";
  while (text.size() < 30000) text += ",[]";
  EXPECT_THAT(read(text + "]", false, 1000000), HasSubstr("no memory"));
  EXPECT_LE(taken_, memory_);
  taken_ = 0;
  std::string tags = "<array>";
  while (tags.size() < 30000) tags += "<true/>";
  EXPECT_THAT(read(list(tags + "</array>"), true, 1000000), HasSubstr("no memory"));
  EXPECT_LE(taken_, memory_);
}

TEST_F(ParsedTreeBounds, PropertyListIsCheckedBeforeDocumentIsBuilt) {
  memory_ = 100000;
  // More tags and attributes than the memory has room for, and no value.
  std::string attributes = "<plist ";
  while (attributes.size() < 30000) attributes += "a='' ";
  EXPECT_THAT(read(attributes + "/>", true, 10), HasSubstr("no memory"));
  std::string comments;
  while (comments.size() < 30000) comments += "<!---->";
  EXPECT_THAT(read(comments + list("<dict/>"), true, 1000000), HasSubstr("no memory"));
  EXPECT_THAT(read(comments + list("<dict/>"), true, 10), HasSubstr("more than 10 values"));
}

// What was granted covers what the tree takes.
TEST_F(ParsedTreeBounds, RequestedMemoryCoversTree) {
  EXPECT_EQ(read("[" + std::string(100000, ' ') + "]", false, 1), "");
  EXPECT_GE(taken_, 100000U);
  for (const char* element : {"[]", "0", "{}", R"("text that is longer than a short one")"}) {
    taken_ = 0;
    std::string text = std::string("[") + element;
    for (int count = 1; count < 1000; ++count) text.append(",").append(element);
    EXPECT_EQ(read(text + "]", false, 2000), "");
    EXPECT_GE(taken_, 1000 * sizeof(Value)) << element;
  }
  taken_ = 0;
  std::string members = R"({"0":0)";
  for (int count = 1; count < 1000; ++count) {
    members.append(",\"").append(std::to_string(count)).append("\":0");
  }
  EXPECT_EQ(read(members + "}", false, 2000), "");
  EXPECT_GE(taken_, 1000 * sizeof(Dictionary::Entry));
}

TEST_F(ParsedTreeBounds, ReadingWithinBoundsMatchesUnboundedReading) {
  const std::string text = R"({"a":[1,-2,true,"x",{"$data":"AAE="}],"b":{"c":[]}})";
  std::string error;
  const auto without = parseJson(text, error);
  const auto within = parseJson(text, error, {100, [](std::size_t) { return true; }});
  ASSERT_TRUE(without && within);
  EXPECT_EQ(*without, *within);
}

}  // namespace
}  // namespace paddock::wire
