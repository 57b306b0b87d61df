// The search node over a list of nodes, and the session that gives both.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/directory.h"

namespace paddock {

inline constexpr const char* kLocalNodePath = "/Local";
inline constexpr const char* kSystemNodePath = "/System";
inline constexpr const char* kSearchNodePath = "/Search";

// How a node is opened. `open` may throw DirectoryError.
struct NodeFactory {
  std::string path;
  std::function<std::shared_ptr<DirectoryNode>()> open;
};
// In search order.
using NodeList = std::vector<NodeFactory>;

// Opens the node of the list, or the search node. Throws ENOENT for any other path.
std::shared_ptr<DirectoryNode> openNode(const std::shared_ptr<const NodeList>& nodes,
                                        const std::string& path);

// The node "/Search": read-only, answers what its nodes answer, in the order of the list. A node
// that throws ends the search with its error, so that an incomplete answer is never passed off
// as a complete one; a record found by name on an earlier node is found all the same. A user is
// authenticated by the first node that has a record of the name.
std::shared_ptr<DirectoryNode> makeSearchNode(std::shared_ptr<const NodeList> nodes);

// A session whose local node is "/Local" of the list.
std::unique_ptr<DirectorySession> makeSession(std::shared_ptr<const NodeList> nodes);

}  // namespace paddock
