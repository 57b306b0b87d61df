#include "samba/samba_attributes.h"

#include <nettle/sha2.h>
#include <sys/stat.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <system_error>
#include <vector>

#include "base/posix_acl_entries.h"

namespace paddock::samba {

namespace {

// xattr_NTACL of version 4, up to the hash: two times the version, two pointers, the type of the
// list's hash (SHA-256), that hash, the name of what else is hashed, a time.
constexpr std::string_view kVersions("\x04\0\x04\0", 4);
constexpr std::string_view kTypeAt12("\x01\0", 2);
constexpr std::string_view kHashed("posix_acl\0", 10);
constexpr std::size_t kPointers = 8;  // the least that a list is in
constexpr std::size_t kTypeAt = 12;
constexpr std::size_t kListHashAt = 14;
constexpr std::size_t kListHashBytes = 64;
constexpr std::size_t kHashedAt = 78;
constexpr std::size_t kHashAt = 96;
constexpr std::size_t kHashBytes = 32;

using Entries = std::vector<posix_acl::Entry>;
using posix_acl::Tag;

// smb_acl_tag_t of smb_acl.idl.
std::uint16_t smbTagOf(Tag tag) {
  switch (tag) {
    case Tag::user:
      return 1;
    case Tag::owner:
      return 2;
    case Tag::group:
      return 3;
    case Tag::owningGroup:
      return 4;
    case Tag::others:
      return 5;
    case Tag::mask:
      break;
  }
  return 6;
}

bool isNamed(const posix_acl::Entry& entry) {
  return entry.tag == Tag::user || entry.tag == Tag::group;
}

// NDR, as far as smb_acl.idl needs it.
class Writer {
 public:
  void number(std::uint64_t value, std::size_t size) {
    for (bytes_.resize((bytes_.size() + size - 1) / size * size); size > 0; --size, value >>= 8U)
      bytes_ += static_cast<char>(value & 0xFFU);
  }
  void alignTo8() { bytes_.resize((bytes_.size() + 7) / 8 * 8); }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

void append(Writer& writer, const Entries& entries) {
  writer.number(entries.size(), 4);
  writer.alignTo8();
  writer.number(entries.size(), 4);
  writer.number(0, 4);
  for (const posix_acl::Entry& entry : entries) {
    writer.alignTo8();
    writer.number(smbTagOf(entry.tag), 2);
    writer.number(smbTagOf(entry.tag), 2);
    if (isNamed(entry)) writer.number(entry.id, 8);
    writer.number(entry.bits, 4);
  }
}

std::uint32_t numberAt(std::string_view bytes, std::size_t at, std::size_t size) {
  std::uint32_t number = 0;
  for (std::size_t index = size; index-- > 0;)
    number = number << 8U | static_cast<unsigned char>(bytes[at + index]);
  return number;
}

Entries entriesOfMode(mode_t mode) {
  const auto digit = [mode](unsigned shift) {
    return static_cast<std::uint16_t>(mode >> shift & 7U);
  };
  return {{Tag::owner, digit(6)}, {Tag::owningGroup, digit(3)}, {Tag::others, digit(0)}};
}

std::string sha256(std::string_view text) {
  sha256_ctx context;
  ::sha256_init(&context);
  ::sha256_update(&context, text.size(), reinterpret_cast<const std::uint8_t*>(text.data()));
  std::array<std::uint8_t, kHashBytes> digest{};
  ::sha256_digest(&context, digest.size(), digest.data());
  return {digest.begin(), digest.end()};
}

}  // namespace

std::optional<std::string> kernelAclHashIn(std::string_view value) {
  if (value.size() < kHashAt + kHashBytes || !value.starts_with(kVersions) ||
      value.substr(kTypeAt, kTypeAt12.size()) != kTypeAt12 ||
      value.substr(kHashedAt, kHashed.size()) != kHashed)
    return std::nullopt;
  return std::string(value.substr(kHashAt, kHashBytes));
}

std::optional<ListForce> listForce(std::string_view value,
                                   const std::function<std::optional<std::string>()>& kernelHash) {
  if (value.size() < kPointers) return std::nullopt;
  const std::uint32_t version = numberAt(value, 0, 2);
  if (version == 0 || version > 4 || numberAt(value, 2, 2) != version) return std::nullopt;
  if (version < 3) return ListForce::inForce;
  if (value.size() < kTypeAt + kTypeAt12.size() || numberAt(value, 4, 4) == 0 ||
      numberAt(value, 8, 4) == 0)
    return std::nullopt;
  const bool isWithoutHash =
      value.size() >= kListHashAt + kListHashBytes &&
      value.substr(kListHashAt, kListHashBytes).find_first_not_of('\0') == std::string_view::npos;
  if (version == 3 && isWithoutHash) return ListForce::neverHeld;
  const auto stored = kernelAclHashIn(value);
  const auto present = stored ? kernelHash() : std::nullopt;
  if (!present) return ListForce::unknown;
  return present == stored ? ListForce::inForce : ListForce::overridden;
}

std::optional<std::string> kernelAclHashOf(const KernelAcls& acls) {
  // As they stand, deliberately also where the kernel would want more entries.
  const auto access = acls.access ? posix_acl::readEntries(*acls.access) : entriesOfMode(acls.mode);
  // A folder without a default ACL has an empty one to Samba, a file has none.
  const auto inherited =
      acls.defaultAccess ? posix_acl::readEntries(*acls.defaultAccess) : Entries();
  if (!access || !inherited) return std::nullopt;
  const bool isFolder = S_ISDIR(acls.mode);
  Writer writer;
  writer.number(0x00020000, 4);
  writer.number(isFolder ? 0x00020004 : 0, 4);
  writer.number(acls.uid, 8);
  writer.number(acls.gid, 8);
  writer.number(acls.mode, 4);
  append(writer, *access);
  if (isFolder) append(writer, *inherited);
  return sha256(writer.bytes());
}

namespace {

// What stands behind the version, which is said twice.
struct Layout {
  std::size_t bytes;
  std::size_t attributes;  // at that position
  std::uint32_t version;
  bool hasFlags;  // at 0, of what is valid
};
constexpr Layout kLayouts[] = {
    {40, 0, 1, false}, {53, 4, 2, false}, {44, 4, 3, true}, {24, 4, 4, true}, {16, 4, 5, true}};
constexpr std::uint32_t kAttributesAreValid = 0x1;
constexpr std::uint32_t kReadOnly = 0x1;
constexpr std::size_t kMostDigits = 8;

std::size_t aligned(std::size_t at, std::size_t to) { return (at + to - 1) / to * to; }

DosReadOnly readOnlyOf(std::uint32_t attributes) {
  return (attributes & kReadOnly) != 0 ? DosReadOnly::yes : DosReadOnly::no;
}

// "0x21", the oldest form.
DosReadOnly readOnlyInText(std::string_view text) {
  if (!text.starts_with("0x") || text.size() > 2 + kMostDigits) return DosReadOnly::unknown;
  std::uint32_t number = 0;
  const char* last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data() + 2, last, number, 16);
  return error == std::errc() && end == last ? readOnlyOf(number) : DosReadOnly::unknown;
}

}  // namespace

DosReadOnly dosReadOnlyIn(std::string_view value) {
  if (value.empty()) return DosReadOnly::no;
  const std::size_t end = value.find('\0');
  if (end == std::string_view::npos || end + 1 == value.size())
    return readOnlyInText(value.substr(0, end));
  const std::size_t start = aligned(end + 1, 2);
  if (value.size() < start + 4) return DosReadOnly::no;
  const std::uint32_t version = numberAt(value, start, 2);
  if (numberAt(value, start + 2, 2) != version) return DosReadOnly::no;
  const std::size_t at = aligned(start + 4, 4);
  for (const Layout& layout : kLayouts) {
    if (layout.version != version || value.size() < at + layout.bytes) continue;
    if (layout.hasFlags && (numberAt(value, at, 4) & kAttributesAreValid) == 0)
      return DosReadOnly::no;
    return readOnlyOf(numberAt(value, at + layout.attributes, 4));
  }
  return DosReadOnly::no;
}

}  // namespace paddock::samba
