// Amounts of bytes for people.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace paddock::keelhouse {

// "512 B", "1.5 KiB", "12 MiB": of the largest unit that gives at least 1, with one digit behind
// the point below 10, rounded to the nearest.
std::string formatSize(std::uint64_t bytes);

// The bytes of an amount as people write it: "10G", "500MiB", "1.5T", "200 kB", "4096". K, M, G, T,
// P and E are powers of 1024, with "iB" or without; with "B" alone behind them, of 1000. Letters in
// any case. Absent for what is no such amount, is negative or does not fit.
std::optional<std::uint64_t> parseSize(std::string_view text);

// POSIX modes as people write them.
struct TypedMode {
  std::string permissions;          // three octal digits
  std::optional<std::string> bits;  // the digit before them, when there was one: set-id and sticky
};

// "750", "2770" or "0750". Throws Failure (usage) for any other text.
TypedMode parseMode(const std::string& text);

// "750 (rwxr-x---)" of "750" and of "0750", "2770 (rwxrws---)" of "2770"; any other text as it is.
std::string formatMode(const std::string& digits);

}  // namespace paddock::keelhouse
