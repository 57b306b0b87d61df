// The automount record of a share point, with the credentials that came with the request.
#pragma once

#include "base/value.h"
#include "store/share_point_record.h"

namespace paddock {

// Creates or updates it. Throws what the directory throws, with a line in the log that names the
// share point and the node.
void write_automount(const SharePointRecord& sharePoint, const Array& credentials);

// Removes it where the share point says on which node it is; a failure is in the log alone.
void delete_automount(const SharePointRecord& sharePoint, const Array& credentials);

}  // namespace paddock
