#include "platform/directory_values.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/directory.h"
#include "support/directory_errors.h"

namespace paddock {
namespace {

TEST(DirectoryValues, TextIsUtf8WithoutNul) {
  EXPECT_TRUE(isDirectoryText(""));
  EXPECT_TRUE(isDirectoryText("\xC3\xA9"));
  EXPECT_FALSE(isDirectoryText("\xE9"));
  EXPECT_FALSE(isDirectoryText(std::string_view("a\0b", 3)));
}

TEST(DirectoryValues, StringAndArrayOfStringsAreValues) {
  EXPECT_EQ(directoryValues("a", Value("x")), std::vector<std::string>{"x"});
  EXPECT_EQ(directoryValues("a", Value(Array{"x", ""})), (std::vector<std::string>{"x", ""}));
}

TEST(DirectoryValues, FirstValueOfAnswerIsString) {
  const Dictionary answer{{"a", Array{"x", "y"}}, {"none", Array{}}, {"number", Array{7}}};
  EXPECT_EQ(*firstValue(answer, "a"), "x");
  EXPECT_EQ(firstText(answer, "a"), "x");
  for (const char* other : {"none", "number", "absent"}) {
    EXPECT_EQ(firstValue(answer, other), nullptr) << other;
    EXPECT_EQ(firstText(answer, other), "") << other;
  }
}

TEST(DirectoryValues, NothingElseIs) {
  for (const Value& wrong : {Value(), Value(1), Value(true), Value(Array{}), Value(Array{"x", 1}),
                             Value(Dictionary{{"k", "v"}}), Value(Data{{1}}), Value("\xFF")})
    EXPECT_EQ(raised([&] { directoryValues("a", wrong); }), EINVAL);
}

TEST(DirectoryValues, ARecordNameIsNotEmpty) {
  EXPECT_EQ(raised([] { directoryValues("dsAttrTypeStandard:RecordName", Value("")); }), EINVAL);
  EXPECT_EQ(raised([] { directoryValues("", Value("x")); }), EINVAL);
}

}  // namespace
}  // namespace paddock
