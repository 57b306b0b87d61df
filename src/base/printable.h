// Text for people: nothing in it can steer a terminal.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

// The text with each byte of a control character (also DEL and U+0080 to U+009F), of a character
// that breaks lines or reorders the text behind it (U+2028 to U+202E, U+2066 to U+2069), and each
// byte that is not UTF-8, as \xNN.
std::string printable(std::string_view text);

// The same, line feeds kept.
std::string printableLines(std::string_view text);

}  // namespace paddock
