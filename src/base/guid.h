// GUIDs: 16 bytes that name a user or group.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace paddock {

struct Guid {
  std::array<std::uint8_t, 16> bytes{};
  friend auto operator<=>(const Guid&, const Guid&) = default;
};

// The canonical text: 36 characters, 8-4-4-4-12 upper-case hexadecimal digits.
std::string guidText(const Guid& guid);

// Reads that form, digits in either case. Absent for any other text.
std::optional<Guid> parseGuid(std::string_view text);

}  // namespace paddock
