#include "platform/directory_values.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/directory.h"

namespace paddock {
namespace {

template <typename Work>
Status raised(Work&& work) {
  try {
    work();
  } catch (const DirectoryError& error) {
    return error.status().value_or(-1);
  }
  return 0;
}

TEST(DirectoryValuesTest, TextIsUtf8WithoutNul) {
  EXPECT_TRUE(isDirectoryText(""));
  EXPECT_TRUE(isDirectoryText("\xC3\xA9"));
  EXPECT_FALSE(isDirectoryText("\xE9"));
  EXPECT_FALSE(isDirectoryText(std::string_view("a\0b", 3)));
}

TEST(DirectoryValuesTest, AStringAndAnArrayOfStringsAreValues) {
  EXPECT_EQ(directoryValues("a", Value("x")), std::vector<std::string>{"x"});
  EXPECT_EQ(directoryValues("a", Value(Array{"x", ""})), (std::vector<std::string>{"x", ""}));
}

TEST(DirectoryValuesTest, NothingElseIs) {
  for (const Value& wrong : {Value(), Value(1), Value(true), Value(Array{}), Value(Array{"x", 1}),
                             Value(Dictionary{{"k", "v"}}), Value(Data{{1}}), Value("\xFF")})
    EXPECT_EQ(raised([&] { directoryValues("a", wrong); }), EINVAL);
}

TEST(DirectoryValuesTest, ARecordNameIsNotEmpty) {
  EXPECT_EQ(raised([] { directoryValues("dsAttrTypeStandard:RecordName", Value("")); }), EINVAL);
  EXPECT_EQ(raised([] { directoryValues("", Value("x")); }), EINVAL);
}

}  // namespace
}  // namespace paddock
