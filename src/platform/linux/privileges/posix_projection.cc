#include "platform/linux/privileges/posix_projection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <set>
#include <utility>

#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/sid_forms.h"

namespace paddock::projection {

namespace {

using posix_acl::Bits;

// Whether a rule counts for one kind of object.
using Applies = bool (*)(acl::Flag flags);

bool hasAll(acl::Flag flags, acl::Flag wanted) { return (flags & wanted) == wanted; }
bool goesOn(acl::Flag flags) { return (flags & acl::kLimitInherit) == 0; }

bool toTheObject(acl::Flag flags) { return !hasAll(flags, acl::kOnlyInherit); }
bool toFiles(acl::Flag flags) { return hasAll(flags, acl::kFileInherit); }
bool toFolders(acl::Flag flags) { return hasAll(flags, acl::kDirectoryInherit); }
bool toDeeperFiles(acl::Flag flags) { return toFiles(flags) && goesOn(flags); }
bool toDeeperFolders(acl::Flag flags) { return toFolders(flags) && goesOn(flags); }
bool toAnything(acl::Flag flags) { return toFiles(flags) || toFolders(flags); }

// Every kind of object for which one ACL is to hold.
using Objects = std::vector<Applies>;

// Somebody whom rules are judged for; without a uid, one of whom only the groups are known.
struct Principal {
  std::optional<std::uint32_t> uid;
  const std::vector<std::uint32_t>& groups;
  Bits fallback = 0;
};

Bits granted(const std::vector<acl::Rule>& rules, Applies applies, const Principal& principal) {
  acl::Permission allowed = 0;
  const auto decides = [&](std::size_t at, acl::Permission permissions) {
    const acl::Rule& rule = rules[at];
    if (!applies(rule.flags) || !acl::isFor(rule.subject, principal.uid, principal.groups))
      return false;
    if (rule.allow) allowed |= permissions;
    return true;
  };
  const acl::Permission undecided = acl::decideInOrder(acl::kDecisive, rules, decides);
  return static_cast<Bits>(acl::kernelBitsOf(allowed) |
                           (principal.fallback & acl::kernelBitsOf(undecided)));
}

class Projector {
 public:
  Projector(const Source& source, const GroupsOf& groupsOf, Objects objects)
      : source_(source), groupsOf_(groupsOf), objects_(std::move(objects)) {}

  // Names the principals of the rules that `naming` picks.
  posix_acl::Acl make(Applies naming) const {
    std::set<std::uint32_t> users;
    std::set<std::uint32_t> groups;
    for (const acl::Rule& rule : source_.rules) {
      if (!naming(rule.flags)) continue;
      if (rule.subject.isUser()) users.insert(rule.subject.id);
      if (rule.subject.isGroup()) groups.insert(rule.subject.id);
    }
    posix_acl::Acl acl;
    acl.classes = source_.classes;
    for (const std::uint32_t uid : users) acl.users.push_back({uid, ofUser(uid)});
    for (const std::uint32_t gid : groups) acl.groups.push_back({gid, ofGroup(gid)});
    acl.computeMask();
    return acl;
  }

 private:
  // As if he were not the owner, whom the kernel gives the owner's part whatever else is said.
  Bits ofUser(std::uint32_t uid) const {
    const auto& groups = groupsOf_(uid);
    const bool isInGroup = std::binary_search(groups.begin(), groups.end(), source_.gid);
    return ofPrincipal({uid, groups, fallback(isInGroup)});
  }
  Bits ofGroup(std::uint32_t gid) const {
    const std::vector<std::uint32_t> groups{gid};
    return ofPrincipal({std::nullopt, groups, fallback(gid == source_.gid)});
  }

  Bits fallback(bool isInGroup) const {
    if (source_.complete) return 0;
    return isInGroup ? source_.classes.group : source_.classes.others;
  }

  Bits ofPrincipal(const Principal& principal) const {
    unsigned bits = posix_acl::kAllBits;
    for (const Applies applies : objects_) bits &= granted(source_.rules, applies, principal);
    return static_cast<Bits>(bits);
  }

  const Source& source_;
  const GroupsOf& groupsOf_;
  Objects objects_;
};

}  // namespace

posix_acl::Acl accessAcl(const Source& source, const GroupsOf& groupsOf) {
  return Projector(source, groupsOf, {toTheObject}).make(toTheObject);
}

posix_acl::Acl defaultAcl(const Source& source, const GroupsOf& groupsOf) {
  posix_acl::Acl acl =
      Projector(source, groupsOf, {toFiles, toFolders, toDeeperFiles, toDeeperFolders})
          .make(toAnything);
  // The creator of an object is its owner, whoever owns the folder.
  acl.classes.owner = posix_acl::kAllBits;
  return acl;
}

std::vector<std::uint32_t> namedUsers(const std::vector<acl::Rule>& rules) {
  std::set<std::uint32_t> users;
  for (const acl::Rule& rule : rules)
    if (rule.subject.isUser()) users.insert(rule.subject.id);
  return {users.begin(), users.end()};
}

}  // namespace paddock::projection

namespace paddock::nt_acl {

namespace {

using acl::Subject;

// Means "leave it" to the kernel.
constexpr std::uint32_t kUndefinedId = 0xFFFFFFFF;
constexpr std::uint64_t kCreatorAuthority = 3;

Subject subjectOf(const Principal& principal) {
  if (principal.id == kUndefinedId) return {};
  const bool isUser = principal.type == PrincipalType::user;
  return {isUser ? Subject::Kind::user : Subject::Kind::group, principal.id};
}

int findSubject(PrincipalSids& sids, Membership& membership, const Sid& sid, Subject& subject) {
  subject = {};
  if (const auto principal = unixPrincipal(sid)) {
    subject = subjectOf(*principal);
    return 0;
  }
  if (sid == everyoneSid() || sid == authenticatedUsersSid()) {
    subject.kind = Subject::Kind::everyone;
    return 0;
  }
  if (sid.authority == kCreatorAuthority) return 0;
  Guid guid;
  if (const int error = sids.guidFor(sid, guid); error != 0) return error;
  Principal principal;
  const int error = membership.guidToId(guid, principal.id, principal.type);
  if (error == 0) subject = subjectOf(principal);
  return error == ENOENT ? 0 : error;
}

}  // namespace

int readRules(PrincipalSids& sids, Membership& membership, const std::vector<Ace>& aces,
              std::vector<acl::Rule>& rules) {
  rules.clear();
  rules.reserve(aces.size());
  for (const Ace& ace : aces) {
    acl::Rule rule{ace.type == kAllowed, {}, permissionsOf(ace.mask), flagsOf(ace.flags)};
    if (ace.foreign.empty()) {
      const int error = findSubject(sids, membership, ace.sid, rule.subject);
      if (error != 0) return error;
    }
    rules.push_back(rule);
  }
  return 0;
}

}  // namespace paddock::nt_acl
