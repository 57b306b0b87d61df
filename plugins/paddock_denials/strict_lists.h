// Lists that are kept strict: each member of a denied group to whom the kernel would grant access
// has a denial of his own before the group's.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "base/value.h"
#include "paddock_denials/group_denials.h"

namespace paddock {

// The users whose denials were written for a group's, by the group.
using WrittenDenials = std::map<std::uint32_t, std::set<std::uint32_t>>;

struct StrictList {
  Array acl;               // to be sent
  bool isChanged = false;  // whether it is another one than was read
  WrittenDenials written;
  std::size_t denials = 0;  // of groups, in the list
};

// `acl` and `entries` are the list as it was read. Before each denial of a group stands a denial
// with the same rights and inheritance for each member whom the kernel lets in, and for each member
// who has one that was written before. One that was written for a user who is no longer a member is
// removed. Everything else stays as it is, in its order. Throws DenialFailure for a list that
// cannot be written back, and for one that would have more than kMostEntries.
inline constexpr std::size_t kMostEntries = 250;
StrictList strictList(const Array& acl, const std::vector<acl::Rule>& entries,
                      const KernelSide& kernel, const MembersOf& membersOf,
                      const WrittenDenials& written);

// Conversion to the form in the plug-in's context, and back.
Dictionary rememberedForm(const WrittenDenials& written);
WrittenDenials writtenDenials(const Dictionary& remembered);

}  // namespace paddock
