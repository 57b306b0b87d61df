// The entries of a volume's quota files, as dictionaries.
#pragma once

#include <optional>
#include <string>

#include "base/status.h"
#include "base/value.h"
#include "volumes/quota_file_format.h"

namespace paddock {

// The entries of users (type 0) or groups (1) that use something on the volume. Each is a
// dictionary: "name" (the id in decimal when it has none), "used", "free" and "limit" in bytes
// (limit 0: none), "type".
//
// 0 without an array when the volume folder has no operations marker; 0 and an empty array when the
// volume is of neither family that keeps such files. An errno without an array when the file or
// the volume cannot be read: ELOOP, EISDIR and EINVAL for what is no regular file, EPERM for a file
// that belongs to neither root nor this process. -1 without an array when the header is cut short
// or does not fit, and then, or when the volume cannot be read, the file stays open: by one
// descriptor, however often that happens with the same file. Whatever is not 0 has one line at
// error level, with the file and the reason.
//
// Allocates memory for the result only. Holes in the file are not read.
Status read_quota_entries(const std::string& volumePath, QuotaType type,
                          std::optional<Array>& entries);

// The path in the folder of the base name, a point and the type's extension.
std::string quota_file_path(const std::string& folder, const std::string& baseName, QuotaType type);

}  // namespace paddock
