// What Samba puts around a descriptor in the attribute (xattr_NTACL of its xattr.idl, in NDR).
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/linux/acl/nt_acl_bytes.h"

namespace paddock::nt_acl {

// Where in a value of version 1 to 4 the descriptor starts, not more than the value's size. The
// hashes, the description and the time of the later versions are passed over. Absent for another
// version, a description that is not UTF-8, or a value without a descriptor or that ends before it.
std::optional<std::size_t> descriptorPosition(std::string_view value);

// What stands before the descriptor in version 1.
void writeEnvelope(Writer& writer);

}  // namespace paddock::nt_acl
