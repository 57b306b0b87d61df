// The groups of one directory node.
//
// A few groups are looked up one by one; when it would be too many, the node lists its groups once
// and that list answers everything from then on. So what a request costs a node is bounded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/value.h"
#include "platform/directory.h"

namespace paddock {

struct NodeGroup {
  std::string name;
  std::optional<std::uint32_t> gid;
  std::optional<Guid> guid;
};

// A group, and which one of what was asked for it was found by.
struct GroupMatch {
  std::size_t question;
  NodeGroup group;
};

// Throws what the node throws. Belongs to one thread.
class NodeGroups {
 public:
  // Look-ups of one object before it lists.
  static constexpr std::size_t kMostLookUps = 128;

  explicit NodeGroups(std::shared_ptr<DirectoryNode> node) : node_(std::move(node)) {}

  DirectoryNode& node() const { return *node_; }

  // Those with one of the gids, and those in which a group with one of the GUIDs is nested.
  std::vector<GroupMatch> withGids(const std::vector<std::uint32_t>& gids);
  std::vector<GroupMatch> nesting(const std::vector<Guid>& guids);
  // Those that have the value among the attribute's.
  std::vector<NodeGroup> withValue(const char* attribute, const std::string& value) const;

 private:
  struct Listing {
    std::vector<NodeGroup> groups;
    // Their indices by gid and by the nested groups' GUIDs, in lower case.
    std::map<std::string, std::vector<std::size_t>> byGid;
    std::map<std::string, std::vector<std::size_t>> byNested;
  };
  using Index = std::map<std::string, std::vector<std::size_t>> Listing::*;

  std::vector<GroupMatch> match(const char* attribute, Index index,
                                const std::vector<std::string>& texts);
  std::vector<GroupMatch> lookUp(const char* attribute,
                                 const std::vector<std::string>& texts) const;
  std::vector<GroupMatch> find(Index index, const std::vector<std::string>& texts) const;
  void list();

  std::shared_ptr<DirectoryNode> node_;
  std::size_t lookUps_ = 0;
  std::optional<Listing> listing_;
};

}  // namespace paddock
