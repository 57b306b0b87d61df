// Free names for new share points.
#pragma once

#include <cstddef>
#include <string>

namespace paddock {

inline constexpr std::size_t kVspNameLimit = 31;
inline constexpr std::size_t kNoNameLimit = 2147483647;

// `baseName` when no share point of the local node has it in `attribute`, otherwise the first of
// "baseName-1", "baseName-2" ... that none has, its front cut so that name and suffix together
// have at most `maxLength` characters (a free base name is never cut). A lookup that fails counts
// as taken. "baseName-999" is returned without a look. A node that cannot be opened gives
// `baseName`.
std::string unique_share_point_name(const std::string& baseName, const std::string& attribute,
                                    std::size_t maxLength);

}  // namespace paddock
