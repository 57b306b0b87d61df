#include "copyprivs/object_setter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "base/system_call.h"
#include "copyprivs/named_objects.h"
#include "platform/linux/file_object.h"
#include "platform/linux/posix_acl.h"
#include "platform/linux/xattr_changes.h"

namespace paddock::copyprivs {

namespace {

constexpr std::uint32_t kSetOwners = kSetOwner | kSetGroup;
constexpr std::uint32_t kSetModes =
    kSetOwnerPermissions | kSetGroupPermissions | kSetOtherPermissions;

void note(Outcome& outcome, const std::string& what, int error) {
  if (outcome.error.empty()) {
    outcome.error = what + ": " + std::generic_category().message(error);
  }
}

const char* operationOf(ChangeStep::Kind kind) {
  switch (kind) {
    case ChangeStep::Kind::owner:
      return "cannot change the owner";
    case ChangeStep::Kind::mode:
      return "cannot change the mode";
    case ChangeStep::Kind::attributes:
      break;
  }
  return "cannot set the ACL";
}

// What is still to be tried when that cannot be done; false when nothing is left.
bool giveUp(ChangeStep::Kind kind, Planner::Request& request) {
  if (kind == ChangeStep::Kind::owner) {
    request.what &= ~kSetOwners;
  } else if (kind == ChangeStep::Kind::mode) {
    request.what &= ~kSetModes;
  } else if ((request.what & kSetInheritedEntries) != 0) {
    request.what &= ~kSetInheritedEntries;
  } else if (request.refreshes) {
    request.refreshes = false;
  } else {
    request.what &= ~kSetModes;
  }
  return request.what != 0;
}

// Of a link itself, too.
int changeOwner(int object, std::uint32_t uid, std::uint32_t gid) {
  const int error = errnoOf([&] { return ::fchown(object, uid, gid); });
  // An O_PATH descriptor.
  if (error != EBADF) return error;
  return errnoOf([&] { return ::fchownat(object, "", uid, gid, AT_EMPTY_PATH); });
}

int performOne(int object, const ChangeStep& step) {
  switch (step.kind) {
    case ChangeStep::Kind::owner:
      return changeOwner(object, step.uid, step.gid);
    case ChangeStep::Kind::mode:
      return changeObjectMode(object, step.mode);
    case ChangeStep::Kind::attributes:
      break;
  }
  return applyChanges(linuxExtendedAttributes(), object, step.attributes);
}

unsigned changesOfLink(const PrivsToSet& privs, const ObjectStatus& status) {
  unsigned changes = 0;
  if ((privs.what & kSetOwner) != 0 && privs.uid != status.owner) changes |= Plan::kOwner;
  if ((privs.what & kSetGroup) != 0 && privs.gid != status.group) changes |= Plan::kGroup;
  return changes;
}

}  // namespace

ObjectSetter::ObjectSetter(const Propagation& propagation, FilePrivileges& privileges)
    : propagation_(propagation), planner_(privileges, propagation.attribute, propagation.privs) {}

Outcome ObjectSetter::set(int object, const ObjectStatus& status, const Levels::Pointer& levels) {
  if (S_ISLNK(status.type)) return setLink(object, status);
  Outcome outcome;
  Planner::Request request{propagation_.privs.what, true};
  ObjectStatus present = status;
  for (bool first = true;; first = false) {
    read(present, [object](const std::string& name, std::string& value) {
      return linuxExtendedAttributes().get(object, name, value);
    });
    const Plan& plan = planner_.plan(state_, levels, request);
    if (plan.error != 0) note(outcome, "cannot set the ACL", plan.error);
    if (plan.hasInvalidList && outcome.error.empty()) {
      outcome.error = "its ACL is invalid, and was left as it is";
    }
    if (first) {
      outcome.inside = plan.inside;
      outcome.changes = plan.changes;
    }
    if (propagation_.dryRun) outcome.changed = !plan.steps.empty();
    if (propagation_.dryRun || perform(object, plan.steps, request, outcome)) return outcome;
    if (const int error = statusOf(object, present); error != 0) {
      note(outcome, "cannot read", error);
      return outcome;
    }
  }
}

bool ObjectSetter::wouldSet(const char* name, const ObjectStatus& status,
                            const Levels::Pointer& levels) {
  if (S_ISLNK(status.type)) return changesOfLink(propagation_.privs, status) != 0;
  read(status, [name](const std::string& attribute, std::string& value) {
    return NamedObjects::get(name, attribute.c_str(), value);
  });
  const Plan& plan = planner_.plan(state_, levels, {propagation_.privs.what, true});
  return !plan.steps.empty() || plan.error != 0 || plan.hasInvalidList;
}

Outcome ObjectSetter::setLink(int object, const ObjectStatus& status) const {
  const PrivsToSet& privs = propagation_.privs;
  Outcome outcome;
  outcome.changes = changesOfLink(privs, status);
  if (outcome.changes == 0) return outcome;
  const std::uint32_t uid = (privs.what & kSetOwner) != 0 ? privs.uid : status.owner;
  const std::uint32_t gid = (privs.what & kSetGroup) != 0 ? privs.gid : status.group;
  const int error = propagation_.dryRun ? 0 : changeOwner(object, uid, gid);
  outcome.changed = error == 0;
  if (error != 0) note(outcome, operationOf(ChangeStep::Kind::owner), error);
  return outcome;
}

// `get` reads an attribute.
template <typename Get>
void ObjectSetter::read(const ObjectStatus& status, const Get& get) {
  static const std::string access = posix_acl::kAccessAttribute;
  static const std::string passedOn = posix_acl::kDefaultAttribute;
  state_.mode = status.type | status.mode;
  state_.uid = status.owner;
  state_.gid = status.group;
  state_.list.error = get(propagation_.attribute, state_.list.value);
  state_.access.error = get(access, state_.access.value);
  if (state_.isFolder()) {
    state_.passedOn.error = get(passedOn, state_.passedOn.value);
  } else {
    state_.passedOn.error = ENODATA;
    state_.passedOn.value.clear();
  }
}

// False when something failed and what is left is to be planned anew.
bool ObjectSetter::perform(int object, const std::vector<ChangeStep>& steps,
                           Planner::Request& request, Outcome& outcome) {
  for (const ChangeStep& step : steps) {
    const int error = performOne(object, step);
    if (error == 0) {
      outcome.changed = true;
      continue;
    }
    note(outcome, operationOf(step.kind), error);
    return !giveUp(step.kind, request);
  }
  return true;
}

}  // namespace paddock::copyprivs
