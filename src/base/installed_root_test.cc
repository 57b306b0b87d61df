#include "base/installed_root.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace paddock {
namespace {

constexpr const char* kPlace = "/usr/sbin/paddockd";

TEST(InstalledRoot, IsTheFolderThatTheTreeStandsIn) {
  EXPECT_EQ(rootOfInstalled("/srv/tree/usr/sbin/paddockd", kPlace), "/srv/tree");
}

TEST(InstalledRoot, IsEmptyForTheSystemItself) {
  EXPECT_EQ(rootOfInstalled("/usr/sbin/paddockd", kPlace), "");
}

TEST(InstalledRoot, IsEmptyForEveryOtherPlace) {
  EXPECT_EQ(rootOfInstalled("/home/me/build/bin/paddockd", kPlace), "");
  EXPECT_EQ(rootOfInstalled("/srv/usr/bin/paddockd", kPlace), "");
  EXPECT_EQ(rootOfInstalled("", kPlace), "");
}

TEST(InstalledRoot, KnowsTheRunningExecutable) {
  EXPECT_TRUE(std::filesystem::equivalent(runningExecutable(), "/proc/self/exe"));
}

}  // namespace
}  // namespace paddock
