#include "platform/linux/acl/nt_acl.h"

#include <algorithm>
#include <utility>

#include "platform/linux/acl/nt_acl_bytes.h"
#include "platform/linux/acl/nt_acl_packet.h"

namespace paddock::nt_acl {

namespace {

constexpr std::uint8_t kRevision = 1;
constexpr std::uint16_t kResourceManagerValid = 0x4000;
constexpr std::uint16_t kSystemListPresent = 0x0010;
constexpr std::size_t kHeaderBytes = 20;

// The fixed part of a descriptor. Offsets count from the start of the whole value, not from that of
// the descriptor; 0 stands for a part that is not there.
struct Header {
  std::uint16_t control = 0;
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint32_t systemList = 0;
  std::uint32_t list = 0;
};

std::optional<Header> readHeader(Reader& reader) {
  const std::uint8_t revision = reader.u8();
  const std::uint8_t resourceManager = reader.u8();
  Header header;
  header.control = reader.u16();
  header.owner = reader.u32();
  header.group = reader.u32();
  header.systemList = reader.u32();
  header.list = reader.u32();
  if (reader.failed() || revision != kRevision) return std::nullopt;
  if (resourceManager != 0 && (header.control & kResourceManagerValid) == 0) return std::nullopt;
  if (header.list != 0 && (header.control & kControlListPresent) == 0) return std::nullopt;
  if (header.systemList != 0 && (header.control & kSystemListPresent) == 0) return std::nullopt;
  return header;
}

// The parts behind a descriptor's header, read in any order and remembered by where they stand.
class Parts {
 public:
  explicit Parts(std::string_view value) : value_(value) {}

  // Reads the part at an offset, if there is one, into `part`. False when it does not decode.
  template <typename Part, typename Read>
  bool read(std::uint32_t offset, Read readPart, std::optional<Part>& part) {
    if (offset == 0) return true;
    Reader reader(value_);
    reader.take(offset);
    part = readPart(reader);
    places_.emplace_back(offset, reader.position());
    return part.has_value();
  }

  // Whether the parts fill everything from `begin` to the value's end, without gap or overlap.
  bool fill(std::size_t begin) {
    std::sort(places_.begin(), places_.end());
    for (const auto& [first, end] : places_) {
      if (first != begin) return false;
      begin = end;
    }
    return begin == value_.size();
  }

 private:
  std::string_view value_;
  std::vector<std::pair<std::size_t, std::size_t>> places_;
};

std::uint32_t writeSidPart(Writer& parts, std::size_t begin, const std::optional<Sid>& sid) {
  if (!sid) return 0;
  const std::size_t offset = begin + parts.size();
  writeSid(parts, *sid);
  return static_cast<std::uint32_t>(offset);
}

bool fits(const Descriptor& descriptor) {
  return (!descriptor.owner || fits(*descriptor.owner)) &&
         (!descriptor.group || fits(*descriptor.group)) &&
         (!descriptor.list || (descriptor.control & kControlListPresent) != 0);
}

void writeHeader(Writer& writer, const Header& header) {
  writer.u8(kRevision);
  writer.u8(0);
  writer.u16(header.control);
  writer.u32(header.owner);
  writer.u32(header.group);
  writer.u32(header.systemList);
  writer.u32(header.list);
}

}  // namespace

std::optional<Descriptor> decode(std::string_view value) {
  const auto start = descriptorPosition(value);
  if (!start) return std::nullopt;
  Reader reader(value);
  reader.take(*start);
  const auto header = readHeader(reader);
  if (!header) return std::nullopt;

  Descriptor descriptor{header->control, {}, {}, {}};
  std::optional<std::vector<Ace>> systemList;
  Parts parts(value);
  if (!parts.read(header->owner, readSid, descriptor.owner) ||
      !parts.read(header->group, readSid, descriptor.group) ||
      !parts.read(header->systemList, readList, systemList) ||
      !parts.read(header->list, readList, descriptor.list) || !parts.fill(reader.position()))
    return std::nullopt;
  return descriptor;
}

std::optional<std::string> encode(const Descriptor& descriptor) {
  if (!fits(descriptor)) return std::nullopt;
  Writer value;
  writeEnvelope(value);
  const std::size_t begin = value.size() + kHeaderBytes;

  Writer parts;
  Header header;
  header.control = descriptor.control;
  header.owner = writeSidPart(parts, begin, descriptor.owner);
  header.group = writeSidPart(parts, begin, descriptor.group);
  if (descriptor.list) {
    header.list = static_cast<std::uint32_t>(begin + parts.size());
    if (!writeList(parts, *descriptor.list)) return std::nullopt;
  }
  writeHeader(value, header);
  value.append(std::move(parts).finish());
  return std::move(value).finish();
}

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
