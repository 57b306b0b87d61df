// Text for people: nothing in it can steer a terminal.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

// The text with each byte of a control character (also DEL and U+0080 to U+009F), and each byte
// that is not UTF-8, as \xNN.
std::string printable(std::string_view text);

// The same, line feeds kept.
std::string printableLines(std::string_view text);

}  // namespace paddock
