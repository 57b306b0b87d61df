// The order of the steps from one state of an object to another, such that no intermediate state
// grants a user access that neither the initial nor the final state grants.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/files/file_object.h"

namespace paddock::copyprivs {

// The privileges of a file-system object, as far as they are read and changed here.

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

// One change that the kernel makes as a whole; the attributes of one step are changed one after the
// other, all or none of them.
struct ChangeStep {
  enum class Kind : std::uint8_t { owner, mode, attributes };

  Kind kind = Kind::mode;
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  mode_t mode = 0;
  std::vector<XattrChange> attributes;
};

// Empty when nothing differs. `list` is the name of the attribute that holds the extended ACL.
//
// Mostly the object is as open as before until the last step. Where neither the old content can
// stand under the new owner and group nor the new one under the old, the object is closed for all
// but its owner in between.
std::vector<ChangeStep> changeSteps(const ObjectState& before, const ObjectState& after,
                                    const std::string& list);

}  // namespace paddock::copyprivs
