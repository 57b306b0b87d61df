// The records of one user on the nodes of a directory.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/guid.h"
#include "platform/directory.h"

namespace paddock {

struct NodeUser {
  std::size_t node;  // by its place in the search order
  std::vector<std::string> names;
  std::optional<Guid> guid;
  std::optional<std::uint32_t> primaryGid;
};

// Throws what the nodes throw. Belongs to one thread.
class UserRecords {
 public:
  // Looks the user up on each of the nodes, which are in search order.
  UserRecords(std::vector<std::shared_ptr<DirectoryNode>> nodes, std::uint32_t uid);

  const std::vector<NodeUser>& records() const { return records_; }
  // Every GUID that names the user: those of the records, then the computed one.
  std::vector<Guid> guids() const;
  // The names that mean this user when a record of the node has them: the node's own users are
  // meant first, then the first in search order.
  std::vector<std::string> namesOn(std::size_t node);

 private:
  bool meansUser(std::size_t node, const std::string& name);
  // Whether the node's user of that name is this one; nothing when it has none.
  std::optional<bool> isOwnName(std::size_t node, const std::string& name);

  const std::vector<std::shared_ptr<DirectoryNode>> nodes_;
  const std::uint32_t uid_;
  std::vector<NodeUser> records_;
  std::vector<std::string> names_;  // of all records, each once
  std::map<std::pair<std::size_t, std::string>, std::optional<bool>> asked_;
};

}  // namespace paddock
