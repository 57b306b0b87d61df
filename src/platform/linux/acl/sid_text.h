// SIDs as text ([MS-DTYP] 2.4.2.1): "S-1-22-1-1000".
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/acl/nt_acl.h"

namespace paddock::nt_acl {

// An authority of 2^32 or more is written as 0x and twelve hexadecimal digits.
std::string sidText(const Sid& sid);

// Reads that form, also with fewer digits in a hexadecimal authority, as Samba writes it, and at
// most 15 sub-authorities. Absent for any other text.
std::optional<Sid> parseSid(std::string_view text);

}  // namespace paddock::nt_acl
