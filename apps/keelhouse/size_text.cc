#include "keelhouse/size_text.h"

#include <array>
#include <charconv>

namespace paddock::keelhouse {

namespace {

constexpr std::array kUnits = {" B", " KiB", " MiB", " GiB", " TiB", " PiB", " EiB"};

std::string digits(double number, int behindPoint) {
  std::array<char, 32> buffer{};
  const auto end =
      std::to_chars(buffer.begin(), buffer.end(), number, std::chars_format::fixed, behindPoint);
  return {buffer.begin(), end.ptr};
}

}  // namespace

std::string formatSize(std::uint64_t bytes) {
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  // What would be rounded to 1024 of a unit is one of the next.
  for (; amount >= 1023.5 && unit + 1 < kUnits.size(); ++unit) amount /= 1024;
  const bool withTenths = unit > 0 && amount < 9.95;
  return digits(amount, withTenths ? 1 : 0) + kUnits.at(unit);
}

}  // namespace paddock::keelhouse
