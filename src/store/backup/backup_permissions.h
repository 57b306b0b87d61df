// What a folder needs to be a backup destination.
#pragma once

#include <string>

#include "base/status.h"

namespace paddock {

// Lets the backup group (backup_group.h, made when there is none) into the folder: an entry in
// front of its extended ACL, unless it has one of the group's name with the same permissions. An
// entry of the group with others does not count.
//
// 0, also when the entry could not be written; the status of reading the ACL; a status of
// `require_backup_group`; -1 when the host and the local node do not know the group by its name, or
// its entry has no room in 200 bytes. Throws what the directory throws.
Status set_backup_permissions_for_path(const std::string& path);

}  // namespace paddock
