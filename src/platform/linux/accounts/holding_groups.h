// The groups that hold a user, as far as they are found.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/group_membership.h"
#include "platform/linux/accounts/node_groups.h"

namespace paddock {

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

  // Takes a group up unless it is there. One without gid and GUID is nothing. Throws DirectoryError
  // ERANGE when it would be one too many.
  void add(const NodeGroup& record, const Way& way);
  // What a record with the same gid says of the group; to be called in search order.
  void describe(std::size_t group, const NodeGroup& record);

  std::size_t size() const { return entries_.size(); }
  std::optional<std::uint32_t> gidOf(std::size_t group) const { return entries_[group].group.gid; }
  // Every GUID that names the group.
  std::vector<Guid> guidsOf(std::size_t group) const;

  // All of them, in the order in which they were taken up. Nothing is left here.
  std::vector<HoldingGroup> take();

 private:
  struct Entry {
    HoldingGroup group;           // its GUIDs are those that it was described with
    std::optional<Guid> foundBy;  // of the record that it was taken up for
  };

  std::optional<std::size_t> find(const NodeGroup& record) const;

  std::vector<Entry> entries_;
  std::map<std::uint32_t, std::size_t> byGid_;
  std::map<Guid, std::size_t> byGuid_;
};

}  // namespace paddock
