// The programs in the module's own bundle.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/status.h"
#include "base/value.h"
#include "paddock/plugin_request_handler.h"
#include "protocol/keys.h"

namespace paddock {

inline constexpr const char* kCopyPrivsPath =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/copyprivs";
inline constexpr const char* kEffectivePrivsPath =
    "/usr/share/paddockd/bundles/paddock_sharing.bundle/Contents/effectiveprivs";

// A user's effective permissions on a folder, computed by the module's helper program.

// Runs the program for the path and the user. 0 with the number that it printed, the permission
// bits of an access-control entry; otherwise `result` is left alone: -1 when the program is missing
// (which is logged) or wrote to standard error, or the status of running it.
Status get_effective_permissions(const std::string& path, std::uint32_t uid, std::int32_t& result);

// Runs of the program that propagates a folder's privileges to everything inside it.
//
// The program runs detached and reports through its status file. The context keeps the run:
//
//   "copyPrivsPid"         number   the process that detached the program; it has ended
//   "copyPrivsActive"      true
//   "copyPrivsStatusFile"  string   full path
//
// A new run replaces the recorded one, whose status file is kept.

// What is pushed: bits of PrivsToSet::what in acl_manipulation.h.
using PropagationMask = std::uint32_t;

// Starts a run for the folder. 0, or CANNOT_PROPAGATE_PRIVS_ERR with the context as it was.
Status start_propagate_privs(Context& context, const std::string& path, PropagationMask mask);

// The same: the process id that the context keeps, or -1, with ENOMEM in errno when memory ran out.
std::int32_t launch_propagate_command(Context& context, const std::string& path,
                                      PropagationMask mask);

// The contents of the run's status file; nullopt when it holds no dictionary. A run that is
// completed, or whose status file is missing, is dropped from the context, and the file of a
// completed one removed. `process` is a number or a decimal text. 0, or
// COPY_PRIVS_STATUS_FILE_NOT_FOUND_ERR.
Status get_copyprivs_status(Context& context, const Value* process,
                            std::optional<Dictionary>& status, const std::string& statusFile);

}  // namespace paddock
