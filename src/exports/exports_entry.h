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

// How many bytes at the beginning of `text`, which does not begin with white space or a line break,
// belong to the first line and to the entries that begin on it, the line break at their end
// included. From a word that exportfs refuses on, which ends its reading, it is the rest of the
// line on which the word begins.
std::size_t exportsEntryLength(std::string_view text);

// Whether `entry`, which ends in a line break, takes what is put behind it for its own.
bool takesNextLine(std::string_view entry);

// The entry as one line: each backslash with the line break and the white space behind it as one
// blank.
std::string joinedExportsEntry(std::string_view entry);

}  // namespace paddock
