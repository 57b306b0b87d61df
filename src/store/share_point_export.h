// A share point's line in the exports file.
#pragma once

#include <memory>

#include "base/status.h"

namespace paddock {

class NFSExportRecord;

// Removes the export when it is marked deleted; otherwise merges it into the export of its
// path, or adds it, and writes the file at once. An export that cannot be one line of the
// exports file is not added: 100076. Otherwise 0, whatever the write gave.
Status write_export(const std::shared_ptr<NFSExportRecord>& exportRecord);

}  // namespace paddock
