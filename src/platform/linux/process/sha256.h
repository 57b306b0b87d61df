// SHA-256 (FIPS 180-4), for names that must not be made to collide; no secrets pass here.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace paddock {

std::array<std::uint8_t, 32> sha256(std::string_view text);

}  // namespace paddock
