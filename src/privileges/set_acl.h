// Replacing a path's extended ACL by an array of entry dictionaries.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// Sets the entries (ace_dictionary.h) in their order, in place of all that were there, inherited
// ones included. An empty array clears a valid ACL and leaves an invalid one, or none, alone. The
// file is changed in one last step, so a failure leaves it as it was.
//
// 0; a code from ACL_INIT_ERR to ACL_VALIDATION_ERR; or -1 when the GUID of a "uniqueID" or
// "groupID" cannot be set. Deliberately 0 with the ACL as it was: an "allowPermission" that is
// neither "YES" nor "NO", and a permission or flag set that cannot be filled. What fails is logged,
// but for the "allowPermission".
//
// Numbers are read as integers (a boolean as 0 or 1, a decimal text as its number). Bits that are
// no permission or flag are ignored, those above 32 included. An id that is negative or has more
// than 32 bits, and a "guid" that is no GUID's text, are CANNOT_SET_ACL_QUALIFIER_ERR. A member of
// the array that is no dictionary reads as an empty one.
Status set_acl(const std::string& path, const Array& entries);

}  // namespace paddock
