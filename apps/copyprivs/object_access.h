// Reads the state of objects by name, without opening them.
#pragma once

#include <string>

#include "base/file_access.h"
#include "copyprivs/change_steps.h"
#include "platform/linux/privileges/object_status.h"

namespace paddock::copyprivs {

// Two lookups of a name may find different objects, so the result supports one conclusion only:
// that there is nothing to be done. Half the cost of opening the object first.
//
// Bound to the calling thread, which gets a working directory of its own.
class NamedObjects {
 public:
  NamedObjects();

  // False where a thread cannot have a working directory of its own.
  bool isUsable() const { return isUsable_; }
  // Changes to the folder. False on failure.
  bool enter(int folder);
  // Returns 0, or an errno with `value` empty. Symlinks are not followed.
  static int get(const char* object, const char* name, std::string& value);

 private:
  const bool isUsable_;
};

// The descriptors of this process as /proc has them for a thread.

// For use by the constructing thread only: lookups by two threads in one directory contend.
class OwnDescriptors {
 public:
  // Where /proc is not mounted every call fails.
  OwnDescriptors();

  // Opens the regular file of an O_PATH descriptor for reading, without a lookup of its name: calls
  // on a descriptor that is really open are several times as fast. Returns 0 or an errno:
  // EWOULDBLOCK when a process holds a lease.
  int reopen(int held, FileDescriptor& file) const;
  // The current path of the object; empty when it is unknown or too long to be determined.
  std::string pathOf(int object) const;

 private:
  FileDescriptor folder_;
};

}  // namespace paddock::copyprivs
