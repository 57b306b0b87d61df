// Words of commands that a message tells the user to type.
#pragma once

#include <string>
#include <string_view>

namespace paddock::keelhouse {

// The text as one word of a POSIX shell, in single quotes where it needs them.
std::string shellWord(std::string_view text);

}  // namespace paddock::keelhouse
