// The user quotas of a volume: reading their state and usage, and switching them.
//
// The volume is named by its root folder, in which its quota files and operations markers are
// searched. Nothing is created or removed for a relative or empty path. Callers hold the settings
// lock.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// The dictionary of the volume's quotas: "isEnabled"; "usr" and "grp", each when its operations
// marker is there and it could be read (see read_quota_entries); or "quotaError" alone,
// "FILE_NOT_FOUND_ERR", for a path that does not exist, with status 0. Always set.
//
// 0, also for a volume that keeps no quotas; the errno of asking for their state; or the status of
// the listing that failed.
Status get_volume_quota_info(const std::string& volumePath, Dictionary& quotas);

// Switches the user quotas to `quotas`' "isEnabled"; without one nothing is done. Switching on
// makes the marker and the quota file, as far as they are missing, and starts the quota checker,
// which is not waited for; switching off removes the marker. 0, or CANNOT_SET_QUOTA_STATE_ERR when
// the state could not be changed; what was made stays then, and the checker is started all the
// same.
Status set_volume_quota_info(const std::string& volumePath, const Dictionary& quotas);

// Hides a file from the desktop's file browser. Failures are ignored.
void set_file_invisible(const std::string& path);

}  // namespace paddock
