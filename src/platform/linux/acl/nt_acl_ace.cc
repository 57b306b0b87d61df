#include "platform/linux/acl/nt_acl_ace.h"

#include "platform/linux/acl/nt_acl_sid.h"

namespace paddock::nt_acl {

namespace {

constexpr std::size_t kHeaderBytes = 4;
constexpr std::size_t kFlagsAt = 1;
constexpr std::size_t kFixedBytes = 16;  // header, mask, and a SID without sub-authorities
constexpr std::size_t kSubAuthorityBytes = 4;
constexpr std::size_t kGuidBytes = 16;
constexpr std::uint32_t kObjectTypePresent = 1;
constexpr std::uint32_t kInheritedObjectTypePresent = 2;

bool isOrdinary(std::uint8_t type) { return type == kAllowed || type == kDenied; }

void skipObjectFields(Reader& body) {
  const std::uint32_t present = body.u32();
  if ((present & kObjectTypePresent) != 0) body.take(kGuidBytes);
  if ((present & kInheritedObjectTypePresent) != 0) body.take(kGuidBytes);
}

// What stands behind the header.
bool readBody(Reader& body, Ace& ace) {
  ace.mask = body.u32();
  if (isObjectType(ace.type)) skipObjectFields(body);
  auto sid = readSid(body);
  if (!sid) return false;
  ace.sid = std::move(*sid);
  return !isOrdinary(ace.type) || body.finished();
}

// The entry's type, flags and size, and the bytes of the whole entry; empty when they lead outside.
std::string_view readHeader(Reader& reader, Ace& ace) {
  Reader header = reader;
  ace.type = header.u8();
  ace.flags = header.u8();
  const std::size_t size = header.u16();
  if (header.failed() || size < kHeaderBytes || size % 4 != 0) return {};
  return reader.take(size);
}

bool writeForeign(Writer& writer, const Ace& ace) {
  std::string entry = ace.foreign;
  if (entry.size() < kHeaderBytes) return false;
  entry[kFlagsAt] = static_cast<char>(ace.flags);
  Reader reader(entry);
  if (readAce(reader) != Ace{ace.type, ace.flags, ace.mask, ace.sid, entry} || !reader.finished())
    return false;
  writer.append(entry);
  return true;
}

}  // namespace

bool isObjectType(std::uint8_t type) {
  switch (type) {
    case 0x05:  // allowed, denied, audit, alarm
    case 0x06:
    case 0x07:
    case 0x08:
    case 0x0B:  // the same with a condition
    case 0x0C:
    case 0x0F:
    case 0x10:
      return true;
    default:
      return false;
  }
}

std::optional<Ace> readAce(Reader& reader) {
  Ace ace;
  const std::string_view entry = readHeader(reader, ace);
  if (entry.empty()) return std::nullopt;
  Reader body(entry.substr(kHeaderBytes));
  if (!readBody(body, ace)) return std::nullopt;
  if (!isOrdinary(ace.type)) ace.foreign = entry;
  return ace;
}

bool writeAce(Writer& writer, const Ace& ace) {
  if (!isOrdinary(ace.type)) return writeForeign(writer, ace);
  if (!ace.foreign.empty() || !fits(ace.sid)) return false;
  writer.u8(ace.type);
  writer.u8(ace.flags);
  writer.u16(
      static_cast<std::uint16_t>(kFixedBytes + kSubAuthorityBytes * ace.sid.subAuthorities.size()));
  writer.u32(ace.mask);
  writeSid(writer, ace.sid);
  return true;
}

}  // namespace paddock::nt_acl
