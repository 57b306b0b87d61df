// Bytes written as hexadecimal text in a test.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace paddock {

// Lower-case digits; white space may stand between bytes. Anything else is a mistake in the test.
inline std::string hexBytes(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string bytes;
  int high = -1;
  for (const char character : text) {
    const auto digit = kDigits.find(character);
    if (character == ' ' && high < 0) continue;
    if (digit == std::string_view::npos) throw std::invalid_argument("not hexadecimal");
    if (high < 0) {
      high = static_cast<int>(digit);
    } else {
      bytes += static_cast<char>(high * 16 + static_cast<int>(digit));
      high = -1;
    }
  }
  if (high >= 0) throw std::invalid_argument("half a byte");
  return bytes;
}

}  // namespace paddock
