// What the log says of an exception.
#pragma once

#include <string>

namespace paddock {

// The exception that is being handled: its status number where it has one, otherwise its
// description. Precondition: an exception is being handled.
std::string describe_current_exception();

// Its description, also where it has a status number. The same precondition.
std::string reason_of_current_exception();

}  // namespace paddock
