// Runs of the program that pushes a folder's privileges down into everything inside it.
//
// The program runs detached and reports through its status file. The context keeps the run:
//
//   "copyPrivsPid"         number   the process that let go of the program; it has ended
//   "copyPrivsActive"      true
//   "copyPrivsStatusFile"  string   full path
//
// A new run takes the place of the one that is kept, whose status file stays.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/status.h"
#include "base/value.h"
#include "paddock/context.h"

namespace paddock {

inline constexpr const char* kCopyPrivsPidKey = "copyPrivsPid";
inline constexpr const char* kCopyPrivsActiveKey = "copyPrivsActive";
inline constexpr const char* kCopyPrivsStatusFileKey = "copyPrivsStatusFile";

// What is pushed: bits of PrivsToSet::what in acl_manipulation.h.
using PropagationMask = std::uint32_t;

// Starts a run for the folder. 0, or CANNOT_PROPAGATE_PRIVS_ERR with the context as it was.
Status start_propagate_privs(Context& context, const std::string& path, PropagationMask mask);

// The same: the process id that the context keeps, or -1, with ENOMEM in errno when memory ran out.
std::int32_t launch_propagate_command(Context& context, const std::string& path,
                                      PropagationMask mask);

// What the run's status file says; absent when it holds no dictionary. A run that is completed, or
// whose status file is not there, is forgotten, and the file of a completed one removed. `process`
// is a number or a decimal text. 0, or COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR.
Status get_copyprivs_status(Context& context, const Value* process,
                            std::optional<Dictionary>& status, const std::string& statusFile);

}  // namespace paddock
