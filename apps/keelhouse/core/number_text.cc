#include "keelhouse/core/number_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "base/text.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

constexpr std::array kUnits = {" B", " KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};

std::string digits(double number, int behindPoint) {
  std::array<char, 32> buffer{};
  const auto end =
      std::to_chars(buffer.begin(), buffer.end(), number, std::chars_format::fixed, behindPoint);
  return {buffer.begin(), end.ptr};
}

constexpr std::string_view kPrefixes = "kmgtpe";

// The bytes of one unit: "", "b", "k", "kib", "kb" and so on.
std::optional<long double> unitOf(std::string_view unit) {
  if (unit.empty() || unit == "b") return 1;
  const std::size_t power = kPrefixes.find(unit.front());
  const std::string_view rest = unit.substr(1);
  if (power == std::string_view::npos || (!rest.empty() && rest != "b" && rest != "ib")) {
    return std::nullopt;
  }
  return std::pow(rest == "b" ? 1000.0L : 1024.0L, static_cast<long double>(power + 1));
}

}  // namespace

std::optional<std::uint64_t> parseSize(std::string_view text) {
  const std::string lower = asciiLower(text);
  long double number = 0;
  const auto parsed =
      std::from_chars(lower.data(), lower.data() + lower.size(), number, std::chars_format::fixed);
  // "nan" and "inf" are numbers to the library.
  if (parsed.ec != std::errc() || lower.empty() || lower.front() < '0' || lower.front() > '9') {
    return std::nullopt;
  }
  std::string_view unit(lower);
  unit.remove_prefix(static_cast<std::size_t>(parsed.ptr - lower.data()));
  unit.remove_prefix(std::min(unit.find_first_not_of(' '), unit.size()));
  const auto size = unitOf(unit);
  constexpr long double kMost = 9223372036854775807.0L;
  if (!size || number * *size > kMost) return std::nullopt;
  return static_cast<std::uint64_t>(number * *size);
}

std::string formatSize(std::uint64_t bytes) {
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  // What would be rounded to 1024 of a unit is one of the next.
  for (; amount >= 1023.5 && unit + 1 < kUnits.size(); ++unit) amount /= 1024;
  const bool withTenths = unit > 0 && amount < 9.95;
  return digits(amount, withTenths ? 1 : 0) + kUnits.at(unit);
}

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
