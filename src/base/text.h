// Locale-independent text helpers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace paddock {

// Converts ASCII letters to lower case; other bytes are unchanged.
std::string asciiLower(std::string_view text);

// An optional sign and decimal digits, and nothing else. Absent otherwise, and when the number
// does not fit.
std::optional<std::int64_t> parseInteger(std::string_view text);

// The number that the text begins with: white space, an optional sign and decimal digits; what
// follows does not count. 0 when there is none, the nearest 32-bit number when it does not fit.
std::int32_t leadingInteger(std::string_view text);

// Whether the bytes are well-formed UTF-8 (RFC 3629: no surrogates, no overlong forms,
// nothing above U+10FFFF). Empty text is.
bool isValidUtf8(std::string_view text);

// The bytes of the well-formed character that starts the text; 0 when none does.
std::size_t utf8CharacterSize(std::string_view text);

// The number of characters (code points) of well-formed UTF-8 text.
std::size_t utf8Length(std::string_view text);

// The first `count` characters of well-formed UTF-8 text, or all of it.
std::string_view utf8Prefix(std::string_view text, std::size_t count);

// Text for display: contains no terminal control sequences.

// Whether a character of well-formed UTF-8 is one that must not be shown as it is: a control
// character (also DEL and U+0080 to U+009F), one that breaks lines or reorders text (U+2028 to
// U+202E, U+2066 to U+2069), and the marks that do so without being seen (U+061C, U+200E, U+200F).
bool isUnprintable(std::string_view character);

// The text with each byte of such a character, and each byte that is not UTF-8, as \xNN.
std::string printable(std::string_view text);

// The same, line feeds kept.
std::string printableLines(std::string_view text);

// Tables for display.

// Rows of printable cells as lines, each column as wide as its widest cell, two blanks between.
std::string formatTable(const std::vector<std::vector<std::string>>& rows);

}  // namespace paddock
