// What can be pushed down a folder, by all its names.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace paddock::keelhouse {

struct PushedPart {
  std::uint32_t bit;       // of the mask on the program's command line
  const char* requestKey;  // 1 selects it
  const char* option;
  const char* word;  // in what people read
  const char* description;
};

inline constexpr std::array<PushedPart, 6> kPushedParts = {{
    {1, "propOwnerName", "--owner", "owner", "The owner"},
    {2, "propGroupName", "--group", "group", "The group"},
    {4, "propOwnerPerm", "--owner-perm", "owner-perm", "What the mode gives the owner"},
    {8, "propGroupPerm", "--group-perm", "group-perm", "What the mode gives the group"},
    {16, "propWorldPerm", "--world-perm", "world-perm", "What the mode gives everybody else"},
    {32, "propACL", "--acl", "acl", "The ACL entries that are inherited"},
}};

// The words of the mask's parts, with commas between; "nothing" for none.
std::string pushedWords(std::uint32_t mask);

}  // namespace paddock::keelhouse
