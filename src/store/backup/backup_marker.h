// The file that tells backup clients that a folder can be backed up to. It is made by others and
// removed here.
#pragma once

#include <string>

#include "base/status.h"

namespace paddock {

// Removes ".com.veltro.backstow.supported" directly inside the folder, whatever it is but a folder:
// a link is removed, and what it leads to stays. 0, also when nothing has that name, when there is
// no such folder, and for a path that is empty, relative or holds a NUL; -1 when it cannot be
// removed or looked for, with a line in the log.
Status delete_backup_marker_for_path(const std::string& path);

}  // namespace paddock
