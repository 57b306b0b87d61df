#include "copyprivs/change_steps.h"

#include <algorithm>
#include <utility>

#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/privileges/file_mode.h"

namespace paddock::copyprivs {

namespace {

constexpr mode_t kPermissionBits = 0777;
constexpr mode_t kSetIdBits = S_ISUID | S_ISGID;

bool isWithin(posix_acl::Bits few, posix_acl::Bits many) { return (few & ~many) == 0; }

// The permissions that the kernel enforces.
struct Content {
  posix_acl::Classes classes;
  std::vector<posix_acl::Named> users;
  bool namesAnybody = false;
  posix_acl::Bits mask = posix_acl::kAllBits;

  explicit Content(const ObjectState& state) : classes(posix_acl::classesOf(state.mode)) {
    const auto acl = state.access.isThere() ? posix_acl::decode(state.access.value) : std::nullopt;
    if (!acl) return;
    classes = acl->effectiveClasses();
    users = acl->users;
    namesAnybody = acl->namesAnybody();
    mask = acl->mask.value_or(mask);
  }

  bool names(std::uint32_t uid) const {
    return std::any_of(users.begin(), users.end(),
                       [uid](const posix_acl::Named& user) { return user.id == uid; });
  }
  // Whether each user named here, and not there, has these permissions.
  bool givesUsersUnknownTo(const Content& other, posix_acl::Bits bits) const {
    return std::all_of(users.begin(), users.end(), [&](const posix_acl::Named& user) {
      return other.names(user.id) || isWithin(bits, static_cast<posix_acl::Bits>(user.bits & mask));
    });
  }
};

// Whether the permissions of `content` are acceptable under the owner and group of `other`: new
// members of the group have them already, or are to have them, and former members gain nothing.
bool mayStandUnder(const ObjectState& other, const Content& theirs, const ObjectState& own,
                   const Content& content) {
  const posix_acl::Classes& classes = content.classes;
  if (own.uid != other.uid && !isWithin(classes.owner, theirs.classes.owner)) return false;
  if (own.gid == other.gid) return true;
  if (!isWithin(classes.others, classes.group)) return false;
  if (!content.namesAnybody && isWithin(classes.group, classes.others)) return true;
  return isWithin(classes.group, theirs.classes.group) &&
         theirs.givesUsersUnknownTo(content, classes.group);
}

// Records the steps, and the mode after each.
class Steps {
 public:
  Steps(const ObjectState& before, const ObjectState& after, const std::string& list)
      : before_(before), after_(after), list_(list), mode_(before.mode) {}

  std::vector<ChangeStep> make() {
    if (before_.uid == after_.uid && before_.gid == after_.gid) {
      changeContent();
      return std::move(steps_);
    }
    const Content old(before_);
    const Content next(after_);
    if (mayStandUnder(after_, next, before_, old)) {
      changeOwner();
      changeContent();
    } else if (mayStandUnder(before_, old, after_, next)) {
      changeContent();
      changeOwner();
    } else {
      setMode(before_.mode & after_.mode & (07000 | S_IRWXU));
      changeOwner();
      changeContent();
    }
    return std::move(steps_);
  }

 private:
  void changeOwner() {
    steps_.push_back({ChangeStep::Kind::owner, after_.uid, after_.gid, 0, {}});
    if (after_.isFolder()) return;
    mode_ &= ~mode_t{S_ISUID};
    if ((mode_ & S_IXGRP) != 0) mode_ &= ~mode_t{S_ISGID};
  }

  void setMode(mode_t mode) {
    mode &= kModeBits;
    if (mode == (mode_ & kModeBits)) return;
    steps_.push_back({ChangeStep::Kind::mode, 0, 0, mode, {}});
    mode_ = mode;
  }

  // The attributes before the mode: what is denied by them comes before what is allowed by it.
  void changeContent() {
    std::vector<XattrChange> attributes;
    const auto add = [&](const char* name, const Attribute& before, const Attribute& after) {
      if (before == after) return;
      attributes.push_back({name, before.optional(), after.optional(), false});
    };
    // A kernel ACL without a list is considered foreign.
    const bool isListLast = !after_.list.isThere();
    if (!isListLast) add(list_.c_str(), before_.list, after_.list);
    add(posix_acl::kDefaultAttribute, before_.passedOn, after_.passedOn);
    const bool withAccess = !(before_.access == after_.access);
    if (withAccess) attributes.push_back(accessChange());
    if (isListLast) add(list_.c_str(), before_.list, after_.list);
    if (!attributes.empty()) {
      dropSetIds();
      steps_.push_back({ChangeStep::Kind::attributes, 0, 0, 0, std::move(attributes)});
    }
    if (withAccess) mode_ = (mode_ & ~kPermissionBits) | (after_.mode & kPermissionBits);
    setMode(after_.mode);
  }

  // No user may gain the right to run a program with the rights of its current owner or group.
  void dropSetIds() {
    if (after_.isFolder()) return;
    setMode(mode_ & ~(kSetIdBits & ~after_.mode));
  }

  // Setting the ACL that says no more than a mode removes one that says more, and sets the mode.
  XattrChange accessChange() const {
    return {posix_acl::kAccessAttribute, valueOf(before_), valueOf(after_), false};
  }
  static std::string valueOf(const ObjectState& state) {
    if (state.access.isThere()) return state.access.value;
    posix_acl::Acl acl;
    acl.classes = posix_acl::classesOf(state.mode);
    return posix_acl::encode(acl);
  }

  const ObjectState& before_;
  const ObjectState& after_;
  const std::string& list_;
  mode_t mode_;
  std::vector<ChangeStep> steps_;
};

}  // namespace

std::vector<ChangeStep> changeSteps(const ObjectState& before, const ObjectState& after,
                                    const std::string& list) {
  return Steps(before, after, list).make();
}

}  // namespace paddock::copyprivs
