#include "wire/text_position.h"

#include <algorithm>

#include "base/text.h"
#include "wire/json.h"

namespace paddock::wire {

std::string describeAt(std::string_view text, std::size_t offset, std::string_view what) {
  const std::string_view before = text.substr(0, std::min(offset, text.size()));
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const std::size_t lastBreak = before.rfind('\n');
  const std::size_t column =
      lastBreak == std::string_view::npos ? before.size() + 1 : before.size() - lastBreak;
  std::string message = "line " + std::to_string(line) + ", column " + std::to_string(column);
  message += ": ";
  message += what;
  return message;
}

std::string quoteForMessage(std::string_view text) {
  constexpr std::size_t kShown = 60;
  const std::string_view shown = utf8Prefix(text, kShown);
  return quoteJson(shown) + (shown.size() < text.size() ? "..." : "");
}

}  // namespace paddock::wire
