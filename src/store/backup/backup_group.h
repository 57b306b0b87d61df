// The group whose members may use the backup destinations over the network.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "base/status.h"

namespace paddock {

inline constexpr const char* kBackupGroup = "com.veltro.access_backup";

// Makes sure that the local node has the group's record with a number, the first one from 250
// upward that no local group has. A record that has a number is left as it is. 0, the status of the
// lookups, -2 when the record cannot be created, -1 when the groups' numbers cannot be searched for
// and the error has no number. Throws what reading and setting the number throws.
Status require_backup_group();

// The first number from `first` upward whose decimal text is not among `taken`, `last` when there
// is none below it.
std::uint32_t first_free_group_number(const std::unordered_set<std::string>& taken,
                                      std::uint32_t first, std::uint32_t last);

}  // namespace paddock
