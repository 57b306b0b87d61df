// Text for people: nothing in it can steer a terminal.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace paddock::keelhouse {

// The text with each byte of a control character (also DEL and U+0080 to U+009F), and each byte
// that is not UTF-8, as \xNN.
std::string printable(std::string_view text);

// The same, line feeds kept.
std::string printableLines(std::string_view text);

// Rows of printable cells as lines, each column as wide as its widest cell, two blanks between.
std::string formatTable(const std::vector<std::vector<std::string>>& rows);

}  // namespace paddock::keelhouse
