// POSIX modes as people write them.
#pragma once

#include <string>
#include <string_view>

namespace paddock::keelhouse {

// The three octal digits of "750" or "0750": what the daemon takes. Throws Failure (usage) for any
// other text, saying so when it asks for the set-id or sticky bits.
std::string parseMode(const std::string& text);

// "750 (rwxr-x---)" of "750"; any other text as it is.
std::string formatMode(const std::string& digits);

}  // namespace paddock::keelhouse
