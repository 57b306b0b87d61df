// A reply as lines, one per leaf.
#pragma once

#include <string>
#include <string_view>

#include "base/value.h"

namespace paddock::keelhouse {

// "SHORTNAME:KEYPATH = VALUE" and a line feed for each leaf below the dictionary: numbers bare,
// booleans as true and false, strings and data as JSON writes them, elements by their index. The
// leaf "status" comes first, the others in the order of their keys; empty dictionaries and arrays
// have no line.
std::string formatLeaves(std::string_view shortName, const Dictionary& reply);

}  // namespace paddock::keelhouse
