// Every account of the host and of every directory node, read at once, so that the members of a
// group are known without a query for each user. Membership is as group_membership.h defines it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/guid.h"
#include "platform/directory.h"
#include "platform/group_membership.h"

namespace paddock::effectiveprivs {

struct ListedUser {
  std::uint32_t uid = 0;
  std::string name;  // the first one in search order
  std::vector<Guid> guids;
};

struct ListedGroup {
  std::optional<std::uint32_t> gid;
  std::vector<Guid> guids;
  std::string name;  // empty when no record says more than its gid
};

using Places = std::set<std::size_t>;

// Whom a group holds.
struct HeldUsers {
  // A group on the way: the one that was asked about first, then those that are nested in it. Each
  // stands once, by a shortest way.
  struct Step {
    std::size_t group = 0;
    std::optional<std::size_t> outer;  // the step whose group it is nested in
  };
  struct Held {
    std::size_t user = 0;
    std::size_t step = 0;  // whose group holds the user by itself
  };
  std::vector<Step> steps;
  // Each user once, by the shortest way.
  std::vector<Held> users;
};

class AccountListing {
 public:
  // Reads users and groups, and members not yet. Every function throws DirectoryError when a node
  // does not respond. Not thread-safe.
  explicit AccountListing(DirectoryService& directory);

  // By their places, which the other calls take and give.
  const std::vector<ListedUser>& users() const { return users_; }
  const ListedGroup& group(std::size_t group) const { return groups_[group].listed; }

  // Also users that the host knows, but does not enumerate.
  std::optional<std::size_t> userWithUid(std::uint32_t uid);
  std::optional<std::size_t> userWithGuid(const Guid& guid);
  // Every gid has a group, which may have no members.
  std::size_t groupWithGid(std::uint32_t gid);
  std::optional<std::size_t> groupWithGuid(const Guid& guid);

  HeldUsers heldBy(std::size_t group);
  // Those whom the host alone puts into the group, as the kernel knows them.
  Places hostMembers(std::uint32_t gid);

 private:
  struct Node {
    std::shared_ptr<DirectoryNode> node;
    // By folded name; without a uid for a name that belongs to an account without one.
    std::map<std::string, std::optional<std::uint32_t>> uids;
  };
  struct Record {
    std::size_t node = 0;
    std::string name;
  };
  struct Group {
    ListedGroup listed;
    std::vector<Record> records;
    std::vector<Guid> nested;
    // Whom it holds by itself, once that was read.
    std::optional<std::vector<std::size_t>> members;
  };
  using MembersByGid = std::map<std::uint32_t, Places>;

  bool isHost(std::size_t node) const;
  void readUsers(Node& node);
  void readGroups(std::size_t node);
  void readHost();
  std::size_t addUser(std::uint32_t uid, const std::string& name);
  std::optional<std::size_t> groupOf(const Value& answer);

  const std::vector<std::size_t>& members(std::size_t group);
  void addMembers(std::size_t group, const Record& record, Places& found);
  bool isAbout(std::size_t group, const Value& answer) const;
  std::optional<std::size_t> userNamed(std::size_t node, const std::string& name);
  void learnHostGroup(std::uint32_t gid);
  Places nested(std::size_t group) const;

  std::vector<Node> nodes_;
  std::vector<ListedUser> users_;
  std::map<std::uint32_t, std::size_t> usersByUid_;
  std::map<Guid, std::size_t> usersByGuid_;
  std::vector<Group> groups_;
  std::map<std::uint32_t, std::size_t> groupsByGid_;
  std::map<Guid, std::size_t> groupsByGuid_;
  MembersByGid primaryMembers_;         // by what records say
  MembersByGid hostMembers_;            // by the host, primary groups too
  std::set<std::uint32_t> hostGroups_;  // those that the host was asked for
};

}  // namespace paddock::effectiveprivs
