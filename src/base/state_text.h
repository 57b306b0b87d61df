// A state as one text, for a tag by which a client names what it has seen.
#pragma once

#include <string>

#include "base/value.h"

namespace paddock {

// A text that is the same for two values exactly when they are equal, whatever strings they hold.
std::string stateText(const Value& value);

}  // namespace paddock
