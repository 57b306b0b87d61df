// Files at fixed names in folders that anybody may write.
//
// A link at the end of a path is never followed, a pipe never waited for, and what is no regular
// file never opened; a path with a NUL names nothing.
#pragma once

#include <sys/types.h>

#include <string>

#include "base/file_descriptor.h"

namespace paddock {

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

}  // namespace paddock
