#include "platform/accounts.h"

namespace paddock {

namespace {

constexpr std::size_t kPointer = sizeof(char*);
// The line feed and the NUL behind the line.
constexpr std::size_t kEndOfLine = 2;
// The null behind the last member, and room for one member more than there is.
constexpr std::size_t kSparePointers = 2;

}  // namespace

std::size_t groupEntrySize(const std::string& name, std::uint32_t gid,
                           const std::vector<std::string>& members) {
  std::size_t line = (name + ":x:" + std::to_string(gid) + ":").size() + kEndOfLine;
  for (const std::string& member : members) line += member.size() + 1;
  if (!members.empty()) --line;  // no comma behind the last one
  const std::size_t aligned = (line + kPointer - 1) / kPointer * kPointer;
  return aligned + (members.size() + kSparePointers) * kPointer;
}

}  // namespace paddock
