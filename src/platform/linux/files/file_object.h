// An object of the file system of whatever type, held by a descriptor, so that no other one slips
// in between two calls; and its extended attributes.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "base/file_descriptor.h"
#include "platform/path_use.h"

namespace paddock {

// Opens the folder at `path`, or holds what else is there with O_PATH, so that a FIFO never blocks
// and a device is not touched. Links are followed as platform/path_use.h says, and 0 or an errno
// returned as path_walk.h does.
int openObject(const std::string& path, FileDescriptor& object, PathUse use = PathUse::reading,
               std::optional<RefusedLink>* refused = nullptr);

// chmod(2) of an open object. 0 or an errno.
int changeObjectMode(int object, mode_t mode);

// Extended attributes by descriptor, an O_PATH one or another. Errors are errno values; any thread.
// An O_PATH descriptor is looked up in /proc: ENOSYS where that is not mounted. Other ones need it
// not, and are quicker.
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
