// The nodes of InMemoryDirectory and what they hold.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/directory.h"
#include "platform/directory_values.h"

namespace paddock::memory {

using Attributes = std::vector<AttributeChange>;  // in the order in which they were first set

struct Record {
  std::string type;
  Attributes attributes;  // RecordName is the first
  bool removed = false;
};

// What one node holds. `mutex` guards the rest.
struct NodeData {
  NodeData(std::string path_, CaseFold fold_, std::string adminGroup_)
      : path(std::move(path_)), fold(fold_), adminGroup(std::move(adminGroup_)) {}

  const std::string path;
  const CaseFold fold;
  const std::string adminGroup;
  std::mutex mutex;
  std::optional<std::string> readOnlyNode = "ReadWrite";
  Status openStatus = 0;
  std::vector<std::shared_ptr<Record>> records;  // in the order of their creation
  std::map<std::shared_ptr<Record>, std::string> passwords;
};

// All three with the mutex held. `find` gives null when there is none.
std::shared_ptr<Record> find(const NodeData& node, const std::string& name,
                             const std::string& type);
std::shared_ptr<Record> create(NodeData& node, const std::string& name, const std::string& type);
void apply(NodeData& node, Record& record, const std::vector<AttributeChange>& changes);

// Opens the node, or throws its `openStatus`.
std::shared_ptr<DirectoryNode> open(const std::shared_ptr<NodeData>& data);

}  // namespace paddock::memory
