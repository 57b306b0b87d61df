#include "copyprivs/change_steps.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/privileges/file_mode.h"

namespace paddock::copyprivs {
namespace {

using Kind = ChangeStep::Kind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kList = "security.NTACL";

std::vector<Kind> kindsOf(const std::vector<ChangeStep>& steps) {
  std::vector<Kind> kinds;
  for (const ChangeStep& step : steps) kinds.push_back(step.kind);
  return kinds;
}

ObjectState fileOf(mode_t mode, std::uint32_t uid = 1, std::uint32_t gid = 2) {
  ObjectState state;
  state.mode = S_IFREG | mode;
  state.uid = uid;
  state.gid = gid;
  return state;
}

void setAccess(ObjectState& state, std::vector<posix_acl::Named> users,
               std::vector<posix_acl::Named> groups = {}) {
  posix_acl::Acl acl;
  acl.classes = posix_acl::classesOf(state.mode);
  acl.users = std::move(users);
  acl.groups = std::move(groups);
  acl.computeMask();
  if (!acl.mask) return;
  state.access = {0, posix_acl::encode(acl)};
  state.mode = (state.mode & ~mode_t{0070}) | static_cast<mode_t>(*acl.mask) << 3U;
}

// The state after a step, as the kernel has it.
void take(ObjectState& state, const ChangeStep& step) {
  if (step.kind == Kind::owner) {
    state.uid = step.uid;
    state.gid = step.gid;
    if (S_ISDIR(state.mode)) return;
    state.mode &= ~mode_t{S_ISUID};
    if ((state.mode & S_IXGRP) != 0) state.mode &= ~mode_t{S_ISGID};
  } else if (step.kind == Kind::mode) {
    state.mode = (state.mode & S_IFMT) | step.mode;
    auto acl = posix_acl::decode(state.access.value);
    if (!acl) return;
    acl->classes.owner = posix_acl::classesOf(step.mode).owner;
    acl->classes.others = posix_acl::classesOf(step.mode).others;
    acl->mask = posix_acl::classesOf(step.mode).group;
    state.access.value = posix_acl::encode(*acl);
  }
}

// One attribute of an attribute step.
void take(ObjectState& state, const XattrChange& change) {
  Attribute& attribute = change.name == kList                         ? state.list
                         : change.name == posix_acl::kAccessAttribute ? state.access
                                                                      : state.passedOn;
  attribute = change.after ? Attribute{0, *change.after} : Attribute{};
  if (&attribute != &state.access) return;
  const auto acl = posix_acl::decode(*change.after);
  posix_acl::Classes classes = acl->classes;
  if (acl->mask) classes.group = *acl->mask;
  state.mode = (state.mode & ~mode_t{0777}) | posix_acl::modeOf(classes);
  if (!acl->mask) state.access = {};
}

// Every state on the way, the last one included.
std::vector<ObjectState> statesOf(ObjectState state, const std::vector<ChangeStep>& steps) {
  std::vector<ObjectState> states;
  for (const ChangeStep& step : steps) {
    take(state, step);
    if (step.kind != Kind::attributes) states.push_back(state);
    for (const XattrChange& change : step.attributes) {
      take(state, change);
      states.push_back(state);
    }
  }
  return states;
}

struct Person {
  std::uint32_t uid;
  std::set<std::uint32_t> gids;
};

// What the kernel permits the person, see acl(5), "ACCESS CHECK ALGORITHM": each set of bits that
// may be requested together.
bool mayDo(const Person& person, const ObjectState& state, posix_acl::Bits wanted) {
  const auto allows = [wanted](unsigned bits) { return (wanted & ~bits) == 0; };
  const posix_acl::Classes classes = posix_acl::classesOf(state.mode);
  if (person.uid == state.uid) return allows(classes.owner);
  const bool isInGroup = person.gids.contains(state.gid);
  const auto acl = state.access.isThere() && classes.group != 0
                       ? posix_acl::decode(state.access.value)
                       : std::nullopt;
  if (!acl) return allows(isInGroup ? classes.group : classes.others);
  for (const posix_acl::Named& user : acl->users) {
    if (user.id == person.uid) return allows(static_cast<unsigned>(user.bits & *acl->mask));
  }
  bool isMeant = isInGroup;
  bool isAllowed = isInGroup && allows(static_cast<unsigned>(acl->classes.group & *acl->mask));
  for (const posix_acl::Named& group : acl->groups) {
    if (!person.gids.contains(group.id)) continue;
    isMeant = true;
    if (allows(static_cast<unsigned>(group.bits & *acl->mask))) isAllowed = true;
  }
  return isMeant ? isAllowed : allows(classes.others);
}

TEST(ChangeSteps, NothingIsDoneWhereNothingIsDifferent) {
  EXPECT_THAT(changeSteps(fileOf(0644), fileOf(0644), kList), IsEmpty());
}

TEST(ChangeSteps, AModeIsSetOnce) {
  const auto steps = changeSteps(fileOf(0600), fileOf(0640), kList);
  ASSERT_THAT(kindsOf(steps), ElementsAre(Kind::mode));
  EXPECT_EQ(steps.front().mode, 0640U);
}

TEST(ChangeSteps, OwnerAndGroupChangeAtOnce) {
  const auto steps = changeSteps(fileOf(0644), fileOf(0644, 5, 6), kList);
  ASSERT_THAT(kindsOf(steps), ElementsAre(Kind::owner));
  EXPECT_EQ(steps.front().uid, 5U);
  EXPECT_EQ(steps.front().gid, 6U);
}

TEST(ChangeSteps, AnAccessAclBringsItsModeAlong) {
  ObjectState after = fileOf(0664);
  setAccess(after, {{7, 6}});
  EXPECT_THAT(kindsOf(changeSteps(fileOf(0644), after, kList)), ElementsAre(Kind::attributes));
}

TEST(ChangeSteps, RemovedAccessAclAndModeShareOneStep) {
  ObjectState before = fileOf(0640);
  setAccess(before, {{7, 6}});
  const ObjectState after = fileOf(0600);
  const auto steps = changeSteps(before, after, kList);
  ASSERT_THAT(kindsOf(steps), ElementsAre(Kind::attributes));
  EXPECT_EQ(statesOf(before, steps).back(), after);
}

TEST(ChangeSteps, SetIdBitsClearBeforeFilePermissionsChange) {
  ObjectState after = fileOf(0755);
  setAccess(after, {{7, 5}});
  const auto steps = changeSteps(fileOf(04700), after, kList);
  ASSERT_THAT(kindsOf(steps), ElementsAre(Kind::mode, Kind::attributes));
  EXPECT_EQ(steps.front().mode, 0700U);
}

TEST(ChangeSteps, ListIsRemovedAfterKernelAcls) {
  ObjectState before = fileOf(0640);
  before.list = {0, "list"};
  before.passedOn = {0, "passed on"};
  setAccess(before, {{7, 6}});
  const auto steps = changeSteps(before, fileOf(0640), kList);
  ASSERT_THAT(kindsOf(steps), ElementsAre(Kind::attributes));
  EXPECT_EQ(steps.front().attributes.size(), 3U);
  EXPECT_EQ(steps.front().attributes.back().name, kList);
}

TEST(ChangeSteps, ARestrictionComesBeforeANewGroup) {
  EXPECT_THAT(kindsOf(changeSteps(fileOf(0660, 1, 2), fileOf(0600, 1, 3), kList)),
              ElementsAre(Kind::mode, Kind::owner));
}

TEST(ChangeSteps, NewGroupPrecedesItsNewPermissions) {
  EXPECT_THAT(kindsOf(changeSteps(fileOf(0600, 1, 2), fileOf(0660, 1, 3), kList)),
              ElementsAre(Kind::owner, Kind::mode));
}

TEST(ChangeSteps, ConflictingOrdersCloseObjectBetweenSteps) {
  const auto steps = changeSteps(fileOf(0640, 1, 2), fileOf(0620, 1, 3), kList);
  ASSERT_THAT(kindsOf(steps), ElementsAre(Kind::mode, Kind::owner, Kind::mode));
  EXPECT_EQ(steps.front().mode, 0600U);
}

// All possible callers: all uids and sets of groups of a small world.
std::vector<Person> people() {
  std::vector<Person> all;
  for (std::uint32_t uid = 10; uid < 14; ++uid) {
    for (unsigned groups = 0; groups < 16; ++groups) {
      Person person{uid, {}};
      for (std::uint32_t gid = 0; gid < 4; ++gid) {
        if ((groups >> gid & 1U) != 0) person.gids.insert(20 + gid);
      }
      all.push_back(std::move(person));
    }
  }
  return all;
}

class RandomStates {
 public:
  explicit RandomStates(unsigned seed) : random_(seed) {}

  ObjectState next(bool isFolder) {
    ObjectState state = fileOf(static_cast<mode_t>(random_() % 01000),
                               10 + static_cast<std::uint32_t>(random_() % 4), 20 + random_() % 4);
    if (isFolder) state.mode = (state.mode & ~mode_t{S_IFMT}) | S_IFDIR;
    if (random_() % 4 == 0) state.mode |= static_cast<mode_t>(random_() % 010) << 9U;
    if (random_() % 2 == 0) state.list = {0, std::to_string(random_() % 3)};
    if (random_() % 2 == 0) setAccess(state, named(10), named(20));
    return state;
  }

 private:
  std::vector<posix_acl::Named> named(std::uint32_t first) {
    std::vector<posix_acl::Named> all;
    for (std::uint32_t id = first; id < first + 4; ++id) {
      if (random_() % 3 == 0) all.push_back({id, static_cast<posix_acl::Bits>(random_() % 8)});
    }
    return all;
  }

  std::mt19937 random_;
};

// The owner of the object before or after can grant himself everything then.
bool isOwner(const Person& person, const ObjectState& before, const ObjectState& after) {
  return person.uid == before.uid || person.uid == after.uid;
}

TEST(ChangeSteps, IntermediateStatesGrantNoExtraRights) {
  const std::vector<Person> everybody = people();
  RandomStates states(1);
  int closed = 0;
  for (int round = 0; round < 20000; ++round) {
    const bool isFolder = round % 2 == 0;
    const ObjectState before = states.next(isFolder);
    ObjectState after = states.next(isFolder);
    // As in the steps: a change of owner clears them.
    if (!isFolder) after.mode &= ~mode_t{07000};
    const auto steps = changeSteps(before, after, kList);
    const auto way = statesOf(before, steps);
    if (steps.size() > 2) ++closed;
    if (!way.empty()) {
      ASSERT_EQ(way.back(), after) << "round " << round;
    }
    for (const ObjectState& state : way) {
      for (const Person& person : everybody) {
        if (isOwner(person, before, after)) continue;
        for (posix_acl::Bits wanted = 1; wanted < 8; ++wanted) {
          ASSERT_TRUE(!mayDo(person, state, wanted) || mayDo(person, before, wanted) ||
                      mayDo(person, after, wanted))
              << "round " << round << ", uid " << person.uid << ", bits " << int{wanted};
        }
      }
    }
  }
  EXPECT_GT(closed, 0);
}

}  // namespace
}  // namespace paddock::copyprivs
