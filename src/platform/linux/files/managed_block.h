// The lines of a file that are ours, between two comments, among lines that are not.
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

// The parts of a file's contents; all of it is `before` when there is no block. Absent when the
// comments are not exactly one pair: then nobody can say which lines are whose.
std::optional<ManagedBlock> splitManagedBlock(const std::string& contents);

// The contents again, without a block when it has no lines. A last line of others that did not end
// ends before a block.
std::string joinManagedBlock(const ManagedBlock& block);

}  // namespace paddock
