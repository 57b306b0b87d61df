// Notification of the services that publish share points of their changes.
#pragma once

#include <string>
#include <vector>

#include "base/status.h"
#include "store/share_point_record.h"

namespace paddock {

// Notifies the VSP service, the NFS service and the SMB service, in this order and one at a time,
// on the calling thread. All three are notified whatever the results of the others: an exception,
// the first of several, is rethrown after the last notification.
//
// The result is the VSP service's plus the SMB service's, the NFS service has none:
//   - a program that did not run: the errno of starting it, or ETIMEDOUT when it took too long;
//   - one that wrote to standard error: -1;
//   - the VSP service's, from the program's "vsp:status = NUMBER": the number;
//   - otherwise 0.
// A number or a sum beyond 32 bits is the nearest that fits.
//
// `failures`, when not null, gets a text for each service that could not be notified or failed, the
// NFS service included: the program and why. Nothing is logged.
Status sync_share_point_services(std::vector<std::string>* failures = nullptr);

// The state of written share points, as reported by the services that publish them.

// Asks the plug-in paddock_services of each and logs a line for each: information when it is
// served, a warning when it is not or cannot be known. Call it with the settings lock free: the
// servers take their time. What goes wrong is logged; never throws.
void log_what_is_served(const std::vector<SharePointRecord>& sharePoints);

}  // namespace paddock
