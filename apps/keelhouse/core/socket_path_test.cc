#include "keelhouse/core/socket_path.h"

#include <gtest/gtest.h>

namespace paddock::keelhouse {
namespace {

TEST(SocketPath, LiesBelowRoot) {
  EXPECT_EQ(socketBelow(""), "/run/paddock/paddockd.sock");
  EXPECT_EQ(socketBelow("/"), "/run/paddock/paddockd.sock");
  EXPECT_EQ(socketBelow("/opt/tree/"), "/opt/tree/run/paddock/paddockd.sock");
}

TEST(SocketPath, RespectsSystemLimit) {
  EXPECT_TRUE(fitsSocketAddress(std::string(107, 'x')));
  EXPECT_FALSE(fitsSocketAddress(std::string(108, 'x')));
}

}  // namespace
}  // namespace paddock::keelhouse
