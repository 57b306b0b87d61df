// How the entries of an extended list decide: in their order, each permission by the first entry
// that names it and is for the one who asks. And the entries as rules for users and groups of this
// host, as they are projected to the kernel's ACLs and compared with what the kernel grants.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/acl.h"
#include "platform/linux/acl/posix_acl.h"

namespace paddock::acl {

// Asks `decides(place, permissions)` of each entry, in order, that names permissions which are
// asked for and which no entry before it has decided: whether it decides these. Returns what none
// decides. `rules` is indexable, and its elements have `permissions`.
template <typename Rules, typename Decides>
Permission decideInOrder(Permission asked, const Rules& rules, Decides decides) {
  for (std::size_t at = 0; at < rules.size() && asked != 0; ++at) {
    const Permission named = rules[at].permissions & asked;
    if (named != 0 && decides(at, named)) asked &= ~named;
  }
  return asked;
}

// Whom a rule is for. (Callers of SMB, whom a list may name in more ways, are effectiveprivs' own.)
struct Subject {
  enum class Kind { nobody, user, group, everyone };
  Kind kind = Kind::nobody;
  std::uint32_t id = 0;
  friend bool operator==(const Subject&, const Subject&) = default;

  bool isUser() const { return kind == Kind::user; }
  bool isGroup() const { return kind == Kind::group; }
};

// One entry of a list.
struct Rule {
  bool allow = false;
  Subject subject;
  Permission permissions = 0;
  Flag flags = 0;
  friend bool operator==(const Rule&, const Rule&) = default;
};

// Whether it is for a user of these groups, ascending; without a uid, for whoever is in them.
bool isFor(const Subject& subject, std::optional<std::uint32_t> uid,
           const std::vector<std::uint32_t>& gids);

// For each of the kernel's bits the permission that decides about it: reading and writing data, and
// executing. The others are not the kernel's.
inline constexpr Permission kDecisive = kReadData | kWriteData | kExecute;
posix_acl::Bits kernelBitsOf(Permission permissions);

}  // namespace paddock::acl
