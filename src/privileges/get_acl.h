// Reading a path's extended ACL as an array of entry dictionaries.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// Appends one dictionary (ace_dictionary.h) per entry, in the ACL's order. A path without an
// extended ACL, or whose ACL cannot be read, appends nothing and is a success. INVALID_ACL_ERR for
// an ACL that is not valid; ACL_QUALIFIER_NOT_FOUND_ERR, ACE_PERMSET_NOT_FOUND_ERR and
// ACE_FLAGSET_NOT_FOUND_ERR for an entry that cannot be read, with the entries before it appended.
//
// Per entry one search of the directory, and for a GUID without a record a question to the
// membership service and a second search. DirectoryErrors of the searches are not caught. What
// fails is logged.
Status get_acl(const std::string& path, Array& entries);

}  // namespace paddock
