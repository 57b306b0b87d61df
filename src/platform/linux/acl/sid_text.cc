#include "platform/linux/acl/sid_text.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <limits>

#include "platform/linux/acl/nt_acl_sid.h"

namespace paddock::nt_acl {

namespace {

constexpr std::string_view kStart = "S-1-";
constexpr std::string_view kHexadecimal = "0x";
constexpr std::size_t kHexadecimalDigits = 12;

template <typename Number>
std::optional<Number> parseNumber(std::string_view text, int base) {
  Number number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<std::uint64_t> parseAuthority(std::string_view text) {
  if (text.substr(0, kHexadecimal.size()) != kHexadecimal)
    return parseNumber<std::uint32_t>(text, 10);
  text.remove_prefix(kHexadecimal.size());
  if (text.size() > kHexadecimalDigits) return std::nullopt;
  return parseNumber<std::uint64_t>(text, 16);
}

// The text up to the next hyphen, which is taken off with it. `text` is null behind the last one.
std::string_view takeField(std::optional<std::string_view>& text) {
  const auto hyphen = text->find('-');
  const std::string_view field = text->substr(0, hyphen);
  if (hyphen == std::string_view::npos)
    text.reset();
  else
    text->remove_prefix(hyphen + 1);
  return field;
}

std::string authorityText(std::uint64_t authority) {
  if (authority <= std::numeric_limits<std::uint32_t>::max()) return std::to_string(authority);
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "0x%012llx", static_cast<unsigned long long>(authority));
  return text.data();
}

}  // namespace

std::string sidText(const Sid& sid) {
  std::string text(kStart);
  text += authorityText(sid.authority);
  for (const std::uint32_t subAuthority : sid.subAuthorities)
    text.append("-").append(std::to_string(subAuthority));
  return text;
}

std::optional<Sid> parseSid(std::string_view text) {
  if (text.substr(0, kStart.size()) != kStart) return std::nullopt;
  std::optional<std::string_view> rest = text.substr(kStart.size());
  const auto authority = parseAuthority(takeField(rest));
  if (!authority) return std::nullopt;
  Sid sid{*authority, {}};
  while (rest) {
    const auto subAuthority = parseNumber<std::uint32_t>(takeField(rest), 10);
    if (!subAuthority) return std::nullopt;
    sid.subAuthorities.push_back(*subAuthority);
  }
  if (!fits(sid)) return std::nullopt;
  return sid;
}

}  // namespace paddock::nt_acl
