// Validates a share point before it is written.
#pragma once

#include <vector>

#include "base/value.h"
#include "paddock_services/share_point_names.h"
#include "paddock_services/smb_service.h"

namespace paddock {

// Of a request, whose keys may be absent:
//   "path"           whose share point it is to be
//   "nameOverSMB"    the name that it is to have
//   "mayBeNumbered"  true when a name that another share point has is no fault, because it is
//                    replaced by a free one
//   "clients"        of the NFS export: [{"host", "options"}]
// The faults: {"key": "nameOverSMB" or "clients", "reason", "advice"}. A name is refused that Samba
// reserves, that a hand-written section has, or another share point; a client whose option exportfs
// does not know, or whose host does not resolve. What cannot be asked refuses nothing.
Array refusalsOf(const Dictionary& request, const std::vector<SharePointNames>& all,
                 SmbService& smb);

}  // namespace paddock
