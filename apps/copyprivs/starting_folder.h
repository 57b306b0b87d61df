// What the starting folder gives to what it holds.
#pragma once

#include <stdexcept>
#include <string>

#include "copyprivs/object_setter.h"
#include "copyprivs/tree_walk.h"
#include "platform/linux/privileges/file_acls.h"

namespace paddock::copyprivs {

// Why a run cannot start.
class CannotStart : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The folder at the path; links above it are followed as platform/path_use.h says of changing, it
// must be none itself. Throws CannotStart.
StartingFolder findStartingFolder(const std::string& path);

// Its own owner, group, mode and, when `what` has them, the entries that it passes on. Throws
// CannotStart when they cannot be read, or the ACL is invalid.
Propagation propagationFrom(const StartingFolder& folder, std::uint32_t what, const FileAcls& acls);

}  // namespace paddock::copyprivs
