#include "effectiveprivs/text_table.h"

#include <algorithm>

namespace paddock::effectiveprivs {

std::string textTable(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t at = 0; at < row.size(); ++at)
      widths[at] = std::max(widths[at], row[at].size());
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t at = 0; at < row.size(); ++at) {
      text += "  " + row[at];
      if (at + 1 < row.size()) text.append(widths[at] - row[at].size(), ' ');
    }
    text += '\n';
  }
  return text;
}

}  // namespace paddock::effectiveprivs
