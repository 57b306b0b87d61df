// Directory nodes that could not be used when they were asked last, as plug-ins met them; the
// daemon names them in its health. Any thread may call.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"

namespace paddock {

// Why a node cannot be used.
enum class NodeTrouble {
  unreachable,  // nothing answers, or not in time
  refused,      // it answers that we may not
  broken,       // its database cannot be read, or its answer not be understood
};

// What an error of the node, by its number, says of the node. Without a number it is broken.
NodeTrouble nodeTroubleOf(std::optional<Status> error);
// "unreachable", "refused", "broken".
const char* nodeTroubleName(NodeTrouble trouble);

struct UnansweredNode {
  std::string path;  // "/LDAP/site"
  NodeTrouble trouble = NodeTrouble::unreachable;
  std::string error;  // what was wrong last
  std::chrono::system_clock::time_point since;
};

// The node was left out of what it was asked for. Logs that, and why, once for each request;
// outside of a request once until it has answered again.
void noteUnanswered(const std::string& path, NodeTrouble trouble, const std::string& error);
// The node answered. Logs that when it had not before.
void noteAnswered(const std::string& path);

// In the order of their paths.
std::vector<UnansweredNode> unansweredNodes();

}  // namespace paddock
