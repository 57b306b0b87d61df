// An object of the file system of whatever type, held by a descriptor that neither opens it (so
// that a FIFO never blocks and a device is not touched) nor lets another one slip in between two
// calls; and its extended attributes.
#pragma once

#include <string>
#include <string_view>

#include "base/file_descriptor.h"

namespace paddock {

// Opens the object at `path` with O_PATH, links followed. 0 or an errno; ENOENT also for a path
// with a NUL, because nothing can be there.
int openObject(const std::string& path, FileDescriptor& object);

// The name of an open object in /proc, for the calls that take no O_PATH descriptor.
std::string objectPath(int object);

// What a failed call through `objectPath` means: ENOSYS where /proc is not mounted, else `error`.
int objectPathError(int error);

// Extended attributes by descriptor, an O_PATH one or another. Errors are errno values; any thread.
class ExtendedAttributes {
 public:
  virtual ~ExtendedAttributes() = default;
  // ENODATA when the object has no such attribute, EOPNOTSUPP where the file system keeps none, and
  // `value` empty.
  virtual int get(int object, const std::string& name, std::string& value) const = 0;
  // Replaces the whole value in one step, or changes nothing.
  virtual int set(int object, const std::string& name, std::string_view value) const = 0;
  virtual int remove(int object, const std::string& name) const = 0;
};

// The kernel's.
const ExtendedAttributes& linuxExtendedAttributes();

}  // namespace paddock
