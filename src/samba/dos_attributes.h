// The attributes of Windows' files, read-only among them, as smbd keeps them in an extended
// attribute (xattr_DOSATTRIB of its xattr.idl).
#pragma once

#include <string_view>

namespace paddock::samba {

inline constexpr const char* kDosAttributesName = "user.DOSATTRIB";
// Whether smbd takes a file for read-only. Unknown: for a text that is no number, which it reads in
// its own way.
enum class DosReadOnly { no, yes, unknown };
// A value that smbd does not read, of an unknown version or cut short, says no.
DosReadOnly dosReadOnlyIn(std::string_view value);

}  // namespace paddock::samba
