// Entity tags of the states in replies.
#pragma once

#include <string>
#include <string_view>

namespace paddock {

// SHA-256 (FIPS 180-4) of the state, in hexadecimal digits: collision-resistant, since parts of a
// state may be chosen by others, such as the list of a folder that a file server's client may
// change.
std::string stateTag(std::string_view state);

}  // namespace paddock
