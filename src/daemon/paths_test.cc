#include "daemon/paths.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace paddock {
namespace {

TEST(Paths, StandBelowTheRoot) {
  const Paths system("");
  EXPECT_EQ(system.configuration(), "/etc/paddock/paddockd.toml");
  EXPECT_EQ(system.socket(), "/run/paddock/paddockd.sock");
  EXPECT_EQ(system.contextFolder(), "/var/lib/paddock/context");
  EXPECT_EQ(system.auditLog(), "/var/log/paddock/audit.jsonl");
  EXPECT_EQ(system.bundles(), "/usr/share/paddockd/bundles");
  EXPECT_EQ(Paths("/srv/tree").socket(), "/srv/tree/run/paddock/paddockd.sock");
}

TEST(Paths, TheRootArgumentIsMadeAbsoluteAndLosesItsLastSlash) {
  EXPECT_EQ(rootFromArgument("/srv/tree/"), "/srv/tree");
  EXPECT_EQ(rootFromArgument("/srv/./a/../tree"), "/srv/tree");
  EXPECT_EQ(rootFromArgument("/"), "");
  EXPECT_EQ(rootFromArgument("tree"), (std::filesystem::current_path() / "tree").string());
}

TEST(Paths, AnInstalledExecutableFindsItsTree) {
  EXPECT_EQ(rootFromExecutable("/srv/tree/usr/sbin/paddockd"), "/srv/tree");
  EXPECT_EQ(rootFromExecutable("/usr/sbin/paddockd"), "");
  EXPECT_EQ(rootFromExecutable("/home/me/build/bin/paddockd"), "");
  EXPECT_EQ(rootFromExecutable("/srv/usr/bin/paddockd"), "");
}

}  // namespace
}  // namespace paddock
