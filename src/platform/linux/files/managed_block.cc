#include "platform/linux/files/managed_block.h"

#include <algorithm>
#include <string_view>

namespace paddock {

namespace {

constexpr std::string_view kBegin = kManagedBlockBegin;
constexpr std::string_view kEnd = kManagedBlockEnd;

// Where the line stands that `line` is, or npos.
std::size_t findLine(const std::string& contents, std::string_view line, std::size_t from) {
  for (std::size_t place = contents.find(line, from); place != std::string::npos;
       place = contents.find(line, place + 1)) {
    if (place == 0 || contents[place - 1] == '\n') return place;
  }
  return std::string::npos;
}

}  // namespace

std::optional<ManagedBlock> splitManagedBlock(const std::string& contents) {
  // Its last line may be the second comment.
  std::string whole = contents;
  if (!whole.empty() && whole.back() != '\n') whole += '\n';
  const std::size_t begin = findLine(whole, kBegin, 0);
  const std::size_t end = findLine(whole, kEnd, 0);
  if (begin == std::string::npos && end == std::string::npos) return ManagedBlock{contents, "", ""};
  if (begin == std::string::npos || end == std::string::npos || end < begin) return std::nullopt;
  if (findLine(whole, kBegin, begin + 1) != std::string::npos ||
      findLine(whole, kEnd, end + 1) != std::string::npos)
    return std::nullopt;
  const std::size_t first = begin + kBegin.size();
  const std::size_t after = std::min(end + kEnd.size(), contents.size());
  return ManagedBlock{whole.substr(0, begin), whole.substr(first, end - first),
                      contents.substr(after)};
}

std::string joinManagedBlock(const ManagedBlock& block) {
  if (block.lines.empty()) return block.before + block.after;
  const bool isOpen = !block.before.empty() && block.before.back() != '\n';
  return block.before + (isOpen ? "\n" : "") + kManagedBlockBegin + block.lines + kManagedBlockEnd +
         block.after;
}

}  // namespace paddock
