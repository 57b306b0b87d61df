// Tables for people.
#pragma once

#include <string>
#include <vector>

namespace paddock {

// Rows of printable cells as lines, each column as wide as its widest cell, two blanks between.
std::string formatTable(const std::vector<std::vector<std::string>>& rows);

}  // namespace paddock
