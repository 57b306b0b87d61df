// Cursors over the little-endian bytes of a descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace paddock::nt_acl {

// Forward reader. A read past the end yields zero or an empty view and marks the reader as failed
// for good, so that callers may read several fields and check once.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}

  bool failed() const { return failed_; }
  // Not failed, and nothing left.
  bool finished() const { return !failed_ && position_ == bytes_.size(); }
  // Bytes from the start; never more than there are.
  std::size_t position() const { return position_; }

  std::uint8_t u8() { return static_cast<std::uint8_t>(littleEndian(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(littleEndian(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(littleEndian(4)); }
  // The one big-endian field, a SID's authority.
  std::uint64_t authority();
  // The next `count` bytes, a view into the reader's; empty when there are not as many.
  std::string_view take(std::size_t count);
  // Moves to the next multiple of 4 from the start. The padding's contents are ignored.
  void alignTo4() { take((4 - position_ % 4) % 4); }
  // Moves past the next NUL. The text before it must be UTF-8.
  void skipText();

 private:
  std::uint64_t littleEndian(std::size_t count);

  std::string_view bytes_;
  std::size_t position_ = 0;
  bool failed_ = false;
};

// Appends to a text.
class Writer {
 public:
  void u8(std::uint8_t value) { littleEndian(value, 1); }
  void u16(std::uint16_t value) { littleEndian(value, 2); }
  void u32(std::uint32_t value) { littleEndian(value, 4); }
  void authority(std::uint64_t value);
  void append(std::string_view bytes) { bytes_ += bytes; }

  std::size_t size() const { return bytes_.size(); }
  std::string&& finish() && { return static_cast<std::string&&>(bytes_); }

 private:
  void littleEndian(std::uint64_t value, std::size_t count);

  std::string bytes_;
};

}  // namespace paddock::nt_acl
