#include "platform/linux/acl/nt_acl_list.h"

#include <algorithm>
#include <limits>

#include "platform/linux/acl/nt_acl_ace.h"

namespace paddock::nt_acl {

namespace {

constexpr std::size_t kHeaderBytes = 8;
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
  if (reader.failed() || size < kHeaderBytes || count > kMaximumEntries) return std::nullopt;
  const std::string_view entries = reader.take(size - kHeaderBytes);
  if (reader.failed()) return std::nullopt;
  return readEntries(Reader(entries), count);
}

bool writeList(Writer& writer, const std::vector<Ace>& list) {
  if (list.size() > kMaximumEntries) return false;
  Writer entries;
  for (const Ace& ace : list)
    if (!writeAce(entries, ace)) return false;
  const std::size_t size = kHeaderBytes + entries.size();
  if (size > std::numeric_limits<std::uint16_t>::max()) return false;
  writer.u16(revisionOf(list));
  writer.u16(static_cast<std::uint16_t>(size));
  writer.u32(static_cast<std::uint32_t>(list.size()));
  writer.append(std::move(entries).finish());
  return true;
}

}  // namespace paddock::nt_acl
