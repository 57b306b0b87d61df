// A share point's line in the exports file.
#pragma once

#include <string>

#include "base/status.h"
#include "store/share_point_record.h"

namespace paddock {

// Of a share point that has an export: removes it when it is marked deleted; otherwise merges it
// into the export of its path, or adds it, and writes the file at once. An export that cannot be
// one line of the exports file is not added: 100076, with a line in the log that says why.
// Otherwise 0, whatever the write gave.
Status write_export(const SharePointRecord& sharePoint);

// Share points that publish a folder mounted from another NFS server.
class DirectoryRecord;

// Deliberate: a plain prefix test, without a separator: "/nfs_reshares2/x" is one too.
bool is_nfs_reshare(const std::string& path);

// Asks the file browser for a mount record of the re-share, unless the local node has one, and
// notes the mount's source in "dsAttrTypeNative:nfs_reshare_automount_recname". Nothing happens
// when the folder cannot be asked or its source is no HOST:PATH. Throws what storing the attribute
// throws.
void write_nfs_reshare(const std::string& path, DirectoryRecord& record);

}  // namespace paddock
