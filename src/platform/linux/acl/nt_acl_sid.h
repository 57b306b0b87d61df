// The packet form of a SID ([MS-DTYP] 2.4.2.2).
#pragma once

#include <optional>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/nt_acl_bytes.h"

namespace paddock::nt_acl {

// Absent for a revision other than 1, more than 15 sub-authorities, or too few bytes.
std::optional<Sid> readSid(Reader& reader);

// Whether the packet form holds it: an authority of 48 bits, at most 15 sub-authorities.
bool fits(const Sid& sid);
// Precondition: it fits.
void writeSid(Writer& writer, const Sid& sid);

}  // namespace paddock::nt_acl
