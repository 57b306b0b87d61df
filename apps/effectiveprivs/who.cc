#include "effectiveprivs/who.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "base/guid.h"
#include "effectiveprivs/explanation.h"
#include "effectiveprivs/identity.h"

namespace paddock::effectiveprivs {

namespace {

constexpr std::array<acl::Permission, kRights> kPermissionsOf = {
    acl::kReadData, acl::kWriteData | acl::kAppendData, acl::kWriteSecurity};

// What the list gives, and what of that an SMB server sees.
struct Judged {
  std::shared_ptr<const Rights> rights;
  ListRights overSmb;
};

// By which ways a user is in groups that the object's list or mode means.
struct Ways {
  // The index of what a group holds, and a step of it.
  std::vector<std::pair<std::size_t, std::size_t>> groups;
  std::vector<std::uint32_t> hostGids;  // of the groups that make a difference
  std::vector<std::size_t> rules;       // of the list, that are for accounts of Samba's
  // Of a user named individually, who therefore has no equivalents.
  std::optional<std::uint32_t> own;
  friend auto operator<=>(const Ways&, const Ways&) = default;
};

class Finder {
 public:
  Finder(const ObjectPrivileges& object, const DoorQuestions& doors, AccountListing& listing,
         Accounts& accounts)
      : object_(object), doors_(doors), listing_(listing), accounts_(accounts) {}

  Who run(std::size_t mostPeople) {
    findPeople();
    Who who;
    who.everybodyElse = somebody(true);
    who.withoutAccount = somebody(false);
    const bool elseMay = mayAnything(who.everybodyElse);
    for (const bool isOwn : {true, false}) addPeople(who, isOwn, elseMay, mostPeople);
    std::sort(who.people.begin(), who.people.end(), isBefore);
    return who;
  }

 private:
  static bool isBefore(const Person& one, const Person& other) {
    return std::tie(one.name, one.uid) < std::tie(other.name, other.uid);
  }

  static bool mayAnything(const Person& person) {
    const auto isOpen = [](const Door& door) {
      return door.rights.read.access == Access::yes || door.rights.write.access == Access::yes;
    };
    const auto& doors = person.answer.doors;
    return std::any_of(person.rights->begin(), person.rights->end(),
                       [](const Right& right) { return right.granted || right.isDoubted; }) ||
           std::any_of(doors.begin(), doors.end(), isOpen);
  }

  Person somebody(bool hasAccount) const {
    const Judged found = judged({Identity::kNoUid, {hasAccount, {}, {}, {}}, {}});
    return {hasAccount ? "everybody else" : "a uid without an account", Identity::kNoUid,
            found.rights,
            doors_.answerFor({{Identity::kNoUid, {}}, {}, hasAccount}, found.overSmb)};
  }

  // As listRights() has them.
  static ListRights listRightsOf(const Rights& rights) {
    const auto made = [](const Right& right) -> DoorRight {
      if (right.granted) return {};
      return {right.isDoubted ? Access::unknown : Access::no, right.text};
    };
    return {made(rights[0]), made(rights[1])};
  }

  void findPeople() {
    findUid(0);
    findUid(object_.uid);
    for (const std::uint32_t uid : doors_.uids) findUid(uid);
    findSubjects();
    if (!object_.list || !object_.list->complete) findGroup(listing_.groupWithGid(object_.gid));
    std::set<std::uint32_t> gids{object_.gid};
    if (object_.staleTail) {
      findUid(object_.staleTail->uid);
      findGroup(listing_.groupWithGid(object_.staleTail->gid));
      gids.insert(object_.staleTail->gid);
    }
    for (const std::uint32_t gid : doors_.gids) gids.insert(gid);
    for (const std::uint32_t gid : gids)
      for (const std::size_t user : listing_.hostMembers(gid))
        people_[user].hostGids.push_back(gid);
  }

  // A uid without an account counts as a user, too.
  void findUid(std::uint32_t uid) {
    if (uid == Identity::kNoUid) return;
    if (const auto user = listing_.userWithUid(uid))
      people_[*user].own = uid;
    else
      strangers_.insert(uid);
  }

  void findSubjects() {
    if (!object_.list) return;
    for (std::size_t at = 0; at < object_.list->rules.size(); ++at) {
      const Rule& rule = object_.list->rules[at];
      if (rule.onlyInherit) continue;
      if (rule.subject.kind == Subject::Kind::user) {
        findUid(rule.subject.id);
      } else if (rule.subject.kind == Subject::Kind::accounts) {
        for (const std::uint32_t uid : *rule.subject.uids)
          if (const auto user = listing_.userWithUid(uid)) people_[*user].rules.push_back(at);
      } else if (rule.subject.kind == Subject::Kind::group) {
        findGroup(listing_.groupWithGid(rule.subject.id));
      } else if (rule.subject.kind == Subject::Kind::guid) {
        findUser(listing_.userWithGuid(rule.subject.guid));
        if (const auto group = listing_.groupWithGuid(rule.subject.guid)) findGroup(*group);
      }
    }
  }

  void findUser(const std::optional<std::size_t>& user) {
    if (user) people_[*user].own = listing_.users()[*user].uid;
  }

  void findGroup(std::size_t group) {
    if (!known_.insert(group).second) return;
    const std::size_t at = held_.size();
    held_.push_back(listing_.heldBy(group));
    for (const HeldUsers::Held& one : held_[at].users)
      people_[one.user].groups.emplace_back(at, one.step);
  }

  // Those who are meant themselves (`isOwn`) or not, by name, as far as there is room.
  void addPeople(Who& who, bool isOwn, bool elseMay, std::size_t mostPeople) {
    std::vector<Person> people;
    for (const auto& [user, ways] : people_) {
      if (ways.own.has_value() != isOwn) continue;
      Judged& found = judged_[ways];
      const ListedUser& listed = listing_.users()[user];
      if (!found.rights) found = judged(identityOf(listed, ways));
      people.push_back(personOf(listed.uid, listed.name, found, ways.hostGids));
    }
    for (const std::uint32_t uid : strangers_) {
      if (!isOwn) break;
      const Identity user(uid, {false, {computedGuid({PrincipalType::user, uid})}, {}, {}}, {});
      people.push_back(personOf(uid, {}, judged(user), {}));
    }
    std::erase_if(people, [&](const Person& person) { return !mayAnything(person) && !elseMay; });
    std::sort(people.begin(), people.end(), isBefore);
    const std::size_t room = mostPeople - std::min(mostPeople, who.people.size());
    const std::size_t taken = std::min(room, people.size());
    who.left += people.size() - taken;
    std::move(people.begin(), people.begin() + static_cast<std::ptrdiff_t>(taken),
              std::back_inserter(who.people));
  }

  Person personOf(std::uint32_t uid, const std::string& name, const Judged& found,
                  const std::vector<std::uint32_t>& gids) const {
    const std::string shown = name.empty() ? std::to_string(uid) : name;
    return {shown, uid, found.rights, doors_.answerFor({{uid, gids}, name}, found.overSmb)};
  }

  Identity identityOf(const ListedUser& user, const Ways& ways) const {
    UserMembership membership;
    membership.isKnown = true;
    membership.guids = user.guids;
    for (const auto& [held, step] : ways.groups) addGroups(held_[held], step, membership);
    return {user.uid, std::move(membership), ways.hostGids};
  }

  // From the group that holds the user by itself to the one that was asked about.
  void addGroups(const HeldUsers& held, std::size_t first, UserMembership& membership) const {
    std::optional<std::size_t> through;
    for (std::optional<std::size_t> step = first; step; step = held.steps[*step].outer) {
      const ListedGroup& group = listing_.group(held.steps[*step].group);
      const HeldBy by = through ? HeldBy::nestedGroup : HeldBy::member;
      membership.groups.push_back({group.gid, group.guids, group.name, by, {}, through});
      through = membership.groups.size() - 1;
    }
  }

  Judged judged(const Identity& user) const {
    Judged found{std::make_shared<const Rights>(rightsOf(user)), {}};
    found.overSmb =
        object_.staleTail ? staleListRights(accounts_, object_, user) : listRightsOf(*found.rights);
    return found;
  }

  Rights rightsOf(const Identity& user) const {
    Answer answer{object_, judge(
                               object_, [] { return nullptr; }, user)};
    const Explanation explanation = explain(accounts_, {}, user, answer, std::nullopt);
    Rights rights;
    for (std::size_t at = 0; at < kRights; ++at)
      rights[at] = rightFrom(explanation.permissions, kPermissionsOf[at]);
    return rights;
  }

  // What grants one of the permissions, or else keeps the user from the first of them.
  static Right rightFrom(const std::vector<ExplainedPermission>& all, acl::Permission wanted) {
    const ExplainedPermission* found = permissionFor(all, wanted);
    return {found->granted,   found->isDoubted, found->by,  found->entry,
            found->principal, found->through,   found->text};
  }

  const ObjectPrivileges& object_;
  const DoorQuestions& doors_;
  AccountListing& listing_;
  Accounts& accounts_;
  std::map<std::size_t, Ways> people_;
  std::set<std::uint32_t> strangers_;  // uids that matter, and no account has
  std::set<std::size_t> known_;
  std::vector<HeldUsers> held_;
  std::map<Ways, Judged> judged_;
};

}  // namespace

Who whoMay(const ObjectPrivileges& object, const DoorQuestions& doors, AccountListing& listing,
           Accounts& accounts, std::size_t mostPeople) {
  return Finder(object, doors, listing, accounts).run(mostPeople);
}

bool Who::isDoubted() const {
  const auto hasDoubt = [](const Person& person) {
    return std::any_of(person.rights->begin(), person.rights->end(),
                       [](const Right& right) { return right.isDoubted; });
  };
  return hasDoubt(everybodyElse) || hasDoubt(withoutAccount) ||
         std::any_of(people.begin(), people.end(), hasDoubt);
}

}  // namespace paddock::effectiveprivs
