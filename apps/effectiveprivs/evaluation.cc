#include "effectiveprivs/evaluation.h"

#include <tuple>
#include <utility>

#include "platform/linux/acl/list_rules.h"

namespace paddock::effectiveprivs {

namespace {

constexpr acl::Permission kReading = acl::kReadData | acl::kReadExtendedAttributes;
constexpr acl::Permission kWriting =
    acl::kWriteData | acl::kAppendData | acl::kWriteExtendedAttributes;
constexpr acl::Permission kFolderWriting = kWriting | acl::kDeleteChild;
constexpr acl::Permission kOwners = acl::kWriteAttributes | acl::kWriteSecurity;
constexpr acl::Permission kEverybodys = acl::kReadAttributes | acl::kReadSecurity;

struct AppliedClass {
  ModeClass modeClass = ModeClass::others;
  posix_acl::Bits bits = 0;
  std::optional<std::size_t> group;
};

AppliedClass classFor(const ObjectPrivileges& object, const Identity& user) {
  if (user.owns(object.uid)) return {ModeClass::owner, object.classes.owner, {}};
  // The mode is the kernel's, and so are the groups that count for it.
  if (user.isInHostGroup(object.gid))
    return {ModeClass::group, object.classes.group, user.groupWithGid(object.gid)};
  return {ModeClass::others, object.classes.others, {}};
}

acl::Permission permissionsOf(posix_acl::Bits bits, bool isFolder) {
  acl::Permission permissions = 0;
  if ((bits & posix_acl::kRead) != 0) permissions |= kReading;
  if ((bits & posix_acl::kWrite) != 0) permissions |= isFolder ? kFolderWriting : kWriting;
  if ((bits & posix_acl::kExecute) != 0) permissions |= acl::kExecute;
  return permissions;
}

bool letRemove(acl::Permission permissions) {
  constexpr acl::Permission kWriteAndSearch = acl::kWriteData | acl::kExecute;
  return (permissions & kWriteAndSearch) == kWriteAndSearch ||
         (permissions & acl::kDeleteChild) != 0;
}

// One object and one user.
class Judge {
 public:
  Judge(const ObjectPrivileges& object, const ParentOf& parentOf, const Identity& user)
      : object_(object), parentOf_(parentOf), user_(user) {
    for (std::size_t at = 0; at < verdicts_.size(); ++at)
      verdicts_[at].permission = acl::kPermissions[at];
  }

  Verdicts run() {
    if (user_.isRoot()) {
      decide(acl::kAllPermissions, {.granted = true, .reason = Reason::root});
      return verdicts_;
    }
    if (object_.list) walk(*object_.list);
    if (object_.list && object_.list->complete) {
      decide(undecided_, {.reason = Reason::list});
    } else {
      fallBack();
    }
    return verdicts_;
  }

 private:
  void walk(const RuleList& list) {
    const bool isOwner = user_.owns(object_.uid);
    acl::decideInOrder(undecided_, list.rules, [&](std::size_t at, acl::Permission permissions) {
      const Rule& rule = list.rules[at];
      if (rule.onlyInherit) return false;
      const auto match = user_.match(rule.subject, isOwner);
      if (match) {
        decide(
            permissions,
            {.granted = rule.allow, .reason = Reason::entry, .entry = at, .group = match->group});
      } else if (rule.subject.kind == Subject::Kind::unknown ||
                 (!object_.unaskedNodes.empty() && user_.mayMatch(rule.subject))) {
        doubt(permissions, rule.allow, at);
      }
      return match.has_value();
    });
  }

  void doubt(acl::Permission permissions, bool isAllowed, std::size_t at) {
    for (std::size_t index = 0; index < verdicts_.size(); ++index) {
      if ((verdicts_[index].permission & permissions) == 0) continue;
      auto& first = doubts_[index][isAllowed ? 1 : 0];
      if (!first) first = at;
    }
  }

  void fallBack() {
    const AppliedClass applied = classFor(object_, user_);
    const acl::Permission given = permissionsOf(applied.bits, object_.isFolder);
    const acl::Permission modes = object_.isFolder ? kFolderWriting : kWriting;
    for (const bool isGiven : {true, false})
      decide((kReading | modes | acl::kExecute) & (isGiven ? given : ~given),
             {.granted = isGiven,
              .reason = Reason::mode,
              .modeClass = applied.modeClass,
              .group = applied.group});
    decide(kOwners, {.granted = user_.owns(object_.uid), .reason = Reason::owner});
    decide(kEverybodys, {.granted = true, .reason = Reason::everybody});
    if ((undecided_ & acl::kDelete) != 0) decide(acl::kDelete, deletion());
    decide(undecided_, {});
  }

  Verdict deletion() const {
    Verdict verdict{.reason = Reason::parent};
    const ObjectPrivileges* folder = parentOf_();
    if (folder == nullptr) return verdict;
    if (folder->isSticky && !user_.owns(object_.uid) && !user_.owns(folder->uid)) return verdict;
    // Who may remove the folder itself is irrelevant here.
    const Verdicts around = judge(
        *folder, [] { return nullptr; }, user_);
    verdict.granted = letRemove(granted(around));
    verdict.isDoubted = !verdict.granted && letRemove(granted(around) | doubted(around));
    return verdict;
  }

  // What is not decided yet of the permissions.
  void decide(acl::Permission permissions, const Verdict& how) {
    const acl::Permission fresh = permissions & undecided_;
    for (std::size_t index = 0; index < verdicts_.size(); ++index) {
      Verdict& verdict = verdicts_[index];
      if ((verdict.permission & fresh) == 0) continue;
      const acl::Permission permission = verdict.permission;
      verdict = how;
      verdict.permission = permission;
      // An earlier entry for an unknown principal might have decided the opposite.
      if (const auto& other = doubts_[index][verdict.granted ? 0 : 1]) {
        verdict.granted = false;
        verdict.isDoubted = true;
        verdict.doubt = other;
      }
    }
    undecided_ &= ~fresh;
  }

  const ObjectPrivileges& object_;
  const ParentOf& parentOf_;
  const Identity& user_;
  Verdicts verdicts_;
  acl::Permission undecided_ = acl::kAllPermissions;
  // For each permission: the first entries for an unknown principal that deny and that allow it.
  std::array<std::array<std::optional<std::size_t>, 2>, std::tuple_size_v<Verdicts>> doubts_;
};

}  // namespace

ObjectPrivileges asTailHasIt(const ObjectPrivileges& object) {
  ObjectPrivileges seen = object;
  if (const auto tail = std::exchange(seen.staleTail, std::nullopt)) {
    seen.uid = tail->uid;
    seen.gid = tail->gid;
    seen.classes = tail->classes;
  }
  return seen;
}

Verdicts judge(const ObjectPrivileges& object, const ParentOf& parentOf, const Identity& user) {
  return Judge(object, parentOf, user).run();
}

acl::Permission granted(const Verdicts& verdicts) {
  acl::Permission permissions = 0;
  for (const Verdict& verdict : verdicts)
    if (verdict.granted) permissions |= verdict.permission;
  return permissions;
}

acl::Permission doubted(const Verdicts& verdicts) {
  acl::Permission permissions = 0;
  for (const Verdict& verdict : verdicts)
    if (verdict.isDoubted) permissions |= verdict.permission;
  return permissions;
}

}  // namespace paddock::effectiveprivs
