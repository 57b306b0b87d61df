#include "platform/linux/acl/nt_acl_packet.h"

#include <algorithm>
#include <limits>

namespace paddock::nt_acl {

namespace {

constexpr std::uint8_t kSidRevision = 1;
constexpr std::size_t kMaximumSubAuthorities = 15;
constexpr unsigned kAuthorityBits = 48;

}  // namespace

std::optional<Sid> readSid(Reader& reader) {
  const bool known = reader.u8() == kSidRevision;
  const std::size_t count = reader.u8();
  if (!known || count > kMaximumSubAuthorities) return std::nullopt;
  Sid sid;
  sid.authority = reader.authority();
  sid.subAuthorities.resize(count);
  for (std::uint32_t& subAuthority : sid.subAuthorities) subAuthority = reader.u32();
  if (reader.failed()) return std::nullopt;
  return sid;
}

bool fits(const Sid& sid) {
  return sid.authority >> kAuthorityBits == 0 &&
         sid.subAuthorities.size() <= kMaximumSubAuthorities;
}

void writeSid(Writer& writer, const Sid& sid) {
  writer.u8(kSidRevision);
  writer.u8(static_cast<std::uint8_t>(sid.subAuthorities.size()));
  writer.authority(sid.authority);
  for (const std::uint32_t subAuthority : sid.subAuthorities) writer.u32(subAuthority);
}

namespace {

constexpr std::size_t kAceHeaderBytes = 4;
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
  if (header.failed() || size < kAceHeaderBytes || size % 4 != 0) return {};
  return reader.take(size);
}

bool writeForeign(Writer& writer, const Ace& ace) {
  std::string entry = ace.foreign;
  if (entry.size() < kAceHeaderBytes) return false;
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
  Reader body(entry.substr(kAceHeaderBytes));
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

namespace {

constexpr std::size_t kListHeaderBytes = 8;
// Revisions, with the reserved byte behind them, which is zero.
constexpr std::uint16_t kPlainRevision = 2;
constexpr std::uint16_t kObjectRevision = 4;

std::optional<std::vector<Ace>> readEntries(Reader entries, std::size_t count) {
  std::vector<Ace> list;
  list.reserve(count);
  for (std::size_t at = 0; at < count; ++at) {
    auto ace = readAce(entries);
    if (!ace) return std::nullopt;
    list.push_back(std::move(*ace));
  }
  if (!entries.finished()) return std::nullopt;
  return list;
}

std::uint16_t revisionOf(const std::vector<Ace>& list) {
  return std::any_of(list.begin(), list.end(),
                     [](const Ace& ace) { return isObjectType(ace.type); })
             ? kObjectRevision
             : kPlainRevision;
}

}  // namespace

std::optional<std::vector<Ace>> readList(Reader& reader) {
  const std::uint16_t revision = reader.u16();
  const std::size_t size = reader.u16();
  // The reserved half behind the count is zero, so the two read as one number.
  const std::uint32_t count = reader.u32();
  if (revision != kPlainRevision && revision != kObjectRevision) return std::nullopt;
  if (reader.failed() || size < kListHeaderBytes || count > kMaximumEntries) return std::nullopt;
  const std::string_view entries = reader.take(size - kListHeaderBytes);
  if (reader.failed()) return std::nullopt;
  return readEntries(Reader(entries), count);
}

bool writeList(Writer& writer, const std::vector<Ace>& list) {
  if (list.size() > kMaximumEntries) return false;
  Writer entries;
  for (const Ace& ace : list)
    if (!writeAce(entries, ace)) return false;
  const std::size_t size = kListHeaderBytes + entries.size();
  if (size > std::numeric_limits<std::uint16_t>::max()) return false;
  writer.u16(revisionOf(list));
  writer.u16(static_cast<std::uint16_t>(size));
  writer.u32(static_cast<std::uint32_t>(list.size()));
  writer.append(std::move(entries).finish());
  return true;
}

}  // namespace paddock::nt_acl
