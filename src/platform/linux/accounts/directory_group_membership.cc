#include "platform/linux/accounts/directory_group_membership.h"

#include <cerrno>
#include <memory>
#include <numeric>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/directory.h"
#include "platform/linux/accounts/node_groups.h"
#include "platform/linux/accounts/user_records.h"
#include "platform/search_node.h"

namespace paddock {

namespace {

using Indices = std::vector<std::size_t>;
using Nodes = std::vector<std::shared_ptr<DirectoryNode>>;

Nodes openNodes(DirectoryService& directory) {
  const auto session = directory.openLocal();
  Nodes nodes;
  for (const Value& path : session->searchNode()->getAttribute(schema::kSearchPath))
    if (path.string() != nullptr) nodes.push_back(session->findNode(*path.string()));
  return nodes;
}

// The search for one user, on one thread.
class Search {
 public:
  Search(const Nodes& nodes, UserGroups& hostGroups, std::uint32_t uid)
      : hostGroups_(hostGroups), uid_(uid), user_(nodes, uid) {
    for (const auto& node : nodes) nodes_.emplace_back(node);
  }

  UserMembership run() {
    addPrimaryGroups();
    for (std::size_t node = 0; node < nodes_.size(); ++node)
      if (isHost(node)) addHostGroups(node);
    if (isKnown()) {
      for (std::size_t node = 0; node < nodes_.size(); ++node)
        if (!isHost(node)) addGroupsWithMember(node);
      addNestedGroups();
    }
    const bool known = isKnown();
    return {known, user_.guids(), groups_.take(), {}};
  }

 private:
  bool isHost(std::size_t node) const { return pathOf(node) == kSystemNodePath; }
  const std::string& pathOf(std::size_t node) const { return nodes_[node].node().path(); }

  // An account of the host's may have a name that no record can have.
  bool isKnown() const { return !user_.records().empty() || groups_.size() > 0; }

  void addPrimaryGroups() {
    for (const NodeUser& record : user_.records())
      if (record.primaryGid)
        groups_.add({{}, record.primaryGid, {}}, {HeldBy::primaryGroup, pathOf(record.node)});
  }

  void addGroupsWithMember(std::size_t node) {
    for (const std::string& name : user_.namesOn(node))
      addMembers(node, schema::kGroupMembership, name);
    for (const Guid& guid : user_.guids()) addMembers(node, schema::kGroupMembers, guidText(guid));
  }

  void addMembers(std::size_t node, const char* attribute, const std::string& value) {
    for (const NodeGroup& group : nodes_[node].withValue(attribute, value))
      groups_.add(group, {HeldBy::member, pathOf(node)});
  }

  void addHostGroups(std::size_t node) {
    std::vector<std::uint32_t> gids;
    if (const int error = hostGroups_.groupsOf(uid_, gids); error != 0)
      throw DirectoryError(error, "the host's groups of user " + std::to_string(uid_) + ": " +
                                      std::generic_category().message(error));
    for (const std::uint32_t gid : gids) groups_.add({{}, gid, {}}, {HeldBy::member, pathOf(node)});
  }

  void addNestedGroups() {
    std::size_t done = 0;  // groups before it have been asked about
    for (std::size_t level = 0; done < groups_.size(); ++level) {
      Indices fresh(groups_.size() - done);
      std::iota(fresh.begin(), fresh.end(), done);
      done = groups_.size();
      learnOf(fresh);
      if (level == GroupMembership::kMostLevels) return;
      addGroupsAround(fresh);
    }
  }

  // What the nodes' records say of groups of which there may be only a gid so far.
  void learnOf(const Indices& groups) {
    Indices asked;
    std::vector<std::uint32_t> gids;
    for (const std::size_t group : groups) {
      if (!groups_.gidOf(group)) continue;
      asked.push_back(group);
      gids.push_back(*groups_.gidOf(group));
    }
    for (std::size_t node = 0; node < nodes_.size() && !gids.empty(); ++node) {
      if (isHost(node)) continue;  // its GUIDs are the computed ones
      for (const GroupMatch& match : nodes_[node].withGids(gids))
        groups_.describe(asked[match.question], match.group);
    }
  }

  // The groups that these are nested in.
  void addGroupsAround(const Indices& groups) {
    Indices asked;
    std::vector<Guid> guids;
    for (const std::size_t group : groups) {
      for (const Guid& guid : groups_.guidsOf(group)) {
        asked.push_back(group);
        guids.push_back(guid);
      }
    }
    for (std::size_t node = 0; node < nodes_.size(); ++node) {
      if (isHost(node)) continue;  // the host's groups hold users only
      for (const GroupMatch& match : nodes_[node].nesting(guids))
        groups_.add(match.group, {HeldBy::nestedGroup, pathOf(node), asked[match.question]});
    }
  }

  UserGroups& hostGroups_;
  const std::uint32_t uid_;
  std::vector<NodeGroups> nodes_;
  UserRecords user_;
  HoldingGroups groups_;
};

}  // namespace

int DirectoryGroupMembership::membershipOf(std::uint32_t uid, UserMembership& membership) {
  membership = {};
  try {
    membership = Search(openNodes(directory_), hostGroups_, uid).run();
    return 0;
  } catch (const DirectoryError& error) {
    membership.error = error.what();
    const Status status = error.status().value_or(EIO);
    return status == 0 ? EIO : status;
  }
}

}  // namespace paddock
