// The end of a list that is not complete. An SMB server takes a list as complete, while local
// access falls back to the mode for what no entry decides; so behind the entries stand a marker and
// a tail that says what the mode says. docs/formats/acl.md describes both.
//
// The tail, entries in this order, a denial only where the mode gives a later class what it does
// not give the earlier one:
//   denied and allowed to the owner, denied and allowed to the group, allowed to everyone;
//   on a folder with inheritable entries also, inherited by files and folders and of no effect on
//   the folder itself: allowed to CREATOR OWNER (everything but changing the owner), denied and
//   allowed to CREATOR GROUP, allowed to everyone.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/posix_acl.h"

namespace paddock::nt_acl {

struct TailSource {
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  posix_acl::Classes classes;
  bool isFolder = false;
  friend bool operator==(const TailSource&, const TailSource&) = default;
};

// The entries, the marker, and the tail of the mode.
std::vector<Ace> withTail(std::vector<Ace> entries, const TailSource& source);

struct SplitList {
  std::vector<Ace> entries;  // without markers and generated tail
  bool complete = true;
  // What the tail was made of; absent of a complete list. It says what was so when the list was
  // written: an SMB server goes by it, nobody else does.
  std::optional<TailSource> tail{};
};

// The opposite. The list is not complete when it ends in exactly a marker and what `withTail` makes
// of some owner, group and mode, not only of the present ones, which may have been changed since.
// A marker anywhere else is dropped.
SplitList withoutTail(std::vector<Ace> list, bool isFolder);

}  // namespace paddock::nt_acl
