#include "platform/linux/privileges/posix_projection.h"

#include <algorithm>
#include <array>
#include <cerrno>
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

// Somebody whom rules are judged for.
struct Principal {
  std::uint32_t uid = 0;
  bool isUser = false;
  const std::vector<std::uint32_t>* groups = nullptr;
  Bits fallback = 0;
};

bool contains(const std::vector<std::uint32_t>& sorted, std::uint32_t id) {
  return std::binary_search(sorted.begin(), sorted.end(), id);
}

bool isMeant(const Subject& subject, const Principal& principal) {
  switch (subject.kind) {
    case Subject::Kind::everyone:
      return true;
    case Subject::Kind::user:
      return principal.isUser && principal.uid == subject.id;
    case Subject::Kind::group:
      return contains(*principal.groups, subject.id);
    case Subject::Kind::nobody:
      break;
  }
  return false;
}

// The first rule that names a bit decides it.
Bits granted(const std::vector<Rule>& rules, Applies applies, const Principal& principal) {
  unsigned undecided = posix_acl::kAllBits;
  unsigned allowed = 0;
  for (const Rule& rule : rules) {
    if (undecided == 0) break;
    if (!applies(rule.flags) || !isMeant(rule.subject, principal)) continue;
    if (rule.allow) allowed |= rule.bits & undecided;
    undecided &= ~static_cast<unsigned>(rule.bits);
  }
  return static_cast<Bits>(allowed | (principal.fallback & undecided));
}

class Projector {
 public:
  Projector(const Source& source, const GroupsOf& groupsOf, Objects objects)
      : source_(source), groupsOf_(groupsOf), objects_(std::move(objects)) {}

  // Names the principals of the rules that `naming` picks.
  posix_acl::Acl make(Applies naming) const {
    std::set<std::uint32_t> users;
    std::set<std::uint32_t> groups;
    for (const Rule& rule : source_.rules) {
      if (!naming(rule.flags)) continue;
      if (rule.subject.kind == Subject::Kind::user) users.insert(rule.subject.id);
      if (rule.subject.kind == Subject::Kind::group) groups.insert(rule.subject.id);
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
    return ofPrincipal({uid, true, &groups, fallback(contains(groups, source_.gid))});
  }
  Bits ofGroup(std::uint32_t gid) const {
    const std::vector<std::uint32_t> groups{gid};
    return ofPrincipal({0, false, &groups, fallback(gid == source_.gid)});
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

std::vector<std::uint32_t> namedUsers(const std::vector<Rule>& rules) {
  std::set<std::uint32_t> users;
  for (const Rule& rule : rules)
    if (rule.subject.kind == Subject::Kind::user) users.insert(rule.subject.id);
  return {users.begin(), users.end()};
}

}  // namespace paddock::projection

namespace paddock::nt_acl {

namespace {

using projection::Subject;

// Means "leave it" to the kernel.
constexpr std::uint32_t kUndefinedId = 0xFFFFFFFF;
constexpr std::uint64_t kCreatorAuthority = 3;

posix_acl::Bits bitsOf(std::uint32_t mask) {
  unsigned bits = 0;
  if ((mask & kReadDataMask) != 0) bits |= posix_acl::kRead;
  if ((mask & kWriteDataMask) != 0) bits |= posix_acl::kWrite;
  if ((mask & kExecuteMask) != 0) bits |= posix_acl::kExecute;
  return static_cast<posix_acl::Bits>(bits);
}

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
              std::vector<projection::Rule>& rules) {
  rules.clear();
  rules.reserve(aces.size());
  for (const Ace& ace : aces) {
    projection::Rule rule{ace.type == kAllowed, {}, bitsOf(ace.mask), flagsOf(ace.flags)};
    if (ace.foreign.empty()) {
      const int error = findSubject(sids, membership, ace.sid, rule.subject);
      if (error != 0) return error;
    }
    rules.push_back(rule);
  }
  return 0;
}

}  // namespace paddock::nt_acl
