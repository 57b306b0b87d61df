// Creating, initialising, searching and updating quota files. quota_file_format.h has the format.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "base/file_access.h"
#include "platform/volume_info.h"
#include "volumes/quota_file_format.h"

namespace paddock {

// Files at fixed names in world-writable folders.
//
// A link at the end of a path is never followed, a pipe never waited for, and what is no regular
// file never opened; a path with a NUL names nothing.

// 0 and the file, open for reading, with its owner; or an errno: ENOENT, EACCES, ELOOP for a link,
// EISDIR for a folder, EINVAL for anything else that is no regular file.
int openRegularFile(const std::string& path, FileDescriptor& file, uid_t& owner);

// 0 and a new, empty file, open for reading and writing; or an errno: EEXIST when anything has
// the name, ENOENT when its folder is missing, EACCES, EROFS, ENOSPC.
int createFile(const std::string& path, mode_t mode, FileDescriptor& file);

// Leaves the file open for as long as the process lives, by one descriptor for each file: one that
// is open for it already stands for it again. Files that no name leads to any more are closed.
void keepOpen(FileDescriptor file);

// Whether anything has the name, a dangling link included.
bool isTaken(const std::string& path);

bool isRegularFile(const std::string& path);

// Creates and initialises the quota file of the volume that is mounted on exactly `mountPoint`; a
// path where nothing is mounted, and a volume that has the file, are left as they are. The new file
// belongs to the process's user and group 80, with mode 0640. 0, or -1 when the mounted volumes
// cannot be listed. What keeps a file from being made is written to standard error, with its path.
// The file's descriptor is left open.
int qfcreate(const std::string& mountPoint, QuotaType type);

// Makes an empty table in an open file, of a size that befits the volume. Always 0; errors of
// writing are ignored.
int qfinit(int file, const VolumeStatistics& volume, QuotaType type);

// These two take the header's words, and the ids, as they stand, in this host's order. They refuse
// a header that does not fit `type` with "quota: invalid quota file header\n" on standard error.

// The entry of an id as it stands in the file. 0: it is `entry`, or there is none, and `entry` is
// the free slot or, when the table is full, the last one that was tried. -1: the file cannot be
// read, or its header does not fit. `entry` is zero for id 0, which is in no file.
int qflookup(int file, std::uint32_t id, QuotaType type, QuotaSlot& entry);

// Puts the id into `entry` and writes it over the id's own slot, or a free one. 0: written, or
// id 0, of which nothing is written. -1: reading or writing failed, or the table is full (errno is
// ENOSPC then). 22: the header does not fit.
int qfupdate(int file, std::uint32_t id, QuotaType type, QuotaSlot& entry);

}  // namespace paddock
