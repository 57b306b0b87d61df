#include "paddock_denials/group_denials.h"

#include <algorithm>
#include <array>
#include <utility>

namespace paddock {

namespace {

using posix_acl::Bits;

constexpr acl::Flag kInside = acl::kFileInherit | acl::kDirectoryInherit;

// Each of the kernel's bits, and the permission of a list that decides about it.
constexpr std::array kDecisive = {std::pair{posix_acl::kRead, acl::kReadData},
                                  std::pair{posix_acl::kWrite, acl::kWriteData},
                                  std::pair{posix_acl::kExecute, acl::kExecute}};

enum class Place { here, inside };

bool appliesAt(const ListedEntry& entry, Place place) {
  return place == Place::here ? (entry.flags & acl::kOnlyInherit) == 0
                              : (entry.flags & kInside) != 0;
}

bool isIn(const Person& person, std::uint32_t gid) {
  return std::find(person.gids.begin(), person.gids.end(), gid) != person.gids.end();
}

bool isAbout(const ListedEntry& entry, const Person& person) {
  if (entry.isEveryone) return true;
  if (!entry.who) return false;
  return entry.who->type == PrincipalType::user ? entry.who->id == person.uid
                                                : isIn(person, entry.who->id);
}

// The bits that the entry at `at` denies the person, and no entry before it has decided.
Bits bitsDenied(const std::vector<ListedEntry>& entries, std::size_t at, const Person& person,
                Place place) {
  if (!appliesAt(entries[at], place)) return 0;
  acl::Permission denied = entries[at].rights;
  for (std::size_t before = 0; before < at; ++before) {
    const ListedEntry& entry = entries[before];
    if (appliesAt(entry, place) && isAbout(entry, person)) denied &= ~entry.rights;
  }
  unsigned bits = 0;
  for (const auto& [bit, permission] : kDecisive) {
    if ((denied & permission) != 0) bits |= bit;
  }
  return static_cast<Bits>(bits);
}

bool isLetIn(const std::vector<ListedEntry>& entries, std::size_t at, const KernelSide& kernel,
             const Person& person) {
  const Bits here = bitsDenied(entries, at, person, Place::here);
  if ((here & bitsOfKernel(kernel.access, kernel.group, person)) != 0) return true;
  if (!kernel.inherited) return false;
  const Bits inside = bitsDenied(entries, at, person, Place::inside);
  return (inside & bitsOfKernel(*kernel.inherited, kernel.group, person)) != 0;
}

bool isLetInAsOwner(const std::vector<ListedEntry>& entries, std::size_t at,
                    const KernelSide& kernel, const Person& person) {
  return (bitsDenied(entries, at, person, Place::here) & kernel.access.classes.owner) != 0;
}

}  // namespace

Bits bitsOfKernel(const posix_acl::Acl& acl, std::uint32_t owningGroup, const Person& person) {
  const Bits mask = acl.mask.value_or(posix_acl::kAllBits);
  for (const posix_acl::Named& named : acl.users) {
    if (named.id == person.uid) return static_cast<Bits>(named.bits & mask);
  }
  bool isMember = isIn(person, owningGroup);
  unsigned bits = isMember ? acl.classes.group : 0U;
  for (const posix_acl::Named& named : acl.groups) {
    if (!isIn(person, named.id)) continue;
    isMember = true;
    bits |= named.bits;
  }
  return isMember ? static_cast<Bits>(bits & mask) : acl.classes.others;
}

std::vector<GroupDenial> passedDenials(const std::vector<ListedEntry>& entries,
                                       const KernelSide& kernel, const MembersOf& membersOf) {
  std::vector<GroupDenial> denials;
  for (std::size_t at = 0; at < entries.size(); ++at) {
    const auto& who = entries[at].who;
    if (entries[at].allow || !who || who->type != PrincipalType::group) continue;
    GroupDenial denial{at, who->id, {}, std::nullopt};
    for (const Person& person : membersOf(who->id)) {
      if (person.uid == kernel.owner) {
        if (isLetInAsOwner(entries, at, kernel, person)) denial.owner = person;
      } else if (isLetIn(entries, at, kernel, person)) {
        denial.letIn.push_back(person);
      }
    }
    if (!denial.letIn.empty() || denial.owner) denials.push_back(std::move(denial));
  }
  return denials;
}

}  // namespace paddock
