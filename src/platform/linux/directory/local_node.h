// The directory node "/Local", kept in SQLite.
#pragma once

#include <memory>
#include <string>

#include "platform/directory.h"
#include "platform/linux/directory/local_database.h"
#include "platform/search_node.h"

namespace paddock {

class LocalDirectoryNode : public DirectoryNode {
 public:
  // Sets the password of a user of this node; it replaces an earlier one. Throws DirectoryError:
  // ENOENT when the node has no user of the name, EINVAL for a password that is empty, holds a NUL
  // or is longer than 511 bytes, EACCES where changes raise it.
  virtual void setPassword(const std::string& user, const std::string& password) = 0;
};

// Opens the node. Propagates exceptions of opening the database. Authenticated users may write when
// they are root or members of `adminGroup`, by the name service or the node's own group of that
// name. Each password check goes through the observer.
std::shared_ptr<LocalDirectoryNode> openLocalNode(std::shared_ptr<LocalDatabase> database,
                                                  std::string adminGroup,
                                                  std::shared_ptr<NodeObserver> observer = nullptr);

}  // namespace paddock
