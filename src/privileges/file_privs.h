// All privileges of a file or folder as one dictionary.
//
// Read: "owner", "group" (strings, possibly empty), "fileType", "privs" (three octal digits), or
// "posixErr" (text) in place of these four; "acl" (array of ace_dictionary.h), or "aclErr" (text);
// "path".
// Written: "owner", "group", "privs", "acl"; other keys are ignored, so what was read can be sent
// back.
#pragma once

#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// Always 0: what failed stands in the dictionary. A missing path has an empty "acl".
// DirectoryErrors of looking up names are not caught.
Status read_file_privs(const std::string& path, Dictionary& privileges);

// Owner, group and mode first, then the ACL, whatever became of the first. An absent "acl" is left
// alone, an empty one clears it. "privs" sets the mode when it has three characters and begins with
// an octal digit. Returns set_acl's status when that is not 0, else set_posix_privs's.
Status write_file_privs(const std::string& path, const Dictionary& privileges);

}  // namespace paddock
