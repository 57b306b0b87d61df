// The progress and the result of a run, for people. Everything is printable.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "keelhouse/propagate/run_status.h"
#include "protocol/keys.h"
#include "protocol/privilege_bits.h"

namespace paddock::keelhouse {

// What can be pushed down a folder, by all its names.
struct PushedPart {
  std::uint32_t bit;       // of the mask on the program's command line
  const char* requestKey;  // 1 selects it
  const char* option;
  const char* word;  // in what people read
  const char* description;
};

inline constexpr std::array<PushedPart, 6> kPushedParts = {{
    {kSetOwner, protocol::kPropOwnerName, "--owner", "owner", "The owner"},
    {kSetGroup, protocol::kPropGroupName, "--group", "group", "The group"},
    {kSetOwnerPermissions, protocol::kPropOwnerPerm, "--owner-perm", "owner-perm",
     "What the mode gives the owner"},
    {kSetGroupPermissions, protocol::kPropGroupPerm, "--group-perm", "group-perm",
     "What the mode gives the group"},
    {kSetOtherPermissions, protocol::kPropWorldPerm, "--world-perm", "world-perm",
     "What the mode gives everybody else"},
    {kSetInheritedEntries, protocol::kPropACL, "--acl", "acl",
     "The ACL entries that are inherited"},
}};

// The words of the mask's parts, with commas between; "nothing" for none.
std::string pushedWords(std::uint32_t mask);

// "1 object", "20 objects".
std::string objectsText(std::uint64_t count);

// "9 s", "3 min 05 s", "2 h 07 min".
std::string durationText(std::uint64_t seconds);

// "450000 of 1000000 objects (45%), 21300/s, 26 s left, 3 errors"; `rate` is objects per second,
// absent when it is not known yet.
std::string progressText(const RunStatus& run, std::optional<double> rate);

// The same behind a bar of what is done, in at most `columns` columns.
std::string progressBar(const RunStatus& run, std::optional<double> rate, std::size_t columns);

// A line with the counts of a run that has ended.
std::string resultText(const std::string& path, const RunStatus& run);

// The first objects on which something failed, each on a line of its own behind two blanks.
std::string errorLines(const RunStatus& run);

// A table of the first objects that a run would change.
std::string exampleTable(const RunStatus& run);

}  // namespace paddock::keelhouse
