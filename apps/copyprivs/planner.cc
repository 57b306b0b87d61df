#include "copyprivs/planner.h"

#include <cerrno>
#include <utility>

#include "platform/linux/privileges/file_mode.h"
#include "platform/linux/privileges/mode_tail.h"

namespace paddock::copyprivs {

namespace {

// As long as account lookups are cached.
constexpr auto kLifetime = AccountCache<int, int>::kLifetime;
// Between two readings of the clock.
constexpr unsigned kPlansPerLook = 256;
constexpr std::size_t kMostBytes = std::size_t{2} << 20U;
// Of a plan, besides the values in it.
constexpr std::size_t kBytesOfPlan = 1024;
constexpr std::size_t kValuesOfPlan = 6;

int kindOf(const ObjectState& state) {
  if (S_ISDIR(state.mode)) return kDirectoryKind;
  return S_ISREG(state.mode) ? kRegularKind : 0;
}

template <typename Number>
void append(std::string& key, Number number) {
  key.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void append(std::string& key, const Attribute& attribute) {
  append(key, attribute.error);
  append(key, attribute.value.size());
  key += attribute.value;
}

mode_t modeOf(const ObjectState& state) {
  return modeWithout({true, state.access.optional()}, state.mode);
}

// The entries of a list, without the tail that follows owner and mode; nothing when it is invalid.
nt_acl::SplitList entriesOf(const ObjectState& state) {
  auto descriptor = state.list.isThere() ? nt_acl::decode(state.list.value) : std::nullopt;
  if (!descriptor || !descriptor->list) return {};
  return nt_acl::withoutTail(std::move(*descriptor->list), state.isFolder());
}

bool haveSameEntries(const ObjectState& one, const ObjectState& other) {
  if (one.list.isThere() != other.list.isThere()) return false;
  const nt_acl::SplitList mine = entriesOf(one);
  const nt_acl::SplitList theirs = entriesOf(other);
  return mine.entries == theirs.entries && mine.complete == theirs.complete;
}

unsigned differences(const ObjectState& before, const ObjectState& after) {
  unsigned changes = 0;
  if (before.uid != after.uid) changes |= Plan::kOwner;
  if (before.gid != after.gid) changes |= Plan::kGroup;
  if (modeOf(before) != modeOf(after)) changes |= Plan::kMode;
  if (!haveSameEntries(before, after)) changes |= Plan::kAcl;
  // A tail or a projection that was not up to date.
  if (changes == 0 && !(before == after)) changes = Plan::kAcl;
  return changes;
}

// Taking old entries away can take the group's right to execute from the mode for a while, and the
// kernel's chown keeps a set-group-id bit then. An object that could be run as one group is never
// given to another group with that bit.
void endSetIdUnderNewOwners(const ObjectState& before, ObjectState& after) {
  const bool isSame = before.uid == after.uid && before.gid == after.gid;
  if (isSame || before.isFolder() || (before.mode & S_IXGRP) == 0) return;
  after.mode &= ~mode_t{S_ISGID};
}

}  // namespace

Planner::Planner(FilePrivileges& privileges, const std::string& attribute, const PrivsToSet& privs)
    : attribute_(attribute),
      privs_(privs),
      attributes_(attribute),
      acls_(privileges.fileAclsOver(attributes_)) {}

const Plan& Planner::plan(const ObjectState& state, const Levels::Pointer& levels,
                          const Request& request) {
  forgetOld();
  makeKey(state, levels, request);
  const auto found = kept_.find(key_);
  if (found != kept_.end()) return found->second.plan;
  Plan plan = make(state, levels, request);
  keptBytes_ += kBytesOfPlan + kValuesOfPlan * key_.size();
  return kept_.emplace(key_, Kept{levels, std::move(plan)}).first->second.plan;
}

void Planner::forgetOld() {
  if (keptBytes_ < kMostBytes && asked_++ % kPlansPerLook != 0) return;
  const auto now = std::chrono::steady_clock::now();
  if (keptBytes_ < kMostBytes && now < end_) return;
  kept_.clear();
  keptBytes_ = 0;
  end_ = now + kLifetime;
}

void Planner::makeKey(const ObjectState& state, const Levels::Pointer& levels,
                      const Request& request) {
  key_.clear();
  append(key_, reinterpret_cast<std::uintptr_t>(levels.get()));
  append(key_, request.what);
  append(key_, request.refreshes);
  append(key_, state.mode);
  append(key_, state.uid);
  append(key_, state.gid);
  append(key_, state.list);
  append(key_, state.access);
  append(key_, state.passedOn);
}

Levels::Pointer Planner::emptyBelow(const Levels::Pointer& levels) {
  if (below_ == nullptr || above_ != levels) {
    above_ = levels;
    below_ = Levels::withEmptyBelow(levels);
  }
  return below_;
}

Plan Planner::make(const ObjectState& state, const Levels::Pointer& levels,
                   const Request& request) {
  attributes_.state() = state;
  BufferedObject object(attributes_, acls_, request.refreshes);
  PrivsToSet privs = privs_;
  privs.what = request.what;
  // A file alone counts its folder as the first level by itself.
  const bool countsItself = levels == nullptr || S_ISREG(state.mode);
  const Levels::Pointer own = countsItself ? levels : emptyBelow(levels);
  if (own) privs.composite = own->composite();
  SetInheritedPrivs(object, "", privs, kindOf(state));
  Plan plan;
  if (levels != nullptr && state.isFolder()) {
    InheritableACL* entries = nullptr;
    // An unreadable list has no inheritable entries.
    (void)GetInheritableACL(object, entries, false);
    plan.inside = entries == nullptr ? own : std::make_shared<const Levels>(entries, levels);
  }
  endSetIdUnderNewOwners(state, attributes_.state());
  plan.error = object.error();
  plan.hasInvalidList = (request.what & kSetInheritedEntries) != 0 && object.sawInvalidList();
  const ObjectState& after = attributes_.state();
  plan.changes = differences(state, after);
  plan.steps = changeSteps(state, after, attribute_);
  plan.after = after;
  return plan;
}

}  // namespace paddock::copyprivs
