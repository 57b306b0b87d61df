// POSIX modes as people write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace paddock::keelhouse {

struct TypedMode {
  std::string permissions;          // three octal digits
  std::optional<std::string> bits;  // the digit before them, when there was one: set-id and sticky
};

// "750", "2770" or "0750". Throws Failure (usage) for any other text.
TypedMode parseMode(const std::string& text);

// "750 (rwxr-x---)" of "750" and of "0750", "2770 (rwxrws---)" of "2770"; any other text as it is.
std::string formatMode(const std::string& digits);

}  // namespace paddock::keelhouse
