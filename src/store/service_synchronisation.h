// Telling the services that publish the share points that these have changed.
#pragma once

#include <string>
#include <vector>

#include "base/status.h"

namespace paddock {

// Tells the VSP service, the NFS service and the SMB service, in this order and each to its end, on
// the calling thread. All three are told whatever the others gave: what one of them throws is
// thrown again when the last one has been told, and of several the first.
//
// The result is the VSP service's plus the SMB service's, the NFS service has none:
//   - a program that did not run: the errno of starting it, or ETIMEDOUT when it took too long;
//   - one that wrote to standard error: -1;
//   - the VSP service's, from the program's "vsp:status = NUMBER": the number;
//   - otherwise 0.
// A number or a sum beyond 32 bits is the nearest that fits.
//
// `failures`, when not null, gets a text for each service that could not be told or failed, the NFS
// service included: the program and why. Nothing is logged.
Status sync_share_point_services(std::vector<std::string>* failures = nullptr);

}  // namespace paddock
