// Security descriptors in memory, as [MS-DTYP] 2.4 defines them, and their encoding in the
// attribute in which Samba's acl_xattr module keeps them (xattr.idl). docs/formats/acl.md describes
// the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/acl/nt_acl_bytes.h"

namespace paddock::nt_acl {

struct Sid {
  std::uint64_t authority = 0;                // 48 bits
  std::vector<std::uint32_t> subAuthorities;  // at most 15
  friend auto operator<=>(const Sid&, const Sid&) = default;
};

// ACE types that this system writes and interprets.
inline constexpr std::uint8_t kAllowed = 0;
inline constexpr std::uint8_t kDenied = 1;

// ACE flags.
inline constexpr std::uint8_t kObjectInherit = 0x01;
inline constexpr std::uint8_t kContainerInherit = 0x02;
inline constexpr std::uint8_t kNoPropagateInherit = 0x04;
inline constexpr std::uint8_t kInheritOnly = 0x08;
inline constexpr std::uint8_t kInherited = 0x10;

// Control word: self-relative, list auto-inherited, list present.
inline constexpr std::uint16_t kControlWritten = 0x8404;
inline constexpr std::uint16_t kControlListPresent = 0x0004;

// An extended ACL has at most 1,000 entries; a marker and a tail (mode_tail.h) add up to 10.
inline constexpr std::size_t kMaximumEntries = 1010;

struct Ace {
  std::uint8_t type = kAllowed;
  std::uint8_t flags = 0;
  std::uint32_t mask = 0;
  Sid sid;
  // The whole entry, header included, as it was read, when it is of another type than allowed or
  // denied; encoded again byte for byte but for `flags`, the one field of it that may be changed.
  // Empty otherwise.
  std::string foreign;
  friend bool operator==(const Ace&, const Ace&) = default;
};

struct Descriptor {
  std::uint16_t control = kControlWritten;
  std::optional<Sid> owner;
  std::optional<Sid> group;
  // Absent: no discretionary list, which with kControlListPresent grants everything to everybody.
  // It is neither an empty list, which grants nothing to anybody, nor a missing attribute.
  std::optional<std::vector<Ace>> list;
  friend bool operator==(const Descriptor&, const Descriptor&) = default;
};

// Reads a value of version 1 to 4. A system list is checked and left out. Absent when the value
// does not decode: cut short, bytes behind the end or between the parts, parts that overlap, an
// unknown version, a revision that is not known, lengths or offsets that lead outside, a list that
// the control word denies, more than kMaximumEntries, a list longer or shorter than its header
// says.
std::optional<Descriptor> decode(std::string_view value);

// The value of version 1, which decodes to the same descriptor. Absent when the format cannot hold
// it: more than kMaximumEntries, a list of more than 65,535 bytes, a SID of more than 15
// sub-authorities or an authority of more than 48 bits, a list without kControlListPresent, an
// entry whose fields are not those of its `foreign` bytes.
std::optional<std::string> encode(const Descriptor& descriptor);

// What Samba puts around a descriptor in the attribute (xattr_NTACL of its xattr.idl, in NDR).

// The offset of the descriptor in a value of version 1 to 4, at most the value's size. The hashes,
// the description and the time of the later versions are skipped. Absent for another version, a
// description that is not UTF-8, or a value without a descriptor or that ends before it.
std::optional<std::size_t> descriptorPosition(std::string_view value);

// Writes the bytes that precede the descriptor in version 1.
void writeEnvelope(Writer& writer);

}  // namespace paddock::nt_acl
