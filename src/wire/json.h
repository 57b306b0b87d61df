// JSON (RFC 8259) and the value tree, one to one.
//
// object = dictionary, array = array, string = string, integer = number (the full signed and
// unsigned 64-bit ranges), true and false = boolean, {"$data": "BASE64"} (that one key, a string)
// = data. A null member reads as a missing key.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock::wire {

inline constexpr std::size_t kMaximumNesting = 64;

// Reads one JSON text. Nothing on failure, with `error` saying what is wrong and where ("line 1,
// column 7: ..."): malformed text, a number with a fraction or an exponent or beyond the 64-bit
// ranges, a null that is not a member, a repeated key, invalid UTF-8, nesting deeper than 64,
// data whose text is no base64 (RFC 4648, padded), bytes after the value.
std::optional<Value> parseJson(std::string_view text, std::string& error);

// Compact JSON text, UTF-8, keys in order. A string that is not UTF-8 is written with U+FFFD for
// each byte that is wrong. Null is written as null.
std::string writeJson(const Value& value);

// The same over several lines, two blanks per level, for a person.
std::string writeJsonPretty(const Value& value);

// A string as a JSON string, quotes included.
std::string quoteJson(std::string_view text);

// Positions in a text, for messages.

// "line 3, column 7: what": both counted from 1, columns in bytes, of the byte at `offset` (the
// place behind the last byte when the offset is beyond the text).
std::string describeAt(std::string_view text, std::size_t offset, std::string_view what);

// Text from outside as it may stand in a message: quoted as JSON does it, cut after 60 characters.
std::string quoteForMessage(std::string_view text);

}  // namespace paddock::wire
