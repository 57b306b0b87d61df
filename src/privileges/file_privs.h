// All privileges of a file or folder as one dictionary.
//
// Read: "owner", "group" (strings, possibly empty), "fileType", "privs" (three octal digits), or
// "posixErr" (text) instead of these four; "acl" (array of ace_dictionary.h), or "aclErr" (text);
// "path". Written: "owner", "group", "privs", "acl"; other keys are ignored, so what was read can
// be sent back.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/status.h"
#include "base/value.h"

namespace paddock {

// Owner, group and mode of one file-system object, by account names.
//
// An empty name is "unknown" on reading and "leave as it is" on writing. Links are followed.
// Nothing is logged: where `error` is not null, it gets the errno of a refusal by the system, for
// who logs it.

// 0, or CANNOT_STAT_ERR with the out values as they were. `permissions` is the mode without the
// bits of the file's type; `fileType` as file_attributes.h names it. Either may be absent.
Status get_posix_privs(const std::string& path, std::string& owner, std::string& group,
                       std::optional<std::uint32_t>& permissions,
                       std::optional<std::string>& fileType, int* error = nullptr);

// Sets what is given; null, empty and absent leave that part as it is. Names are resolved before
// anything is changed: USER_NOT_FOUND_ERR, then GROUP_NOT_FOUND_ERR. CANNOT_CHANGE_PRIVS_ERR when
// the system refuses; what it had applied before it did stays.
Status set_posix_privs(const std::string& path, const std::string* owner, const std::string* group,
                       std::optional<std::uint32_t> permissions, int* error = nullptr);

// Always returns 0: failures are reported in the dictionary. A missing path has an empty "acl".
// DirectoryErrors of the name lookups propagate.
Status read_file_privs(const std::string& path, Dictionary& privileges);

// Owner, group and mode first, then the ACL, whatever became of the first. An absent "acl" is left
// alone, an empty one clears it. "privs" sets the mode when it has three characters and begins with
// an octal digit. Returns set_acl's status when that is not 0, else set_posix_privs's.
Status write_file_privs(const std::string& path, const Dictionary& privileges);

}  // namespace paddock
