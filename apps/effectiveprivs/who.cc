#include "effectiveprivs/who.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "base/computed_guid.h"
#include "effectiveprivs/explanation.h"
#include "effectiveprivs/identity.h"

namespace paddock::effectiveprivs {

namespace {

constexpr std::array<acl::Permission, kRights> kPermissionsOf = {
    acl::kReadData, acl::kWriteData | acl::kAppendData, acl::kWriteSecurity};

// By which ways a user is in groups that the object's list or mode means.
struct Ways {
  // The index of what a group holds, and a step of it.
  std::vector<std::pair<std::size_t, std::size_t>> groups;
  bool isHostMember = false;  // of the owning group
  // Of somebody who is meant himself, so that nobody else is like him.
  std::optional<std::uint32_t> own;
  friend auto operator<=>(const Ways&, const Ways&) = default;
};

class Finder {
 public:
  Finder(const ObjectPrivileges& object, AccountListing& listing, Accounts& accounts)
      : object_(object), listing_(listing), accounts_(accounts) {}

  Who run(std::size_t mostPeople) {
    findPeople();
    Who who;
    who.everybodyElse = rightsOf(Identity(kNobody, {true, {}, {}, {}}, {}));
    who.withoutAccount = rightsOf(Identity(kNobody, {}, {}));
    const bool elseMay = mayAnything(who.everybodyElse);
    for (const bool isOwn : {true, false}) addPeople(who, isOwn, elseMay, mostPeople);
    std::sort(who.people.begin(), who.people.end(), isBefore);
    return who;
  }

 private:
  // No user has it.
  static constexpr std::uint32_t kNobody = 0xFFFFFFFF;

  static bool isBefore(const Person& one, const Person& other) {
    return std::tie(one.name, one.uid) < std::tie(other.name, other.uid);
  }

  static bool mayAnything(const Rights& rights) {
    return std::any_of(rights.begin(), rights.end(),
                       [](const Right& right) { return right.granted; });
  }

  void findPeople() {
    if (const auto root = listing_.userWithUid(0)) people_[*root].own = 0;
    if (const auto owner = listing_.userWithUid(object_.uid)) people_[*owner].own = object_.uid;
    findSubjects();
    if (object_.list && object_.list->complete) return;
    findGroup(listing_.groupWithGid(object_.gid));
    for (const std::size_t user : listing_.hostMembers(object_.gid))
      people_[user].isHostMember = true;
  }

  void findSubjects() {
    if (!object_.list) return;
    for (const Rule& rule : object_.list->rules) {
      if (rule.onlyInherit) continue;
      if (rule.subject.kind == Subject::Kind::user) {
        findUser(listing_.userWithUid(rule.subject.id));
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
      auto& rights = rights_[ways];
      const ListedUser& listed = listing_.users()[user];
      if (!rights) rights = std::make_shared<const Rights>(rightsOf(identityOf(listed, ways)));
      if (mayAnything(*rights) || elseMay) people.push_back({listed.name, listed.uid, rights});
    }
    std::sort(people.begin(), people.end(), isBefore);
    const std::size_t room = mostPeople - std::min(mostPeople, who.people.size());
    const std::size_t taken = std::min(room, people.size());
    who.left += people.size() - taken;
    std::move(people.begin(), people.begin() + static_cast<std::ptrdiff_t>(taken),
              std::back_inserter(who.people));
  }

  Identity identityOf(const ListedUser& user, const Ways& ways) const {
    UserMembership membership;
    membership.isKnown = true;
    membership.guids = user.guids;
    for (const auto& [held, step] : ways.groups) addGroups(held_[held], step, membership);
    std::vector<std::uint32_t> hostGids;
    if (ways.isHostMember) hostGids.push_back(object_.gid);
    return {user.uid, std::move(membership), std::move(hostGids)};
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
    const ExplainedPermission* found = nullptr;
    for (const ExplainedPermission& one : all) {
      if ((one.permission & wanted) == 0) continue;
      if (found == nullptr || (one.granted && !found->granted)) found = &one;
    }
    return {found->granted, found->by, found->entry, found->principal, found->through, found->text};
  }

  const ObjectPrivileges& object_;
  AccountListing& listing_;
  Accounts& accounts_;
  std::map<std::size_t, Ways> people_;
  std::set<std::size_t> known_;
  std::vector<HeldUsers> held_;
  std::map<Ways, std::shared_ptr<const Rights>> rights_;
};

}  // namespace

Who whoMay(const ObjectPrivileges& object, AccountListing& listing, Accounts& accounts,
           std::size_t mostPeople) {
  return Finder(object, listing, accounts).run(mostPeople);
}

}  // namespace paddock::effectiveprivs
