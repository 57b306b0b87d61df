#include "platform/linux/acl/posix_acl.h"

#include <algorithm>
#include <utility>

#include "base/posix_acl_entries.h"

namespace paddock::posix_acl {

namespace {

void append(std::vector<Entry>& all, Tag tag, std::vector<Named>& entries) {
  std::sort(entries.begin(), entries.end());
  for (const Named& entry : entries) all.push_back({tag, entry.bits, entry.id});
}

// Takes entries one after the other, as the kernel wants them.
class Reader {
 public:
  explicit Reader(std::vector<Entry> entries) : entries_(std::move(entries)) {}

  std::optional<Acl> read() {
    Acl acl;
    const bool whole = one(Tag::owner, acl.classes.owner) && named(Tag::user, acl.users) &&
                       one(Tag::owningGroup, acl.classes.group) && named(Tag::group, acl.groups) &&
                       mask(acl) && one(Tag::others, acl.classes.others) && at_ == entries_.size();
    if (!whole) return std::nullopt;
    return acl;
  }

 private:
  const Entry* next(Tag tag) {
    return at_ < entries_.size() && entries_[at_].tag == tag ? &entries_[at_++] : nullptr;
  }

  bool one(Tag tag, Bits& bits) {
    const Entry* entry = next(tag);
    if (entry != nullptr) bits = static_cast<Bits>(entry->bits);
    return entry != nullptr;
  }

  bool named(Tag tag, std::vector<Named>& entries) {
    while (const Entry* entry = next(tag)) {
      if (entry->id == kNoId) return false;
      entries.push_back({entry->id, static_cast<Bits>(entry->bits)});
    }
    return true;
  }

  bool mask(Acl& acl) {
    Bits bits = 0;
    if (one(Tag::mask, bits)) acl.mask = bits;
    return acl.mask.has_value() || !acl.namesAnybody();
  }

  const std::vector<Entry> entries_;
  std::size_t at_ = 0;
};

Bits digit(mode_t mode, unsigned shift) { return static_cast<Bits>((mode >> shift) & kAllBits); }

}  // namespace

Classes classesOf(mode_t mode) { return {digit(mode, 6), digit(mode, 3), digit(mode, 0)}; }

mode_t modeOf(const Classes& classes) {
  return static_cast<mode_t>(classes.owner) << 6U | static_cast<mode_t>(classes.group) << 3U |
         classes.others;
}

Classes Acl::effectiveClasses() const {
  return {classes.owner, static_cast<Bits>(classes.group & mask.value_or(kAllBits)),
          classes.others};
}

void Acl::computeMask() {
  mask.reset();
  if (!namesAnybody()) return;
  mask = classes.group;
  for (const auto* entries : {&users, &groups})
    for (const Named& entry : *entries) mask = static_cast<Bits>(*mask | entry.bits);
  if (mask == Bits{0}) mask = classes.others;
}

std::optional<Acl> decode(std::string_view value) {
  auto entries = readEntries(value);
  return entries ? Reader(std::move(*entries)).read() : std::nullopt;
}

std::string encode(Acl acl) {
  std::vector<Entry> entries;
  entries.reserve(acl.users.size() + acl.groups.size() + 4);
  entries.push_back({Tag::owner, acl.classes.owner});
  append(entries, Tag::user, acl.users);
  entries.push_back({Tag::owningGroup, acl.classes.group});
  append(entries, Tag::group, acl.groups);
  if (acl.mask) entries.push_back({Tag::mask, *acl.mask});
  entries.push_back({Tag::others, acl.classes.others});
  return writeEntries(entries);
}

}  // namespace paddock::posix_acl
