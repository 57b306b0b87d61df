// The bits of an entry's dictionary, one at a time into the entry's sets.
#pragma once

#include <cstdint>

#include "platform/acl.h"

namespace paddock {

// Adds the permission to the set when `bitmap` has its bit. 0, or what the failed call returned,
// which is logged.
int add_perm_if_set(std::uint32_t bitmap, acl::Permset* permset, acl::Permission permission);

// The same for a flag.
int add_flag_if_set(std::uint32_t flags, acl::Flagset* flagset, acl::Flag flag);

}  // namespace paddock
