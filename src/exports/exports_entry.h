// Which lines belong to one entry of exports(5).
//
// A backslash before a line break joins two lines, outside comments; white space at the beginning
// of the second counts as nothing. A line break inside double quotes belongs to the word. As
// nfs-utils 2.6 reads it: "a \\", a blank line, "b" are two entries, of which the blank line ends
// the first; "a \\", "b" is one; "# a \\", "b" are two; a carriage return between the backslash and
// the line break makes the backslash an ordinary character.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace paddock {

// The words of an exports line, cut as nfs-utils cuts them. Internal to exports_line.cc and
// exports_entry.cc.
inline constexpr std::size_t kExportPathLimit = 1024;  // bytes
inline constexpr std::size_t kClientLimit = 511;       // bytes of a client with its options

// Whether the character ends a word that is not quoted.
bool isExportsSpace(char character);

// Appends a character the way nfs-utils fills its buffer; false when the buffer is full.
bool appendExportsCharacter(char character, std::size_t limit, std::string& word);

class ExportsTokens {
 public:
  enum class Next { word, end, fault };

  explicit ExportsTokens(std::string_view line) : rest_(line) {}

  // Reads the next word into `word`. `end` at the line's end and at a comment; `fault` for a
  // word that is too long, an open quote, and for what makes nfs-utils read on as if a new line
  // had begun (an empty quoted word, a control character that is white space).
  Next next(std::size_t limit, std::string& word);

 private:
  std::string_view rest_;
};

// The number of leading bytes of `text`, which does not begin with white space or a line break,
// that belong to the first line and to the entries that begin on it, including the final line
// break. At a word that exportfs refuses, which ends its parsing, the entry ends with the line on
// which the word begins.
std::size_t exportsEntryLength(std::string_view text);

// Whether `entry`, which ends in a line break, would continue on a line appended to it.
bool takesNextLine(std::string_view entry);

// The entry as one line: each backslash with the line break and the white space behind it as one
// blank.
std::string joinedExportsEntry(std::string_view entry);

}  // namespace paddock
