#include "keelhouse/core/share_path.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "keelhouse/core/failure.h"
#include "support/temporary_folder.h"

namespace paddock::keelhouse {
namespace {

TEST(SharePath, IsNormalisedWithoutFollowingLinks) {
  EXPECT_EQ(normalisePath("/srv/a", "/x"), "/srv/a");
  EXPECT_EQ(normalisePath("/srv//a/./b/", "/x"), "/srv/a/b");
  EXPECT_EQ(normalisePath("/srv/a/../b", "/x"), "/srv/b");
  EXPECT_EQ(normalisePath("/../..", "/x"), "/");
  EXPECT_EQ(normalisePath("//", "/x"), "/");
  EXPECT_EQ(normalisePath("/srv/...", "/x"), "/srv/...");
}

TEST(SharePath, IsResolvedAgainstCurrentFolder) {
  EXPECT_EQ(normalisePath("a", "/home/me"), "/home/me/a");
  EXPECT_EQ(normalisePath(".", "/home/me"), "/home/me");
  EXPECT_EQ(normalisePath("../you/./b", "/home/me"), "/home/you/b");
  EXPECT_EQ(normalisePath("a", "/"), "/a");
  EXPECT_EQ(absolutePath("a"), std::filesystem::current_path().string() + "/a");
}

TEST(SharePath, MustBeNonEmptyUtf8) {
  EXPECT_THROW(normalisePath("", "/x"), Failure);
  EXPECT_THROW(normalisePath("/srv/\xFF", "/x"), Failure);
  EXPECT_THROW(normalisePath("a", "/srv/\xFF"), Failure);
  EXPECT_EQ(normalisePath("/\xFF/../a", "/x"), "/a");
}

TEST(SharePath, HasLastComponent) {
  EXPECT_EQ(lastComponent("/srv/a b"), "a b");
  EXPECT_EQ(lastComponent("/a"), "a");
  EXPECT_EQ(lastComponent("/"), "");
}

TEST(SharePath, MustNameFolder) {
  const TestFolder folder;
  writeWholeFile(folder.path("file"), "x");
  std::filesystem::create_symlink("/nowhere/at/all", folder.path("dangling"));
  std::filesystem::create_symlink(".", folder.path("link"));
  requireFolder(folder.path());
  requireFolder(folder.path("link"));
  for (const char* name : {"file", "dangling", "missing"}) {
    EXPECT_THROW(requireFolder(folder.path(name)), Failure) << name;
  }
}

TEST(SharePath, MissingFolderSuggestsNearestSibling) {
  const TestFolder folder;
  std::filesystem::create_directory(folder.path("photos"));
  try {
    requireFolder(folder.path("phtos"));
    FAIL() << "it is missing";
  } catch (const Failure& failed) {
    EXPECT_NE(std::string(failed.what()).find("\nDid you mean " + folder.path("photos") + "?\n"),
              std::string::npos)
        << failed.what();
  }
}

}  // namespace
}  // namespace paddock::keelhouse
