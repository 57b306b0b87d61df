#include "copyprivs/object_setter.h"

#include <system_error>

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

}  // namespace

ObjectSetter::ObjectSetter(const Propagation& propagation, FilePrivileges& privileges,
                           const HeldObjects& objects)
    : propagation_(propagation),
      objects_(objects),
      planner_(privileges, propagation.attribute, propagation.privs) {}

Outcome ObjectSetter::set(int object, const ObjectStatus& status, const Levels::Pointer& levels) {
  Outcome outcome;
  if (S_ISLNK(status.type)) {
    setLink(object, status, outcome);
    return outcome;
  }
  Planner::Request request{propagation_.privs.what, true};
  ObjectStatus present = status;
  for (bool first = true;; first = false) {
    read(object, present);
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

void ObjectSetter::setLink(int object, const ObjectStatus& status, Outcome& outcome) {
  const PrivsToSet& privs = propagation_.privs;
  const std::uint32_t uid = (privs.what & kSetOwner) != 0 ? privs.uid : status.owner;
  const std::uint32_t gid = (privs.what & kSetGroup) != 0 ? privs.gid : status.group;
  if (uid != status.owner) outcome.changes |= Plan::kOwner;
  if (gid != status.group) outcome.changes |= Plan::kGroup;
  if (outcome.changes == 0) return;
  const int error = propagation_.dryRun ? 0 : HeldObjects::changeOwner(object, uid, gid);
  outcome.changed = error == 0;
  if (error != 0) note(outcome, operationOf(ChangeStep::Kind::owner), error);
}

void ObjectSetter::read(int object, const ObjectStatus& status) {
  state_.mode = status.type | status.mode;
  state_.uid = status.owner;
  state_.gid = status.group;
  readAttribute(object, propagation_.attribute, state_.list);
  readAttribute(object, posix_acl::kAccessAttribute, state_.access);
  if (state_.isFolder()) {
    readAttribute(object, posix_acl::kDefaultAttribute, state_.passedOn);
  } else {
    state_.passedOn.error = ENODATA;
    state_.passedOn.value.clear();
  }
}

void ObjectSetter::readAttribute(int object, const std::string& name, Attribute& attribute) {
  attribute.error = objects_.get(object, name, attribute.value);
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

int ObjectSetter::performOne(int object, const ChangeStep& step) const {
  switch (step.kind) {
    case ChangeStep::Kind::owner:
      return HeldObjects::changeOwner(object, step.uid, step.gid);
    case ChangeStep::Kind::mode:
      return objects_.changeMode(object, step.mode);
    case ChangeStep::Kind::attributes:
      break;
  }
  return applyChanges(objects_, object, step.attributes);
}

}  // namespace paddock::copyprivs
