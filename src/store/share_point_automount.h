// The automount record of a share point, with the credentials that came with the request.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"
#include "store/share_point_record.h"

namespace paddock {

// The record in a directory node that has clients mount a share point.
//
// It is of type "dsRecTypeStandard:Mounts" and named HOST:PATH after this server and the share
// point's folder, so a server that was renamed does not find what it made under its old name.

// Creates or updates the record on the node at `nodePath`, as the administrator: clients mount
// `shareName` of this server at `mountPath`, over VSP when `fileSystemType` is "0" and over NFS
// otherwise. Always 0: an administrator that is refused, a node path that is empty, a host without
// a name and a record that cannot be had change nothing. Throws what the directory throws.
Status set_automount_record(const std::string& path, const std::string& nodePath,
                            const std::string& mountPath, const std::string& fileSystemType,
                            const std::string& adminName, const std::string& adminPassword,
                            const std::string& shareName);

// Removes it. 0 when it is gone, was not there, or the administrator is refused; the status of its
// removal; CANNOT_DELETE_AUTOMOUNT_ERR when anything throws or the host has no name. A `reason`
// that is not null gets why, as far as there is a text.
Status delete_automount_record(const std::string& path, const std::string& nodePath,
                               const std::string& adminName, const std::string& adminPassword,
                               std::string* reason = nullptr);

// Creates or updates it. Propagates directory exceptions, after a log line that names the share
// point and the node.
void write_automount(const SharePointRecord& sharePoint, const Array& credentials);

// Removes it where the share point says on which node it is; a failure is only logged.
void delete_automount(const SharePointRecord& sharePoint, const Array& credentials);

}  // namespace paddock
