#include "platform/linux/accounts/host_accounts.h"

#include <limits>

#include "base/text.h"

namespace paddock {

namespace {

// The field that starts the text, which is cut off it with its colon.
std::string_view takeField(std::string_view& line) {
  const std::size_t colon = line.find(':');
  const std::string_view field = line.substr(0, colon);
  line = colon == std::string_view::npos ? std::string_view() : line.substr(colon + 1);
  return field;
}

}  // namespace

void AccountLinesIndex::add(std::string_view lines) {
  while (!lines.empty()) {
    const std::size_t end = lines.find('\n');
    std::string_view line = lines.substr(0, end);
    lines = end == std::string_view::npos ? std::string_view() : lines.substr(end + 1);
    const std::string_view name = takeField(line);
    takeField(line);
    const auto id = parseInteger(takeField(line));
    if (name.empty() || name.find_first_of("#+-") == 0) continue;
    if (!id || *id < 0 || *id > std::numeric_limits<std::uint32_t>::max()) continue;
    byName_.try_emplace(std::string(name), static_cast<std::uint32_t>(*id));
    ids_.insert(static_cast<std::uint32_t>(*id));
  }
}

std::optional<std::uint32_t> AccountLinesIndex::idOf(const std::string& name) const {
  const auto found = byName_.find(name);
  return found != byName_.end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace paddock
