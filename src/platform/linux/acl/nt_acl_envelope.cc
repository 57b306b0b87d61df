#include "platform/linux/acl/nt_acl_envelope.h"

namespace paddock::nt_acl {

namespace {

constexpr std::uint16_t kVersionWritten = 1;
constexpr std::uint16_t kLastVersion = 4;
// What NDR writes for the first pointer that is not null; any number but zero would do.
constexpr std::uint32_t kReferent = 0x00020000;

constexpr std::size_t kOldHashBytes = 16;
constexpr std::size_t kHashBytes = 64;
constexpr std::size_t kTimeBytes = 8;

// Passes over what the versions 2, 3 and 4 hold between the pointers and the descriptor.
void skipDetails(Reader& reader, std::uint16_t version) {
  if (version == 2) {
    reader.take(kOldHashBytes);
    return;
  }
  reader.u16();  // type of the hash
  reader.take(kHashBytes);
  if (version == 4) {
    reader.skipText();
    reader.alignTo4();
    reader.take(kTimeBytes);
    reader.take(kHashBytes);
  }
  reader.alignTo4();
}

}  // namespace

std::optional<std::size_t> descriptorPosition(std::string_view value) {
  Reader reader(value);
  const std::uint16_t version = reader.u16();
  const std::uint16_t unionTag = reader.u16();
  if (version == 0 || version > kLastVersion || unionTag != version) return std::nullopt;
  bool present = reader.u32() != 0;
  if (version > 1) {
    present = reader.u32() != 0 && present;
    skipDetails(reader, version);
  }
  if (!present || reader.failed()) return std::nullopt;
  return reader.position();
}

void writeEnvelope(Writer& writer) {
  writer.u16(kVersionWritten);
  writer.u16(kVersionWritten);
  writer.u32(kReferent);
}

}  // namespace paddock::nt_acl
