// The nodes of InMemoryDirectory and what they hold.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "platform/directory.h"
#include "platform/directory_values.h"

namespace paddock::memory {

using Attributes = std::vector<AttributeChange>;  // in the order in which they were first set

struct Record {
  std::string type;
  Attributes attributes;  // RecordName is the first
  bool removed = false;
};

// What one node holds.
struct NodeData {
  NodeData(std::string path_, CaseFold fold_, std::string adminGroup_)
      : path(std::move(path_)), fold(fold_), adminGroup(std::move(adminGroup_)) {}

  const std::string path;
  const CaseFold fold;
  const std::string adminGroup;
  Mutex mutex;
  std::optional<std::string> readOnlyNode PADDOCK_GUARDED_BY(mutex) = "ReadWrite";
  Status openStatus PADDOCK_GUARDED_BY(mutex) = 0;
  // In the order of their creation.
  std::vector<std::shared_ptr<Record>> records PADDOCK_GUARDED_BY(mutex);
  std::map<std::shared_ptr<Record>, std::string> passwords PADDOCK_GUARDED_BY(mutex);
};

// `find` gives null when there is none.
std::shared_ptr<Record> find(const NodeData& node, const std::string& name, const std::string& type)
    PADDOCK_REQUIRES(node.mutex);
std::shared_ptr<Record> create(NodeData& node, const std::string& name, const std::string& type)
    PADDOCK_REQUIRES(node.mutex);
void apply(NodeData& node, Record& record, const std::vector<AttributeChange>& changes)
    PADDOCK_REQUIRES(node.mutex);

// Opens the node, or throws its `openStatus`.
std::shared_ptr<DirectoryNode> open(const std::shared_ptr<NodeData>& data);

}  // namespace paddock::memory
