#include "platform/linux/acl/nt_acl_bytes.h"

#include "base/text.h"

namespace paddock::nt_acl {

namespace {

constexpr std::size_t kAuthorityBytes = 6;

std::uint64_t byteAt(std::string_view bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]);
}

}  // namespace

std::string_view Reader::take(std::size_t count) {
  if (failed_ || count > bytes_.size() - position_) {
    failed_ = true;
    return {};
  }
  const std::string_view taken = bytes_.substr(position_, count);
  position_ += count;
  return taken;
}

std::uint64_t Reader::littleEndian(std::size_t count) {
  const std::string_view bytes = take(count);
  std::uint64_t value = 0;
  for (std::size_t at = bytes.size(); at > 0; --at) value = value << 8U | byteAt(bytes, at - 1);
  return value;
}

std::uint64_t Reader::authority() {
  const std::string_view bytes = take(kAuthorityBytes);
  std::uint64_t value = 0;
  for (std::size_t at = 0; at < bytes.size(); ++at) value = value << 8U | byteAt(bytes, at);
  return value;
}

void Reader::skipText() {
  const auto end = bytes_.find('\0', position_);
  if (end == std::string_view::npos || !isValidUtf8(take(end - position_)))
    failed_ = true;
  else
    take(1);
}

void Writer::littleEndian(std::uint64_t value, std::size_t count) {
  for (std::size_t at = 0; at < count; ++at) bytes_ += static_cast<char>(value >> (8 * at));
}

void Writer::authority(std::uint64_t value) {
  for (std::size_t at = kAuthorityBytes; at > 0; --at)
    bytes_ += static_cast<char>(value >> (8 * (at - 1)));
}

}  // namespace paddock::nt_acl
