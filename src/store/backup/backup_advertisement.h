// The advertisement of the backup destinations on the local network.
#pragma once

#include "base/status.h"
#include "platform/net_service.h"

namespace paddock {

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
// Always 0. Waits for the VSP service's answer and for nothing else; throws what making the service
// throws. Any thread may call, and one renewal follows the other: what is advertised in the end is
// what the last one found.
Status register_share_points_with_hailcast(NetServiceOwner& handler);

}  // namespace paddock
