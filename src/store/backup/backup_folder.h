// What makes a folder a backup destination: its marker file, the group of those who may use it,
// and that group's entry in its list.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_set>

#include "base/status.h"

namespace paddock {

// Removes the marker, by which backup clients recognise a backup folder, and which others create:
// ".com.veltro.backstow.supported" directly inside the folder, whatever it is but a folder. A link
// is removed, and what it leads to stays. 0, also when nothing has that name, when there is no such
// folder, and for a path that is empty, relative or holds a NUL; -1, logged, when it cannot be
// removed or checked.
Status delete_backup_marker_for_path(const std::string& path);

// The group whose members may use the backup destinations over the network.
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

// Lets the backup group (made when there is none) into the folder: an entry in front of its
// extended ACL, unless it has one of the group's name with the same permissions. An entry of the
// group with others does not count.
//
// 0, also when the entry could not be written; the status of reading the ACL; a status of
// `require_backup_group`; -1 when the host and the local node do not know the group by its name, or
// its entry has no room in 200 bytes. Throws what the directory throws.
Status set_backup_permissions_for_path(const std::string& path);

}  // namespace paddock
