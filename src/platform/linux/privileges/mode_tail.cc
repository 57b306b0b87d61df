#include "platform/linux/privileges/mode_tail.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/list_rules.h"
#include "platform/linux/acl/sid_forms.h"

namespace paddock::nt_acl {

namespace {

constexpr std::uint8_t kInheritable = kObjectInherit | kContainerInherit;
constexpr std::uint8_t kPassedOn = kInheritable | kInheritOnly;

// Granted to everyone by stat(2), whatever the mode.
constexpr std::uint32_t kEverybodys = kSynchronizeMask | kReadSecurityMask | kReadAttributesMask;
// Granted to the owner by chmod(2) and utimensat(2), whatever the mode.
constexpr std::uint32_t kOwners = kWriteSecurityMask | kWriteAttributesMask;
constexpr std::uint32_t kReading = kReadDataMask | kReadExtendedAttributesMask;
constexpr std::uint32_t kWriting =
    kWriteDataMask | kAppendDataMask | kWriteExtendedAttributesMask | kWriteAttributesMask;
// Writing to a folder is also removing what is in it.
constexpr std::uint32_t kFolderWriting = kWriting | kDeleteChildMask;

std::uint32_t maskOfBits(posix_acl::Bits bits, bool isFolder) {
  std::uint32_t mask = kEverybodys;
  if ((bits & posix_acl::kRead) != 0) mask |= kReading;
  if ((bits & posix_acl::kWrite) != 0) mask |= isFolder ? kFolderWriting : kWriting;
  if ((bits & posix_acl::kExecute) != 0) mask |= kExecuteMask;
  return mask;
}

struct Subjects {
  Sid owner;
  Sid group;
};

// One after the other, allowed entries and the denials that they need.
class Tail {
 public:
  Tail(std::vector<Ace>& list, std::uint8_t flags) : list_(list), flags_(flags) {}

  // `later`: what the classes that come after this one are allowed.
  void add(const Sid& sid, std::uint32_t mask, std::uint32_t later) {
    const std::uint32_t denied = later & ~mask;
    if (denied != 0) list_.push_back({kDenied, flags_, denied, sid, {}});
    list_.push_back({kAllowed, flags_, mask, sid, {}});
  }

 private:
  std::vector<Ace>& list_;
  std::uint8_t flags_;
};

void appendTail(std::vector<Ace>& list, const Subjects& subjects, const posix_acl::Classes& classes,
                bool isFolder) {
  const std::uint32_t group = maskOfBits(classes.group, isFolder);
  const std::uint32_t others = maskOfBits(classes.others, isFolder);
  Tail tail(list, 0);
  tail.add(subjects.owner, maskOfBits(classes.owner, isFolder) | kOwners, group | others);
  tail.add(subjects.group, group, others);
  tail.add(everyoneSid(), others, 0);
}

// So that who makes something over SMB can use it, whatever the folder's mode gives its owner.
void appendPassedOn(std::vector<Ace>& list, const posix_acl::Classes& classes) {
  const std::uint32_t group = maskOfBits(classes.group, true);
  const std::uint32_t others = maskOfBits(classes.others, true);
  Tail tail(list, kPassedOn);
  tail.add(creatorOwnerSid(), maskOfBits(posix_acl::kAllBits, true) | kOwners | kDeleteMask, 0);
  tail.add(creatorGroupSid(), group, others);
  tail.add(everyoneSid(), others, 0);
}

bool isInheritable(const Ace& ace) { return (ace.flags & kInheritable) != 0; }

bool isMarker(const Ace& ace) { return ace.foreign.empty() && ace.sid == markerSid(); }

Ace marker() { return {kAllowed, 0, 0, markerSid(), {}}; }

using Position = std::vector<Ace>::const_iterator;

// The SID and the bits of the first allowed entry from `at` on, `at` then behind it.
bool readClass(Position& at, Position end, Sid& sid, posix_acl::Bits& bits) {
  at = std::find_if(at, end, [](const Ace& ace) { return ace.type == kAllowed; });
  if (at == end) return false;
  sid = at->sid;
  bits = acl::kernelBitsOf(permissionsOf(at->mask));
  ++at;
  return true;
}

// What `appendTail`, and on a folder perhaps `appendPassedOn`, make the entries of: it is read from
// them, and the tail made of it again. Absent when they are no tail.
std::optional<TailSource> sourceOf(Position begin, Position end, bool isFolder) {
  Subjects subjects;
  posix_acl::Classes classes;
  Sid everyone;
  Position at = begin;
  if (!readClass(at, end, subjects.owner, classes.owner) ||
      !readClass(at, end, subjects.group, classes.group) ||
      !readClass(at, end, everyone, classes.others))
    return std::nullopt;
  const auto owner = unixPrincipal(subjects.owner);
  const auto group = unixPrincipal(subjects.group);
  if (!owner || owner->type != PrincipalType::user || !group || group->type != PrincipalType::group)
    return std::nullopt;
  const TailSource source{owner->id, group->id, classes, isFolder};
  std::vector<Ace> made;
  appendTail(made, subjects, classes, isFolder);
  if (std::equal(begin, end, made.begin(), made.end())) return source;
  if (!isFolder) return std::nullopt;
  appendPassedOn(made, classes);
  return std::equal(begin, end, made.begin(), made.end()) ? std::optional(source) : std::nullopt;
}

}  // namespace

std::vector<Ace> withTail(std::vector<Ace> entries, const TailSource& source) {
  const bool passesOn =
      source.isFolder && std::any_of(entries.begin(), entries.end(), isInheritable);
  entries.push_back(marker());
  const Subjects subjects{unixSid({PrincipalType::user, source.uid}),
                          unixSid({PrincipalType::group, source.gid})};
  appendTail(entries, subjects, source.classes, source.isFolder);
  if (passesOn) appendPassedOn(entries, source.classes);
  return entries;
}

SplitList withoutTail(std::vector<Ace> list, bool isFolder) {
  SplitList split;
  const auto last = std::find_if(list.rbegin(), list.rend(), isMarker);
  if (last != list.rend() && *last == marker())
    split.tail = sourceOf(last.base(), list.end(), isFolder);
  if (split.tail) list.erase(std::prev(last.base()), list.end());
  split.complete = !split.tail;
  std::erase_if(list, isMarker);
  split.entries = std::move(list);
  return split;
}

}  // namespace paddock::nt_acl
