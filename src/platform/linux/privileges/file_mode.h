// The mode of a file as its owner, owning group and others have it: in a file with a POSIX ACL
// st_mode holds the mask in the group's place, see "CORRESPONDENCE BETWEEN ACL ENTRIES AND FILE
// PERMISSION BITS" in acl(5).
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/linux/files/file_object.h"

namespace paddock {

inline constexpr mode_t kModeBits = 07777;

// The access ACL of an object.
struct AccessAcl {
  bool isSupported = true;           // whether the file system takes any
  std::optional<std::string> value;  // absent when there is none
};

// 0 or an errno.
int readAccessAcl(const ExtendedAttributes& attributes, int object, AccessAcl& acl);

// What `stMode` & 07777 would be without the ACL, with the owning group's part as it is in effect.
mode_t modeWithout(const AccessAcl& acl, mode_t stMode);

// The two together. 0 or an errno.
int readMode(const ExtendedAttributes& attributes, int object, mode_t stMode, mode_t& mode);

// Sets all of the mode. A POSIX ACL keeps the entries that it has for others than the three
// classes, and its mask is widened where it would bound the owning group. 0 or an errno.
int writeMode(const ExtendedAttributes& attributes, int object, mode_t mode);
// The same where something else stands for chmod(2).
int writeMode(const ExtendedAttributes& attributes, int object, mode_t mode,
              const std::function<int(mode_t mode)>& change);

}  // namespace paddock
