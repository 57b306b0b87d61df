// A file-system object of any type, held by a descriptor, so that it cannot be replaced between two
// calls; and its extended attributes.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/file_access.h"
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
// An O_PATH descriptor is resolved through /proc: ENOSYS where that is not mounted. Others do not
// need it, and are faster.
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

// Several extended attributes of one object, changed together or not at all.

// One attribute's values; absent: the object does not have the attribute.
struct XattrChange {
  std::string name;
  std::optional<std::string> before;
  std::optional<std::string> after;
  // Where the file system does not take the attribute, the change is left out.
  bool onlyWhereSupported = false;
};

// Applies the changes in order, each in one step; unchanged values are not written. When one fails,
// the previous ones are rolled back and its errno is returned.
int applyChanges(const ExtendedAttributes& attributes, int object,
                 const std::vector<XattrChange>& changes);

}  // namespace paddock
