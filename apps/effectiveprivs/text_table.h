// Tables for people.
#pragma once

#include <string>
#include <vector>

namespace paddock::effectiveprivs {

// Rows of printable cells as lines, each column as wide as its widest cell, two blanks before each.
std::string textTable(const std::vector<std::vector<std::string>>& rows);

}  // namespace paddock::effectiveprivs
