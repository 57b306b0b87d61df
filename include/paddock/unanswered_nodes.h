// Directory nodes whose last query failed, as reported by plug-ins; the daemon lists them in its
// health. Thread-safe.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "base/status.h"

namespace paddock {

// Why a node cannot be used.
enum class NodeTrouble {
  unreachable,  // no answer, or not in time
  refused,      // access denied
  broken,       // its database cannot be read, or its answer not be parsed
};

// Classifies an error of the node by its number. Without a number it is broken.
NodeTrouble nodeTroubleOf(std::optional<Status> error);
// "unreachable", "refused", "broken".
const char* nodeTroubleName(NodeTrouble trouble);

struct UnansweredNode {
  std::string path;  // "/LDAP/site"
  NodeTrouble trouble = NodeTrouble::unreachable;
  std::string error;  // the last error
  std::chrono::system_clock::time_point since;
};

// Reports that the node was left out of a query. Logs that, and why, once per request; outside a
// request once until it has answered again.
void noteUnanswered(const std::string& path, NodeTrouble trouble, const std::string& error);
// Reports that the node answered. Logged when it had not before.
void noteAnswered(const std::string& path);

// Sorted by path.
std::vector<UnansweredNode> unansweredNodes();

}  // namespace paddock
