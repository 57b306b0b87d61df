// What the kernel's own POSIX ACL cannot say of an extended ACL.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/principal.h"
#include "keelhouse/access/ace.h"

namespace paddock::keelhouse {

struct ProjectedEntry {
  Ace ace;
  std::optional<Principal> who;  // absent: no uid and no gid of this system
};

// For each entry what the kernel cannot say of it, a text each; empty where the kernel says the
// same. `owner` is the object's owner. The kernel has a read, a write and an execute bit for each
// user and group; it takes the largest of what a user's groups get; its default ACL holds for files
// and folders alike and goes on to every level.
std::vector<std::vector<std::string>> beyondKernel(const std::vector<ProjectedEntry>& entries,
                                                   bool folder,
                                                   const std::optional<std::uint32_t>& owner);

}  // namespace paddock::keelhouse
