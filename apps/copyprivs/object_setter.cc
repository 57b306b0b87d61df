#include "copyprivs/object_setter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <system_error>
#include <vector>

#include "base/system_call.h"
#include "copyprivs/object_access.h"
#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/files/file_object.h"

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

// Removes what failed from the request, at least one part each time. A mode is also changed on the
// way to another owner and before a list is set.
void giveUp(ChangeStep::Kind kind, Planner::Request& request) {
  std::uint32_t first = kSetOwners;
  if (kind == ChangeStep::Kind::mode) first = kSetModes;
  if (kind == ChangeStep::Kind::attributes) first = kSetInheritedEntries;
  const bool needsList = kind == ChangeStep::Kind::attributes;
  if ((request.what & first) != 0) {
    request.what &= ~first;
  } else if (needsList && request.refreshes) {
    request.refreshes = false;
  } else if ((request.what & kSetOwners) != 0 && !needsList) {
    request.what &= ~kSetOwners;
  } else if ((request.what & kSetInheritedEntries) != 0) {
    request.what &= ~kSetInheritedEntries;
  } else {
    request = {0, false};
  }
}

// What there would be to start from, had nothing been changed but owner and group: on the way to
// its end an object may be closed, and what it was is nowhere but here then.
ObjectState withOwnersOf(const ObjectState& now, ObjectState before) {
  const bool isNew = now.uid != before.uid || now.gid != before.gid;
  if (isNew && !before.isFolder()) {
    const mode_t group = (before.mode & S_IXGRP) != 0 ? S_ISGID : 0;
    before.mode &= ~(S_ISUID | group);
  }
  before.uid = now.uid;
  before.gid = now.gid;
  return before;
}

// Symlinks are not followed.
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

void notePlan(const Plan& plan, Outcome& outcome) {
  if (plan.error != 0) note(outcome, "cannot set the ACL", plan.error);
  if (plan.hasInvalidList && outcome.error.empty()) {
    outcome.error = "its ACL is invalid, and was left as it is";
  }
}

// The kind of the step that failed, after which none was executed; absent when none did.
std::optional<ChangeStep::Kind> perform(int object, const std::vector<ChangeStep>& steps,
                                        Outcome& outcome) {
  for (const ChangeStep& step : steps) {
    const int error = performOne(object, step);
    if (error != 0) {
      note(outcome, operationOf(step.kind), error);
      return step.kind;
    }
    outcome.changed = true;
  }
  return std::nullopt;
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
  Planner::Request request = wholeRequest();
  const auto get = [object](const std::string& name, std::string& value) {
    return linuxExtendedAttributes().get(object, name, value);
  };
  read(status, get);
  const Plan& plan = planner_.plan(state_, levels, request);
  notePlan(plan, outcome);
  outcome.inside = plan.inside;
  outcome.changes = plan.changes;
  if (propagation_.dryRun) {
    outcome.changed = !plan.steps.empty();
    return outcome;
  }
  auto failed = perform(object, plan.steps, outcome);
  const ObjectState before = failed ? state_ : ObjectState();
  while (failed && request.isAnything()) {
    giveUp(*failed, request);
    ObjectStatus present;
    if (const int error = statusOf(object, present); error != 0) {
      note(outcome, "cannot read", error);
      return outcome;
    }
    read(present, get);
    const Plan& rest = planner_.plan(withOwnersOf(state_, before), levels, request);
    notePlan(rest, outcome);
    failed = perform(object, changeSteps(state_, rest.after, propagation_.attribute), outcome);
  }
  return outcome;
}

bool ObjectSetter::wouldSet(const char* name, const ObjectStatus& status,
                            const Levels::Pointer& levels) {
  if (S_ISLNK(status.type)) return changesOfLink(propagation_.privs, status) != 0;
  read(status, [name](const std::string& attribute, std::string& value) {
    return NamedObjects::get(name, attribute.c_str(), value);
  });
  const Plan& plan = planner_.plan(state_, levels, wholeRequest());
  return !plan.steps.empty() || plan.error != 0 || plan.hasInvalidList;
}

// A run that sets nothing brings no list up to date either.
Planner::Request ObjectSetter::wholeRequest() const {
  return {propagation_.privs.what, propagation_.privs.what != 0};
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

}  // namespace paddock::copyprivs
