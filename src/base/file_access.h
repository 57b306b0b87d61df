// Small files that are read or replaced whole, and folders of the process' own.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.h"

namespace paddock {

// The bytes of a regular file; nothing when there is none at `path`. Throws std::system_error for
// every other failure, EFBIG for a file of more than `limit` bytes.
std::optional<std::string> readSmallFile(const std::string& path, std::size_t limit);

// Writes all of it; false with errno set when that failed.
bool writeAll(int descriptor, std::string_view bytes);

// Replaces the file NAME of the open folder by a complete new one of the given mode, or leaves it
// as it was: temporary file, fsync, rename, fsync of the folder. Throws std::system_error.
void replaceFile(int folder, const std::string& name, std::string_view bytes, mode_t mode);

// Opens a folder of the process' own, making it, and what is missing above it, first. It
// must belong to the user of this process, be no symbolic link, and not be writable by others.
// Throws std::system_error.
FileDescriptor openOwnFolder(const std::string& path, mode_t mode);

}  // namespace paddock
