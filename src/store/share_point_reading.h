// Share points, read from the directory and completed from other sources. Callers hold the settings
// lock.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/status.h"
#include "base/value.h"
#include "store/share_point_record.h"

namespace paddock {

// All share points in their dictionary forms, in the order of the directory's answer. The
// exports file is read again first; while it cannot be read, exports are as they were last read and
// a log line says so. `filter` is ignored. 0 with `list` unset when there are none or when the
// directory cannot be searched; 100075 with `list` unset when the local node cannot be opened, a
// record cannot be completed, or the exports parser throws.
Status read_sharepoints(const Value* filter, std::optional<Array>& list);

// The share point of that path, compared case-insensitively, the last one when there are several;
// null, status 0, for a folder that is not shared. 100075 when the lookup fails. Sees the
// exports file as it was last read. Throws DirectoryError when the record that was found cannot
// be read.
Status get_share_point(const std::string& path, std::unique_ptr<SharePointRecord>& record);

// One share point from a directory record's attributes, with whether its folder is indexed for
// search, its mount point (unless it already has one, or its folder cannot be asked) and its NFS
// export.
Status share_point_from_ds_attributes(const Dictionary& attributes,
                                      std::unique_ptr<SharePointRecord>& record);

}  // namespace paddock
