// The lists of ACL entries that `acl set`, `acl add` and `acl remove` send, and whether what comes
// back is the same.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "base/value.h"
#include "keelhouse/access/ace.h"
#include "keelhouse/access/principals.h"

namespace paddock::keelhouse {

// An entry of a list that is to be written.
struct WantedEntry {
  Dictionary sent;
  ResolvedPrincipal who;
};
using WantedAcl = std::vector<WantedEntry>;

// Each throws Failure for a name that cannot be resolved.
WantedAcl newEntries(const std::vector<TypedEntry>& entries, const Principals& principals);

// The entries of an ACL as they were read, to be sent back. Throws Failure for an entry that the
// daemon would not take back.
WantedAcl keptEntries(const Array& acl);

// Puts `added` before the entry with that number, from 1; absent: behind the last one. Throws
// Failure for a number that is not there.
WantedAcl withAdded(WantedAcl acl, WantedAcl added, std::optional<std::size_t> number);

// Which entries are to go: the one with a number, from 1, or all of a user or group.
using Removal = std::variant<std::size_t, PrincipalName>;

// Numbers, and users and groups as parsePrincipal reads them. Throws Failure (usage).
std::vector<Removal> parseRemovals(const std::vector<std::string>& words);

// Throws Failure for what is not in the list.
WantedAcl withRemoved(WantedAcl acl, const std::vector<Removal>& removals, Principals& principals);

Array sentAcl(const WantedAcl& acl);

// Whether two lists begin with the same entries, `count` of them.
bool beginAlike(const Array& left, const Array& right, std::size_t count);

// What was done to a list, for people: "allow user:anna read" was added, ...; empty when nothing.
std::string changesBetween(const Array& before, const Array& after, bool folder,
                           Principals& principals);

// Whether they are the entries that the list has, to the last bit.
bool isSameList(const WantedAcl& wanted, const Array& found);

// What keeps the list that was read back from being the one that was sent; absent when nothing.
std::optional<std::string> differenceOf(const WantedAcl& wanted, const Array& found, bool folder,
                                        Principals& principals);

}  // namespace paddock::keelhouse
