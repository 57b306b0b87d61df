// Lists of entries ([MS-DTYP] 2.4.5).
#pragma once

#include <optional>
#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/nt_acl_bytes.h"

namespace paddock::nt_acl {

// Absent for a revision other than 2 and 4, more than 1,000 entries, an entry that does not decode,
// or entries that take another length than the list's header says.
std::optional<std::vector<Ace>> readList(Reader& reader);

// Appends the list. False when a list cannot hold it; what was appended is then of no use.
bool writeList(Writer& writer, const std::vector<Ace>& list);

}  // namespace paddock::nt_acl
