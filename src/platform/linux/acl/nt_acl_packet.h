// The packet form of a SID ([MS-DTYP] 2.4.2.2).
#pragma once

#include <optional>
#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/nt_acl_bytes.h"

namespace paddock::nt_acl {

// Absent for a revision other than 1, more than 15 sub-authorities, or too few bytes.
std::optional<Sid> readSid(Reader& reader);

// Whether the packet form holds it: an authority of 48 bits, at most 15 sub-authorities.
bool fits(const Sid& sid);
// Precondition: it fits.
void writeSid(Writer& writer, const Sid& sid);

// Entries of a list ([MS-DTYP] 2.4.4).

// Absent when the entry's size is not a multiple of 4, leads outside, or is not what an entry of
// its type takes: an allowed or denied one ends with its SID, another one may have more behind it.
std::optional<Ace> readAce(Reader& reader);

// Appends the entry. False when an entry cannot hold it; what was appended is then of no use.
bool writeAce(Writer& writer, const Ace& ace);

// Whether a list with an entry of this type has revision 4.
bool isObjectType(std::uint8_t type);

// Lists of entries ([MS-DTYP] 2.4.5).

// Absent for a revision other than 2 and 4, more than 1,000 entries, an entry that does not decode,
// or entries that take another length than the list's header says.
std::optional<std::vector<Ace>> readList(Reader& reader);

// Appends the list. False when a list cannot hold it; what was appended is then of no use.
bool writeList(Writer& writer, const std::vector<Ace>& list);

}  // namespace paddock::nt_acl
