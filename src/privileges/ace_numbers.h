// Numbers in an entry's dictionary: integers, booleans as 0 or 1, decimal texts. `value` may be
// null.
#pragma once

#include <cstdint>
#include <optional>

#include "base/value.h"

namespace paddock {

// The lowest 32 bits of a number of either sign; none when there is no number.
std::uint32_t readBits(const Value* value);

// An id or a kind; absent when there is no number. One above the signed range reads as -1: it is
// there, is not 0, and is no id.
std::optional<std::int64_t> readId(const Value* value);

}  // namespace paddock
