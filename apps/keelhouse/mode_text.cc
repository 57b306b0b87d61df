#include "keelhouse/mode_text.h"

#include <algorithm>

#include "keelhouse/failure.h"

namespace paddock::keelhouse {

namespace {

bool isOctal(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char digit) { return digit >= '0' && digit <= '7'; });
}

}  // namespace

std::string parseMode(const std::string& text) {
  const bool octal = isOctal(text);
  if (octal && text.size() == 3) return text;
  if (octal && text.size() == 4) {
    if (text.front() == '0') return text.substr(1);
    throw usageFailure(
        "\"" + text +
        "\" asks for set-id or sticky bits, which cannot be set here: write the three "
        "digits " +
        text.substr(1));
  }
  throw usageFailure("\"" + text + "\" is no mode: write three octal digits, such as 750");
}

std::string formatMode(const std::string& digits) {
  if (digits.size() != 3 || !isOctal(digits)) return digits;
  std::string letters;
  for (const char digit : digits) {
    const auto bits = static_cast<unsigned>(digit - '0');
    letters += (bits & 4U) != 0 ? 'r' : '-';
    letters += (bits & 2U) != 0 ? 'w' : '-';
    letters += (bits & 1U) != 0 ? 'x' : '-';
  }
  return digits + " (" + letters + ")";
}

}  // namespace paddock::keelhouse
