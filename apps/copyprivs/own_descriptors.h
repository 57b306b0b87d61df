// The descriptors of this process as /proc has them for a thread.
#pragma once

#include <string>

#include "base/file_descriptor.h"

namespace paddock::copyprivs {

// For the thread that makes it: two threads that look things up in the folder of one get into each
// other's way.
class OwnDescriptors {
 public:
  // Where /proc is not mounted every call fails.
  OwnDescriptors();

  // Opens the regular file that is held by an O_PATH descriptor for reading, which takes no look at
  // its name: calls by a descriptor that is really open are several times as quick. 0 or an errno:
  // EWOULDBLOCK when somebody has a lease.
  int reopen(int held, FileDescriptor& file) const;
  // The path that the object has now; empty when that is not known, or too long to be told.
  std::string pathOf(int object) const;

 private:
  FileDescriptor folder_;
};

}  // namespace paddock::copyprivs
