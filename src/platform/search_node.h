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

// Notified of the outcome of each node in a search, and of each password check. Thread-safe.
class NodeObserver {
 public:
  virtual ~NodeObserver() = default;
  // The search skipped the node, which raised the error.
  virtual void leftOut(const std::string& path, const DirectoryError& error) = 0;
  virtual void answered(const std::string& path) = 0;
  // The node tests a password of the user: calls check(), now or when fewer do, and returns what it
  // returns, or EAGAIN without having called it.
  virtual Status checkPassword(const std::string& path, const std::string& name,
                               const std::function<Status()>& check);
};

// The same by way of the observer; with null the check alone.
Status checkPassword(const std::shared_ptr<NodeObserver>& observer, const std::string& path,
                     const std::string& name, const std::function<Status()>& check);

// Opens the node of the list, or the search node. Throws ENOENT for any other path.
std::shared_ptr<DirectoryNode> openNode(const std::shared_ptr<const NodeList>& nodes,
                                        const std::string& path,
                                        const std::shared_ptr<NodeObserver>& observer = nullptr);

// The node "/Search": read-only, answers what its nodes answer, in the order of the list. A node
// that raises an error is skipped, whatever the error, so that a server that is down, denies access
// or is broken does not hide the records of others; when every node did, the first one's error is
// raised. The observer, which may be null, is notified of both, and of the error. A user is
// authenticated by the first node that has a record of the name, and not at all when an earlier one
// cannot be searched: it might be another user's password.
std::shared_ptr<DirectoryNode> makeSearchNode(std::shared_ptr<const NodeList> nodes,
                                              std::shared_ptr<NodeObserver> observer = nullptr);

// A session whose local node is "/Local" of the list.
std::unique_ptr<DirectorySession> makeSession(std::shared_ptr<const NodeList> nodes,
                                              std::shared_ptr<NodeObserver> observer = nullptr);

}  // namespace paddock
