// Share points that publish a folder mounted from another NFS server.
#pragma once

#include <string>

namespace paddock {

class DirectoryRecord;

// Deliberate: a plain prefix test, without a separator: "/nfs_reshares2/x" is one too.
bool is_nfs_reshare(const std::string& path);

// Asks the file browser for a mount record of the re-share, unless the local node has one, and
// notes the mount's source in "dsAttrTypeNative:nfs_reshare_automount_recname". Nothing happens
// when the folder cannot be asked or its source is no HOST:PATH. Throws what storing the attribute
// throws.
void write_nfs_reshare(const std::string& path, DirectoryRecord& record);

}  // namespace paddock
