// The advertisement of the backup destinations on the local network.
#pragma once

#include <vector>

#include "base/status.h"
#include "platform/net_service.h"
#include "store/share_point_record.h"

namespace paddock {

// Share points that network clients can back up to.

// The share points that are marked as backup destinations and shared over VSP, in the order of the
// directory's answer, with their names over VSP, their backup identifiers and these two flags only.
// 0; 100075 with `sharePoints` untouched when the local node cannot be opened or searched. Never
// throws. Thread-safe.
Status get_backup_share_points(std::vector<SharePointRecord>& sharePoints);

// Advertises the backup share points as one DNS-SD service of type "_adisk._tcp", which the handler
// keeps: in place of the one that it has, which is stopped, or of none. When there is no
// destination (one that cannot be searched for counts as none), nothing is advertised any more.
// While the VSP service does not run, the advertisement stays as it is.
//
// The TXT record has "sys" and for each destination "dk" and its number, counted from 0, in the
// order of the numbers. A destination whose entry would be longer than 255 bytes is left out with a
// line in the log; the others keep their numbers. From the first one on that makes the record
// longer than 8,900 bytes, they are left out with one line that names them. A name or identifier
// that is not set is empty in its entry.
//
// Always 0. Blocks only on the VSP service's answer; propagates exceptions of creating the service.
// Thread-safe; renewals are serialised: the last one determines what is advertised.
Status register_share_points_with_hailcast(NetServiceOwner& handler);

}  // namespace paddock
