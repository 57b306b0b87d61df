// Base64 (RFC 4648, section 4, with padding).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace paddock::wire {

std::string encodeBase64(const std::vector<std::uint8_t>& bytes);
// Nothing for a text that is not base64; no white space is skipped.
std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text);

}  // namespace paddock::wire
