// The records of what this server mounts from other servers and shares again.
#pragma once

#include <string>

#include "platform/directory.h"

namespace paddock {

// A mount of another server's export.
struct NfsMount {
  std::string host;        // the other server
  std::string exportPath;  // what it exports
  std::string mountPoint;  // where it is mounted here
};

// 0 when a record can be made of it, otherwise EINVAL. The host is a name or an address as
// mount(8) takes it before the colon: up to 255 bytes, without white space, control characters,
// colons and slashes, not beginning with a hyphen. Paths are absolute, up to 4,095 bytes, without
// control characters and without the components "." and "..". All is UTF-8.
Status checkNfsMount(const NfsMount& mount);

// Makes the record HOST:EXPORTPATH of the type "dsRecTypeStandard:Mounts" on the node, with the
// mount point as "dsAttrTypeStandard:VFSLinkDir" and "nfs" as "dsAttrTypeStandard:VFSType". A
// record of that name that is there already stays as it is. All or nothing; throws what the
// directory throws.
void writeMountRecord(DirectoryNode& node, const NfsMount& mount);

}  // namespace paddock
