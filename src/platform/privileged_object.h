// One file-system object whose privileges are read and changed, held from the first call to the
// last, so that it cannot be replaced between two of them.
//
// Ids and modes are numbers here; file_attributes.h knows owners by name. Errors are errno values.
// Not thread-safe.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "platform/acl.h"
#include "platform/path_use.h"

namespace paddock {

class PrivilegedObject {
 public:
  // An id that is to stay.
  static constexpr std::uint32_t kUnchanged = 0xFFFFFFFF;

  virtual ~PrivilegedObject() = default;

  // The object's extended ACL, as acl_get_file gives it: the caller's until acl_free, null with
  // errno when there is none (ENOENT) or it cannot be read.
  virtual acl::List* getAcl() = 0;
  // Replaces it, as acl_set_file does: 0, or -1 with errno.
  virtual int setAcl(acl::List* list) = 0;
  // fchown(2). 0 or an errno.
  virtual int changeOwner(std::uint32_t uid, std::uint32_t gid) = 0;
  // st_mode with the file type; the group's part is what the owning group has. 0 or an errno.
  virtual int readMode(mode_t& mode) = 0;
  // fchmod(2), all of 07777. 0 or an errno.
  virtual int changeMode(mode_t mode) = 0;
};

class PrivilegedObjects {
 public:
  virtual ~PrivilegedObjects() = default;
  // The object at `path`, links followed as path_use.h says of `use`. 0, or an errno with `object`
  // null. Thread-safe.
  virtual int open(const std::string& path, PathUse use,
                   std::unique_ptr<PrivilegedObject>& object) = 0;
};

}  // namespace paddock
