#include "privileges/ace_numbers.h"

#include <charconv>

namespace paddock {

namespace {

// A number above the signed range, as itself or as its text.
std::optional<std::uint64_t> readLarge(const Value* value) {
  if (value == nullptr) return std::nullopt;
  if (const std::uint64_t* number = value->unsignedInteger()) return *number;
  const std::string* text = value->string();
  if (text == nullptr) return std::nullopt;
  std::uint64_t number = 0;
  const char* end = text->data() + text->size();
  const auto parsed = std::from_chars(text->data(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return number;
}

}  // namespace

std::uint32_t readBits(const Value* value) {
  if (const auto number = readInteger(value)) return static_cast<std::uint32_t>(*number);
  return static_cast<std::uint32_t>(readLarge(value).value_or(0));
}

std::optional<std::int64_t> readId(const Value* value) {
  if (const auto number = readInteger(value)) return number;
  return readLarge(value) ? std::optional<std::int64_t>(-1) : std::nullopt;
}

}  // namespace paddock
