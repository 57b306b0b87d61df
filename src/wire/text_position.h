// Where in a text something is, for people.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace paddock::wire {

// "line 3, column 7: what": both counted from 1, columns in bytes, of the byte at `offset` (the
// place behind the last byte when the offset is beyond the text).
std::string describeAt(std::string_view text, std::size_t offset, std::string_view what);

// Text from outside as it may stand in a message: quoted as JSON does it, cut after 60 characters.
std::string quoteForMessage(std::string_view text);

}  // namespace paddock::wire
