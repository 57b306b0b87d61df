// The number of an exception that left an operation.
#pragma once

#include <cstdint>
#include <exception>

namespace paddock {

// The status that the exception knows (see base/numbered_error.h), the errno of a system error, EIO
// for every other exception.
std::int64_t failureNumber(const std::exception& thrown);

}  // namespace paddock
