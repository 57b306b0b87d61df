// Opening what a folder of the tree holds.
#pragma once

#include "base/file_descriptor.h"
#include "copyprivs/folder.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::copyprivs {

// Holds what has the name, a link itself, with O_PATH: nothing is opened, no automount set off. 0
// or an errno.
int hold(int folder, const char* name, FileDescriptor& object, ObjectStatus& status);

// Opens a folder that is held for reading. 0 or an errno.
int openFolder(int held, FileDescriptor& folder);

// Whether an open folder is still below those that it was met below, up to the starting folder.
bool hasItsAncestors(int descriptor, const Folder& folder);

}  // namespace paddock::copyprivs
