#include "daemon/daemon_options.h"

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

TEST(Paths, RootArgumentBecomesAbsoluteWithoutTrailingSlash) {
  EXPECT_EQ(rootFromArgument("/srv/tree/"), "/srv/tree");
  EXPECT_EQ(rootFromArgument("/srv/./a/../tree"), "/srv/tree");
  EXPECT_EQ(rootFromArgument("/"), "");
  EXPECT_EQ(rootFromArgument("tree"), (std::filesystem::current_path() / "tree").string());
}

}  // namespace
}  // namespace paddock
