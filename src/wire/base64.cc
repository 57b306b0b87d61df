#include "wire/base64.h"

#include <array>

namespace paddock::wire {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 64;

constexpr std::array<std::uint8_t, 256> makeDigits() {
  std::array<std::uint8_t, 256> digits{};
  for (auto& digit : digits) digit = kNoDigit;
  for (std::size_t value = 0; value < kAlphabet.size(); ++value) {
    digits[static_cast<unsigned char>(kAlphabet[value])] = static_cast<std::uint8_t>(value);
  }
  return digits;
}

constexpr std::array<std::uint8_t, 256> kDigits = makeDigits();

std::uint8_t byteOf(std::uint32_t group, unsigned shift) {
  return static_cast<std::uint8_t>((group >> shift) & 0xFFU);
}

}  // namespace

std::string encodeBase64(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = bytes.size() - at < 3 ? bytes.size() - at : 3;
    std::uint32_t group = static_cast<std::uint32_t>(bytes[at]) << 16U;
    if (count > 1) group |= static_cast<std::uint32_t>(bytes[at + 1]) << 8U;
    if (count > 2) group |= bytes[at + 2];
    text += kAlphabet[(group >> 18U) & 63U];
    text += kAlphabet[(group >> 12U) & 63U];
    text += count > 1 ? kAlphabet[(group >> 6U) & 63U] : '=';
    text += count > 2 ? kAlphabet[group & 63U] : '=';
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> decodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  const std::string_view digits = text.substr(0, text.size() - padding);

  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t pending = 0;
  unsigned pendingBits = 0;
  for (const char character : digits) {
    const std::uint8_t digit = kDigits[static_cast<unsigned char>(character)];
    if (digit == kNoDigit) return std::nullopt;
    pending = (pending << 6U) | digit;
    pendingBits += 6;
    if (pendingBits >= 8) {
      pendingBits -= 8;
      bytes.push_back(byteOf(pending, pendingBits));
      pending &= (1U << pendingBits) - 1U;
    }
  }
  // Bits left over that are not zero: no encoder writes them, so this is damage.
  if (pending != 0) return std::nullopt;
  return bytes;
}

}  // namespace paddock::wire
