// A canonical text of a state, for entity tags.
#pragma once

#include <string>

#include "base/value.h"

namespace paddock {

// Injective serialisation: equal for two values exactly when the values are equal.
std::string stateText(const Value& value);

}  // namespace paddock
