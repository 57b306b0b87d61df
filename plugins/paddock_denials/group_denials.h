// Denials of groups that the kernel cannot represent: the users whom it permits access although an
// entry denies a group of theirs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/acl/list_rules.h"
#include "platform/linux/acl/posix_acl.h"

namespace paddock {

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
  std::vector<std::uint32_t> gids;  // ascending
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
std::vector<GroupDenial> passedDenials(const std::vector<acl::Rule>& entries,
                                       const KernelSide& kernel, const MembersOf& membersOf);

}  // namespace paddock
