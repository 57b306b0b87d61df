// Creation or change of one share point.
#pragma once

#include "base/status.h"
#include "base/value.h"
#include "store/share_point_record.h"

namespace paddock {

// Writes the share point: finds its directory record by its path, or creates it with free names;
// stores the merged settings; brings its NFS export, automount record and attributes, re-share
// mount, backup permissions and identifier, or marker, and search indexing in step. `credentials`
// are those of the request, an array of dictionaries with "nodePath", "adminUserName" and
// "adminPassword". Returns 0, the status of the lookup, or 100076. Throws what the directory throws
// outside naming, creating and storing.
//
// A record that this call created stays whatever becomes of the rest: without settings when its
// folder could not be asked for its volume, or when they could not be stored. (After the latter
// everything else is done for it.) An element that has no path at all is written with its name
// alone.
Status update_sharepoint(SharePointRecord& sharePoint, const Array& credentials);

}  // namespace paddock
