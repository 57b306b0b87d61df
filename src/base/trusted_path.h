// Paths to what decides what a process does: its configuration, and the code that it loads.
#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

#include "base/file_access.h"

namespace paddock {

// A sentence that names what can be changed by whom, and what to type.
class UntrustedPath : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Opens what is at `path` for reading, if nobody but root and the user of this process can have
// changed it: the object, every folder above it and every symlink on the way belong to one of these
// two, and cannot be written by others; in a process of root, by a group neither. A folder above
// may be written by others when it is sticky, because they cannot replace in it what is not theirs.
//
// The path is walked component by component, each held by a descriptor before the next one is
// resolved, and the object that was checked is the one that is opened.
//
// Throws std::system_error with the kernel's reason (ENOENT when nothing is there, ELOOP after 40
// links), and UntrustedPath.
FileDescriptor openTrusted(const std::string& path);

// To be called first in a program, with the path of its own file. Where others can change that
// file, what it reads and loads is no safer for being refused, and a tree runs where it stands: the
// functions here open everything from then on. Returns the sentence about the file, or "".
std::string acceptOpenProgram(const std::string& program);

// That sentence; empty when there is none, also when nothing is there.
std::string whyUntrusted(const std::string& path);

// The bytes of a regular file that is opened so; nullopt when there is none at `path`. Throws as
// openTrusted does, EINVAL for what is no regular file, and EFBIG for more than `limit` bytes.
std::optional<std::string> readTrustedFile(const std::string& path, std::size_t limit);

}  // namespace paddock
