// The directory nodes, as the plug-in paddock_directory reports them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "keelhouse/core/session.h"

namespace paddock::keelhouse {

struct Node {
  std::string path;
  std::string state;  // "writable", "readable", "unreachable", "refused", "broken"
  std::string error;  // why it is neither writable nor readable
  std::int64_t milliseconds = 0;
  std::string basis;  // what the state is known by: "configured", "accepted", "refused", or nothing

  bool isReachable() const { return state != "unreachable"; }
  bool isUsable() const { return state == "writable" || state == "readable"; }
};

// A node that the daemon has had to do without, by its health.
struct UnansweredNode {
  std::string path;
  std::string since;  // "2026-01-31T12:00:00.000Z"
};
std::vector<UnansweredNode> unansweredNodes(const Dictionary& health);

// "there is no user zoe, neither on this host nor in a directory node", or that a node which does
// not answer may have one. `what`: "user zoe".
std::string nobodyText(const Session& session, const std::string& what);

// All of them in search order. Throws Failure when they cannot be asked for.
std::vector<Node> askNodes(const Session& session);

// The state with what it is known by: "writable (as configured)". Not yet printable.
std::string describeState(const Node& node);

// The state, how long the node took, and what is wrong: "readable, 3 ms". Not yet printable.
std::string describeNode(const Node& node);

}  // namespace paddock::keelhouse
