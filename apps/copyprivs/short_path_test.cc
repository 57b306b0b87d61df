#include "copyprivs/short_path.h"

#include <gmock/gmock.h>

#include "wire/xml_text.h"

namespace paddock::copyprivs {
namespace {

std::size_t sizeInXml(const std::string& path) {
  std::string text;
  wire::appendXmlText(text, path);
  return text.size();
}

TEST(ShortPath, MostPathsStayAsTheyAre) {
  EXPECT_EQ(shortPath("/srv/\xC3\xA4/a&b"), "/srv/\xC3\xA4/a&b");
  const std::string longest(kLongestPath, 'a');
  EXPECT_EQ(shortPath(longest), longest);
}

TEST(ShortPath, ALongOneKeepsItsBeginAndItsEnd) {
  const std::string path = "/begin" + std::string(100000, 'a') + "/end";
  const std::string shortened = shortPath(path);
  EXPECT_THAT(shortened, ::testing::StartsWith("/begina"));
  EXPECT_THAT(shortened, ::testing::EndsWith("a/end"));
  EXPECT_THAT(shortened, ::testing::HasSubstr("a...a"));
  EXPECT_GT(shortened.size(), kLongestPath - 10);
}

TEST(ShortPath, WhatABytesTextTakesInAPropertyListCounts) {
  for (const char* name : {"&", "<", "\xFF", "\x01", "\r", "\xE2\x82\xAC", "\xC3\xA4", "a"}) {
    std::string path;
    while (path.size() < 3 * kLongestPath) path += name;
    EXPECT_LE(sizeInXml(shortPath(path)), kLongestPath) << name;
    EXPECT_GT(sizeInXml(shortPath(path)), kLongestPath / 5) << name;
  }
}

TEST(ShortPath, NoCharacterIsCutInTwo) {
  std::string path;
  while (path.size() < 2 * kLongestPath) path += "\xE2\x82\xAC";
  EXPECT_THAT(shortPath("/" + path), ::testing::Not(::testing::HasSubstr("\\x")));
  EXPECT_EQ(wire::findNonXmlByte(shortPath("/" + path)), std::nullopt);
}

}  // namespace
}  // namespace paddock::copyprivs
