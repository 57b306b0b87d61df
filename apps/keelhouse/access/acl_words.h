// Rights and inheritance of an ACL entry in words.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/privilege_bits.h"

namespace paddock::keelhouse {

// Words with commas between: the sets "read", "write" and "full", the thirteen rights by name, both
// by that for files and that for folders where they differ, or "none". Letter case does not count.
// Throws Failure (usage) for anything else.
std::uint32_t parseRights(std::string_view text);

// The shortest such words, the names being those for folders when `folder`.
std::string formatRights(std::uint32_t bits, bool folder);

// Words with commas between: "inherit" (what is made inside, files and folders), "file-inherit",
// "directory-inherit", "limit-inherit", "only-inherit", "inherited". Throws Failure (usage) for
// anything else, and for a limit of an inheritance that is not there.
std::uint32_t parseInheritance(std::string_view text);

// The same of single words, and also what stored entries have: a limit of no inheritance.
std::uint32_t inheritanceFlags(const std::vector<std::string>& words);

// Such words; empty when no flag is set.
std::string formatInheritance(std::uint32_t flags);

}  // namespace paddock::keelhouse
