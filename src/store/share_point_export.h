// A share point's line in the exports file.
#pragma once

#include "base/status.h"
#include "store/share_point_record.h"

namespace paddock {

// Of a share point that has an export: removes it when it is marked deleted; otherwise merges it
// into the export of its path, or adds it, and writes the file at once. An export that cannot be
// one line of the exports file is not added: 100076, with a line in the log that says why.
// Otherwise 0, whatever the write gave.
Status write_export(const SharePointRecord& sharePoint);

}  // namespace paddock
