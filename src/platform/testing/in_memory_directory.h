// A directory in memory: the double of the Linux directory service, which passes the same
// contract suite.
//
// At first it has the node "/Local", which can be written. Records and nodes stay usable after the
// directory is destroyed.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/directory.h"
#include "platform/directory_values.h"

namespace paddock {

class InMemoryDirectory final : public DirectoryService {
 public:
  // `fold` compares values: `caseFold` of the Linux platform, or `asciiLower` where ASCII is
  // enough. Members of the group `adminGroup` (its record in "/Local", GroupMembership) may
  // write after having authenticated, and so may root.
  explicit InMemoryDirectory(CaseFold fold, std::string adminGroup = "paddock");
  ~InMemoryDirectory() override;

  std::unique_ptr<DirectorySession> openLocal() override;

  // Sessions that were opened and are not yet destroyed.
  int openSessions() const;

  // Appends a node to the search path. `readOnlyNode` is its attribute ReadOnlyNode, absent for
  // a node without it; changes raise EACCES unless it is "ReadWrite".
  void addNode(const std::string& path, const std::optional<std::string>& readOnlyNode);
  // Makes a node read-only, or writable again.
  void setReadOnlyNode(const std::string& path, const std::optional<std::string>& readOnlyNode);
  // Opening the node raises `status` from now on; 0: no longer.
  void failOpening(const std::string& path, Status status);

  // Creates a record whatever the node's rights are. `attributes`: as for setAttributesAndValues.
  void addRecord(const std::string& path, const std::string& type, const std::string& name,
                 const Dictionary& attributes = {});
  // The password of a user of the node. Throws ENOENT when there is no such user.
  void setPassword(const std::string& path, const std::string& user, const std::string& password);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace paddock
