// Paths walked component by component. Each component is held by a descriptor before the next one
// is resolved, and a symlink is checked and read through its own descriptor: a component replaced
// concurrently is never mistaken for the one that was checked.
#pragma once

#include <string>

#include "base/file_access.h"
#include "platform/path_use.h"

namespace paddock {

// Holds what is at `path` with O_PATH, so that a FIFO never blocks and a device is not touched.
// Links are followed, those that platform/path_use.h lets count. ".." leads where the kernel goes,
// and a relative path begins at the working folder.
//
// 0 or an errno: ENOENT also for an empty path and for one with a NUL, since nothing can be there;
// ENOTDIR; EACCES for a link that does not count, which `refused` is then (without the owner's
// name), and for a folder that may not be searched; ELOOP after 40 links, as the kernel has it;
// ENAMETOOLONG for 4096 bytes and more. `refused` may be null, and is empty otherwise.
int holdObject(const std::string& path, PathUse use, FileDescriptor& object,
               std::optional<RefusedLink>* refused = nullptr);

}  // namespace paddock
