// Rights and inheritance of an ACL entry in words.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace paddock::keelhouse {

// The bits of an entry's "bitmap" and "flags" that mean something.
inline constexpr std::uint32_t kAllRights = 0x3FFE;
inline constexpr std::uint32_t kAllInheritance = 0x1F0;

namespace rights {
inline constexpr std::uint32_t kReadData = 2;
inline constexpr std::uint32_t kWriteData = 4;
inline constexpr std::uint32_t kExecute = 8;
inline constexpr std::uint32_t kDelete = 16;
inline constexpr std::uint32_t kAppendData = 32;
inline constexpr std::uint32_t kDeleteChild = 64;
inline constexpr std::uint32_t kReadAttributes = 128;
inline constexpr std::uint32_t kWriteAttributes = 256;
inline constexpr std::uint32_t kReadExtended = 512;
inline constexpr std::uint32_t kWriteExtended = 1024;
inline constexpr std::uint32_t kReadSecurity = 2048;
inline constexpr std::uint32_t kWriteSecurity = 4096;
inline constexpr std::uint32_t kChangeOwner = 8192;
}  // namespace rights

namespace inheritance {
inline constexpr std::uint32_t kInherited = 16;
inline constexpr std::uint32_t kFile = 32;
inline constexpr std::uint32_t kDirectory = 64;
inline constexpr std::uint32_t kLimit = 128;
inline constexpr std::uint32_t kOnly = 256;
}  // namespace inheritance

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
