// Denials of groups that the kernel cannot represent: the users whom it permits access although an
// entry denies a group of theirs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/principal.h"
#include "platform/acl.h"
#include "platform/linux/acl/posix_acl.h"

namespace paddock {

// An entry of a list, in its order. One that is neither `who`'s nor everyone's decides nothing
// here.
struct ListedEntry {
  bool allow = false;
  std::optional<Principal> who;
  bool isEveryone = false;
  acl::Permission rights = 0;
  acl::Flag flags = 0;
};

// The permissions that the kernel enforces.
struct KernelSide {
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  posix_acl::Acl access;
  // Of objects created inside; absent where the kernel has none to inherit.
  std::optional<posix_acl::Acl> inherited;
};

struct Person {
  std::uint32_t uid = 0;
  std::string name;
  std::vector<std::uint32_t> gids;
};

struct GroupDenial {
  std::size_t entry = 0;  // its place in the list, from 0
  std::uint32_t gid = 0;
  std::vector<Person> letIn;
  // The owner of the object gets access by its mode, whatever an entry says.
  std::optional<Person> owner;
};

// Without root, whom the kernel never denies access.
using MembersOf = std::function<std::vector<Person>(std::uint32_t gid)>;

// The denials of groups that some users bypass, each with the users whom the kernel permits to
// read, write or execute what this entry denies them: the first entry that decides it is theirs.
// Inherited entries of the folder are judged likewise, by what the kernel lets objects inherit.
std::vector<GroupDenial> passedDenials(const std::vector<ListedEntry>& entries,
                                       const KernelSide& kernel, const MembersOf& membersOf);

// What the kernel gives to a person who is not the owner; see acl(5), "ACCESS CHECK ALGORITHM". Of
// several groups everything that any of them gives.
posix_acl::Bits bitsOfKernel(const posix_acl::Acl& acl, std::uint32_t owningGroup,
                             const Person& person);

}  // namespace paddock
