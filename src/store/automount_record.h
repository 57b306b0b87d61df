// The record in a directory node that has clients mount a share point.
//
// It is of type "dsRecTypeStandard:Mounts" and named HOST:PATH after this server and the share
// point's folder, so a server that was renamed does not find what it made under its old name.
#pragma once

#include <string>

#include "base/status.h"

namespace paddock {

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

}  // namespace paddock
