// The tags of the states that replies tell.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

// SHA-256 (FIPS 180-4) of the state, in hexadecimal digits: who may write into a state, such as the
// list of a folder that a file server's client may change, still finds no two that have one tag.
std::string stateTag(std::string_view state);

}  // namespace paddock
