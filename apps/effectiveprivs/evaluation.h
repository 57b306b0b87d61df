// What a user may do with an object, and why.
//
// Root may do everything. For other users the entries of the list are evaluated in order, and the
// first one that matches the user and names a permission decides it. What no entry decides comes
// from the mode, as the kernel applies it to a user with the host's groups:
//   r                   reading data and extended attributes
//   w                   writing and appending data, and writing extended attributes; on a folder
//                       also removing what is in it
//   x                   executing, searching
//   owner               writing attributes and the list
//   everybody           reading attributes and the list
//   the folder around   deleting the object, for users who may write to and search that folder or
//                       remove what is in it; in a sticky one only for the owner of either.
// No mode grants changing the owner. When the list is complete, the mode grants nothing.
//
// An entry for a principal that does not resolve may match the user or not, and so may one for a
// group while a directory node that might list the user as a member does not respond. A permission
// is granted when it is granted in either case; it is in doubt when such an entry would change the
// decision.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "effectiveprivs/identity.h"
#include "platform/acl.h"
#include "platform/linux/acl/posix_acl.h"
#include "platform/linux/privileges/mode_tail.h"

namespace paddock::effectiveprivs {

struct ObjectPrivileges {
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  posix_acl::Classes classes;
  bool isFolder = false;
  bool isSticky = false;
  std::optional<RuleList> list;  // absent: the mode alone
  // Paths of the directory nodes that cannot be asked whom groups hold; empty when all can.
  std::string unaskedNodes{};
  // What the list's tail says of owner, group and mode, where that is not so any more. It gives
  // nobody anything but over SMB.
  std::optional<nt_acl::TailSource> staleTail{};
};

// The object as an SMB server has it, which goes by the tail of the list.
ObjectPrivileges asTailHasIt(const ObjectPrivileges& object);

// What decided.
enum class Reason {
  root,
  entry,      // of the list
  mode,       // the bits of a class of the mode
  owner,      // being the owner, or not
  everybody,  // denied to no user
  parent,     // what the user may do with the folder around
  list,       // it is complete, and no entry says anything of it
  nothing,    // neither an entry nor a mode gives it
};

enum class ModeClass { owner, group, others };

struct Verdict {
  acl::Permission permission = 0;
  bool granted = false;
  Reason reason = Reason::nothing;
  // Of Reason::entry: its place in the list.
  std::optional<std::size_t> entry{};
  // Of Reason::mode.
  std::optional<ModeClass> modeClass{};
  // The group of the membership that the entry names, or that owns the object.
  std::optional<std::size_t> group{};
  // Not granted for certain, and not refused either. `doubt` is the entry of the list that may
  // be for the user; absent when it is one of the folder around.
  bool isDoubted = false;
  std::optional<std::size_t> doubt{};
};

// One for each permission, lowest first.
using Verdicts = std::array<Verdict, acl::kPermissions.size()>;

// The folder around the object; null when there is none. Called only when it matters.
using ParentOf = std::function<const ObjectPrivileges*()>;

Verdicts judge(const ObjectPrivileges& object, const ParentOf& parentOf, const Identity& user);

// The permissions that are granted for certain, and those that may be.
acl::Permission granted(const Verdicts& verdicts);
acl::Permission doubted(const Verdicts& verdicts);

}  // namespace paddock::effectiveprivs
