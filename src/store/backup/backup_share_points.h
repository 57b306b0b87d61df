// Share points that network clients can back up to.
#pragma once

#include <vector>

#include "base/status.h"
#include "store/share_point_record.h"

namespace paddock {

// The share points that are marked as backup destinations and shared over VSP, in the order of the
// directory's answer, with their names over VSP, their backup identifiers and these two flags only.
// 0; 100075 with `sharePoints` untouched when the local node cannot be opened or searched. Nothing
// is thrown. Any thread may call.
Status get_backup_share_points(std::vector<SharePointRecord>& sharePoints);

}  // namespace paddock
