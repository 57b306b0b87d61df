// The groups of one directory node.
//
// A few groups are looked up individually; beyond a limit, the node lists its groups once and that
// list answers all later lookups. So the cost of a request to a node is bounded.
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
#include "platform/group_membership.h"

namespace paddock {

struct NodeGroup {
  std::string name;
  std::optional<std::uint32_t> gid;
  std::optional<Guid> guid;
};

// A group, and the search key by which it was found.
struct GroupMatch {
  std::size_t question;
  NodeGroup group;
};

// Propagates exceptions of the node. Belongs to one thread.
class NodeGroups {
 public:
  // Individual lookups of one object before it lists.
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

// Accumulates the groups that hold a user.
class HoldingGroups {
 public:
  // As many as a process can have (NGROUPS_MAX).
  static constexpr std::size_t kMost = 65536;

  // How a group was reached; see HoldingGroup.
  struct Way {
    HeldBy by;
    std::string node;
    std::optional<std::size_t> through = std::nullopt;
  };

  // Adds a group unless it is present. One without gid and GUID is ignored. Throws DirectoryError
  // ERANGE beyond kMost.
  void add(const NodeGroup& record, const Way& way);
  // Adds what a record with the same gid has of the group; to be called in search order.
  void describe(std::size_t group, const NodeGroup& record);

  std::size_t size() const { return entries_.size(); }
  std::optional<std::uint32_t> gidOf(std::size_t group) const { return entries_[group].group.gid; }
  // Every GUID that names the group.
  std::vector<Guid> guidsOf(std::size_t group) const;

  // Moves out all of them, in the order in which they were added.
  std::vector<HoldingGroup> take();

 private:
  struct Entry {
    HoldingGroup group;           // its GUIDs are those of its descriptions
    std::optional<Guid> foundBy;  // of the record that it was added for
  };

  std::optional<std::size_t> find(const NodeGroup& record) const;

  std::vector<Entry> entries_;
  std::map<std::uint32_t, std::size_t> byGid_;
  std::map<Guid, std::size_t> byGuid_;
};

}  // namespace paddock
