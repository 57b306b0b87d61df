// Owner, group and mode of one file-system object, by account names.
//
// An empty name is "unknown" on reading and "leave as it is" on writing. Links are followed.
// Nothing is logged: where `error` is not null, it gets the errno of a refusal by the system, for
// who logs it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/status.h"

namespace paddock {

// 0, or CANNOT_STAT_ERR with the out values as they were. `permissions` is the mode without the
// bits of the file's type; `fileType` as file_attributes.h names it. Either may be absent.
Status get_posix_privs(const std::string& path, std::string& owner, std::string& group,
                       std::optional<std::uint32_t>& permissions,
                       std::optional<std::string>& fileType, int* error = nullptr);

// Sets what is given; null, empty and absent leave that part as it is. Names are looked up before
// anything is changed: USER_NOT_FOUND_ERR, then GROUP_NOT_FOUND_ERR. CANNOT_CHANGE_PRIVS_ERR when
// the system refuses; what it had applied before it did stays.
Status set_posix_privs(const std::string& path, const std::string* owner, const std::string* group,
                       std::optional<std::uint32_t> permissions, int* error = nullptr);

}  // namespace paddock
