// The privileges of an object of the file system, as far as they are read and changed here.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>

namespace paddock::copyprivs {

// An extended attribute.
struct Attribute {
  int error = ENODATA;  // of reading it; 0 when it is there
  std::string value;

  bool isThere() const { return error == 0; }
  std::optional<std::string> optional() const {
    return isThere() ? std::optional(value) : std::nullopt;
  }
  friend bool operator==(const Attribute&, const Attribute&) = default;
};

struct ObjectState {
  mode_t mode = 0;  // st_mode: the file type, and the mask of the access ACL for the group
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  Attribute list;      // the extended ACL
  Attribute access;    // system.posix_acl_access
  Attribute passedOn;  // system.posix_acl_default; a folder's alone

  bool isFolder() const { return S_ISDIR(mode); }
  bool isLink() const { return S_ISLNK(mode); }
  friend bool operator==(const ObjectState&, const ObjectState&) = default;
};

}  // namespace paddock::copyprivs
