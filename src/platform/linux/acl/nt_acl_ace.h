// Entries of a list ([MS-DTYP] 2.4.4).
#pragma once

#include <optional>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/nt_acl_bytes.h"

namespace paddock::nt_acl {

// Absent when the entry's size is not a multiple of 4, leads outside, or is not what an entry of
// its type takes: an allowed or denied one ends with its SID, another one may have more behind it.
std::optional<Ace> readAce(Reader& reader);

// Appends the entry. False when an entry cannot hold it; what was appended is then of no use.
bool writeAce(Writer& writer, const Ace& ace);

// Whether a list with an entry of this type has revision 4.
bool isObjectType(std::uint8_t type);

}  // namespace paddock::nt_acl
