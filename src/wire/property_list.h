// XML property lists and the value tree.
//
// <dict>, <array>, <string>, <integer> (the full signed and unsigned 64-bit ranges), <true/>,
// <false/>, <data> (base64). Written without a document type declaration. One that names an
// identifier and has no internal subset, as common writers make it, is read over: nothing is
// fetched, and no entity is defined by it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock::wire {

// Reads one property list. Nothing on failure, with `error` saying what is wrong: malformed XML,
// another document type declaration, an unknown element, a repeated key, a key without a value,
// invalid UTF-8, a number or base64 text that is none, nesting deeper than 64 (see
// kMaximumNesting).
std::optional<Value> parsePropertyList(std::string_view text, std::string& error);

// The list with its XML declaration. Bytes that XML cannot carry are written as \xNN. Null has no
// element: an array leaves it out.
std::string writePropertyList(const Value& value);

// Whether every text and key is one that XML can carry, so that what is written says it as it is.
bool fitsPropertyList(const Value& value);

}  // namespace paddock::wire
