// Creation or change of one share point.
#pragma once

#include <cstddef>
#include <string>

#include "base/status.h"
#include "base/value.h"
#include "store/share_point_record.h"

namespace paddock {

// Free names for new share points.
inline constexpr std::size_t kVspNameLimit = 31;
inline constexpr std::size_t kNoNameLimit = 2147483647;

// `baseName` when no share point of the local node has it in `attribute`, otherwise the first of
// "baseName-1", "baseName-2" ... that none has, its front cut so that name and suffix together have
// at most `maxLength` characters (a free base name is never cut). A failed lookup counts as taken.
// "baseName-999" is returned without a lookup. A node that cannot be opened gives `baseName`.
std::string unique_share_point_name(const std::string& baseName, const std::string& attribute,
                                    std::size_t maxLength);

// Writes the share point: finds its directory record by its path, or creates it with free names;
// stores the merged settings; brings its NFS export, automount record and attributes, re-share
// mount, backup permissions and identifier, or marker, and search indexing in step. `credentials`
// are those of the request, an array of dictionaries with "nodePath", "adminUserName" and
// "adminPassword". Returns 0, the status of the lookup, or 100076. Propagates directory exceptions
// outside naming, creating and storing.
//
// A record that this call created stays whatever becomes of the rest: without settings when its
// folder could not be asked for its volume, or when they could not be stored. (After the latter
// everything else is done for it.) An element that has no path at all is written with its name
// alone.
Status update_sharepoint(SharePointRecord& sharePoint, const Array& credentials);

}  // namespace paddock
