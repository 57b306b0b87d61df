#include "base/text_table.h"

#include <algorithm>

#include "base/text.h"

namespace paddock {

namespace {

std::vector<std::size_t> columnWidths(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], utf8Length(row[column]));
    }
  }
  return widths;
}

}  // namespace

std::string formatTable(const std::vector<std::vector<std::string>>& rows) {
  const auto widths = columnWidths(rows);
  std::string table;
  for (const auto& row : rows) {
    for (std::size_t column = 0; column < row.size(); ++column) {
      table += row[column];
      if (column + 1 == row.size()) break;
      table.append(widths[column] - utf8Length(row[column]) + 2, ' ');
    }
    table += '\n';
  }
  return table;
}

}  // namespace paddock
