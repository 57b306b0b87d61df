#include "paddock_denials/group_denials.h"

#include <span>
#include <utility>

#include "platform/linux/acl/kernel_access.h"

namespace paddock {

namespace {

using posix_acl::Bits;

constexpr acl::Flag kInside = acl::kFileInherit | acl::kDirectoryInherit;

enum class Place { here, inside };

bool appliesAt(const acl::Rule& entry, Place place) {
  return place == Place::here ? (entry.flags & acl::kOnlyInherit) == 0
                              : (entry.flags & kInside) != 0;
}

// The bits that the entry at `at`, of a group of the person's, denies, and none before it decides.
Bits bitsDenied(const std::vector<acl::Rule>& entries, std::size_t at, const Person& person,
                Place place) {
  acl::Permission denied = 0;
  const std::span upToIt(entries.data(), at + 1);
  acl::decideInOrder(acl::kDecisive, upToIt, [&](std::size_t index, acl::Permission permissions) {
    const acl::Rule& entry = entries[index];
    if (!appliesAt(entry, place)) return false;
    if (index == at) denied = permissions;
    return acl::isFor(entry.subject, person.uid, person.gids);
  });
  return acl::kernelBitsOf(denied);
}

Bits bitsOfKernel(const posix_acl::Acl& acl, const KernelSide& kernel, const Person& person) {
  return bitsByAcl(acl, kernel.group, person.uid, person.gids).bits;
}

bool isLetIn(const std::vector<acl::Rule>& entries, std::size_t at, const KernelSide& kernel,
             const Person& person) {
  const Bits here = bitsDenied(entries, at, person, Place::here);
  if ((here & bitsOfKernel(kernel.access, kernel, person)) != 0) return true;
  if (!kernel.inherited) return false;
  const Bits inside = bitsDenied(entries, at, person, Place::inside);
  return (inside & bitsOfKernel(*kernel.inherited, kernel, person)) != 0;
}

bool isLetInAsOwner(const std::vector<acl::Rule>& entries, std::size_t at, const KernelSide& kernel,
                    const Person& person) {
  return (bitsDenied(entries, at, person, Place::here) & kernel.access.classes.owner) != 0;
}

}  // namespace

std::vector<GroupDenial> passedDenials(const std::vector<acl::Rule>& entries,
                                       const KernelSide& kernel, const MembersOf& membersOf) {
  std::vector<GroupDenial> denials;
  for (std::size_t at = 0; at < entries.size(); ++at) {
    const acl::Subject& subject = entries[at].subject;
    if (entries[at].allow || !subject.isGroup()) continue;
    GroupDenial denial{at, subject.id, {}, std::nullopt};
    for (const Person& person : membersOf(subject.id)) {
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
