#include "platform/metadata_stores.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace paddock {
namespace {

using metadata_store::argumentError;

TEST(MetadataStorePaths, ComeInAscendingByteOrder) {
  const StorePaths paths({"/srv/b", "/srv/\xC3\xA4", "/Srv", "/srv/a b"});
  EXPECT_EQ(paths.all(), (std::vector<std::string>{"/Srv", "/srv/a b", "/srv/b", "/srv/\xC3\xA4"}));
}

TEST(MetadataStorePaths, AreComparedExactly) {
  const StorePaths paths({"/srv/a", "/"});
  EXPECT_TRUE(paths.contains("/srv/a"));
  EXPECT_TRUE(paths.contains("/"));
  for (const char* other :
       {"", "/srv", "/srv/", "/srv/a/", "/srv/A", "/srv/ab", "//srv/a", "srv/a"})
    EXPECT_FALSE(paths.contains(other)) << other;
}

TEST(MetadataStorePaths, EachOfManyIsFound) {
  std::vector<std::string> many;
  for (int i = 0; i < 10'000; ++i) many.push_back("/srv/" + std::to_string(i));
  const StorePaths paths(many);
  for (const std::string& path : many) EXPECT_TRUE(paths.contains(path)) << path;
  EXPECT_FALSE(paths.contains("/srv/10000"));
}

TEST(MetadataStorePaths, WithoutStoresThereIsNone) {
  const StorePaths paths;
  EXPECT_TRUE(paths.all().empty());
  EXPECT_FALSE(paths.contains(""));
}

TEST(MetadataStoreArguments, TextsOfAnAbsolutePathAreFine) {
  EXPECT_EQ(argumentError("/", {}), 0);
  EXPECT_EQ(argumentError("/srv/\xFF", {{"searchLevel", "off"}, {"x", ""}}), 0);
}

TEST(MetadataStoreArguments, PathsThatNameNoFolderAreRefused) {
  for (const std::string& path : {std::string(), std::string("srv"), std::string("/s\0v", 4)})
    EXPECT_EQ(argumentError(path, {}), EINVAL);
}

TEST(MetadataStoreArguments, AttributesThatAreNoTextsAreRefused) {
  const std::string nul("a\0b", 3);
  for (const Dictionary& attributes :
       {Dictionary{{"a", 1}}, Dictionary{{"a", true}}, Dictionary{{"a", Array{}}},
        Dictionary{{"", "x"}}, Dictionary{{nul, "x"}}, Dictionary{{"a", nul}}})
    EXPECT_EQ(argumentError("/srv", attributes), EINVAL);
}

}  // namespace
}  // namespace paddock
