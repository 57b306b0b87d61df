#include "effectiveprivs/evaluation.h"

#include <algorithm>

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

bool mayRemoveFrom(const ObjectPrivileges& folder, const Identity& user) {
  constexpr acl::Permission kWriteAndSearch = acl::kWriteData | acl::kExecute;
  // Whoever may remove the folder itself does not matter here.
  const acl::Permission permissions = granted(judge(
      folder, [] { return nullptr; }, user));
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
      decide(acl::kAllPermissions, {0, true, Reason::root, {}, {}, {}});
      return verdicts_;
    }
    if (object_.list) walk(*object_.list);
    if (object_.list && object_.list->complete) {
      decide(undecided_, {0, false, Reason::list, {}, {}, {}});
    } else {
      fallBack();
    }
    return verdicts_;
  }

 private:
  void walk(const RuleList& list) {
    const bool isOwner = user_.owns(object_.uid);
    for (std::size_t at = 0; at < list.rules.size() && undecided_ != 0; ++at) {
      const Rule& rule = list.rules[at];
      if (rule.onlyInherit || (rule.permissions & undecided_) == 0) continue;
      if (const auto match = user_.match(rule.subject, isOwner))
        decide(rule.permissions, {0, rule.allow, Reason::entry, at, {}, match->group});
    }
  }

  void fallBack() {
    const AppliedClass applied = classFor(object_, user_);
    const acl::Permission given = permissionsOf(applied.bits, object_.isFolder);
    const acl::Permission modes = object_.isFolder ? kFolderWriting : kWriting;
    for (const bool isGiven : {true, false})
      decide((kReading | modes | acl::kExecute) & (isGiven ? given : ~given),
             {0, isGiven, Reason::mode, {}, applied.modeClass, applied.group});
    decide(kOwners, {0, user_.owns(object_.uid), Reason::owner, {}, {}, {}});
    decide(kEverybodys, {0, true, Reason::everybody, {}, {}, {}});
    if ((undecided_ & acl::kDelete) != 0)
      decide(acl::kDelete, {0, mayBeDeleted(), Reason::parent, {}, {}, {}});
    decide(undecided_, {0, false, Reason::nothing, {}, {}, {}});
  }

  bool mayBeDeleted() const {
    const ObjectPrivileges* folder = parentOf_();
    if (folder == nullptr || !mayRemoveFrom(*folder, user_)) return false;
    return !folder->isSticky || user_.owns(object_.uid) || user_.owns(folder->uid);
  }

  // What is not decided yet of the permissions.
  void decide(acl::Permission permissions, const Verdict& how) {
    const acl::Permission fresh = permissions & undecided_;
    for (Verdict& verdict : verdicts_) {
      if ((verdict.permission & fresh) == 0) continue;
      const acl::Permission permission = verdict.permission;
      verdict = how;
      verdict.permission = permission;
    }
    undecided_ &= ~fresh;
  }

  const ObjectPrivileges& object_;
  const ParentOf& parentOf_;
  const Identity& user_;
  Verdicts verdicts_;
  acl::Permission undecided_ = acl::kAllPermissions;
};

}  // namespace

Verdicts judge(const ObjectPrivileges& object, const ParentOf& parentOf, const Identity& user) {
  return Judge(object, parentOf, user).run();
}

acl::Permission granted(const Verdicts& verdicts) {
  acl::Permission permissions = 0;
  for (const Verdict& verdict : verdicts)
    if (verdict.granted) permissions |= verdict.permission;
  return permissions;
}

}  // namespace paddock::effectiveprivs
