// The directory nodes, as the plug-in paddock_directory tells of them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "keelhouse/session.h"

namespace paddock::keelhouse {

struct Node {
  std::string path;
  std::string state;  // "writable", "readable", "unreachable"
  std::string error;  // why it is unreachable
  std::int64_t milliseconds = 0;
  std::string basis;  // what the state is known by: "configured", "accepted", "refused", or nothing

  bool isReachable() const { return state != "unreachable"; }
};

// All of them in search order. Throws Failure when they cannot be asked for.
std::vector<Node> askNodes(const Session& session);

// The state with what it is known by: "writable (as configured)". Not yet printable.
std::string describeState(const Node& node);

// The state, how long the node took, and what is wrong: "readable, 3 ms". Not yet printable.
std::string describeNode(const Node& node);

}  // namespace paddock::keelhouse
