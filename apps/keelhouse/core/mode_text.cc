#include "keelhouse/core/mode_text.h"

#include <algorithm>

#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kPermissions = 3;

bool isOctal(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char digit) { return digit >= '0' && digit <= '7'; });
}

bool isMode(std::string_view text) {
  return isOctal(text) && (text.size() == kPermissions || text.size() == kPermissions + 1);
}

// The letters of a class, as ls(1) has them: its special bit in the place of "x".
std::string lettersOf(char digit, bool special, char mark) {
  const auto bits = static_cast<unsigned>(digit - '0');
  const bool executes = (bits & 1U) != 0;
  std::string letters;
  letters += (bits & 4U) != 0 ? 'r' : '-';
  letters += (bits & 2U) != 0 ? 'w' : '-';
  if (special) return letters += executes ? mark : static_cast<char>(mark - 'a' + 'A');
  return letters += executes ? 'x' : '-';
}

}  // namespace

TypedMode parseMode(const std::string& text) {
  if (!isMode(text)) {
    throw usageFailure(
        "\"" + text +
        "\" is no mode: write three octal digits, such as 750, or four, such as 2770");
  }
  if (text.size() == kPermissions) return {text, std::nullopt};
  return {text.substr(1), text.substr(0, 1)};
}

std::string formatMode(const std::string& digits) {
  if (!isMode(digits)) return digits;
  const TypedMode mode = parseMode(digits);
  const auto special = static_cast<unsigned>(mode.bits.value_or("0").front() - '0');
  const std::string letters = lettersOf(mode.permissions[0], (special & 4U) != 0, 's') +
                              lettersOf(mode.permissions[1], (special & 2U) != 0, 's') +
                              lettersOf(mode.permissions[2], (special & 1U) != 0, 't');
  return (special != 0 ? digits : mode.permissions) + " (" + letters + ")";
}

}  // namespace paddock::keelhouse
