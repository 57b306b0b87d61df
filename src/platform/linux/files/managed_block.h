// The managed block of a file: its lines between two comments, among lines of others.
#pragma once

#include <optional>
#include <string>

namespace paddock {

struct ManagedBlock {
  std::string before;
  std::string lines;
  std::string after;
};

inline constexpr const char* kManagedBlockBegin = "# begin of what paddockd writes\n";
inline constexpr const char* kManagedBlockEnd = "# end of what paddockd writes\n";

// The parts of a file's contents; all of it is `before` when there is no block. nullopt when the
// comments are not exactly one pair: the owner of the lines is then ambiguous.
std::optional<ManagedBlock> splitManagedBlock(const std::string& contents);

// The contents again, without a block when it has no lines. A last line of others that did not end
// ends before a block.
std::string joinManagedBlock(const ManagedBlock& block);

}  // namespace paddock
