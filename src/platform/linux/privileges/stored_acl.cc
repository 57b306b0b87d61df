#include "platform/linux/privileges/stored_acl.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "base/system_call.h"
#include "platform/acl_list.h"
#include "platform/linux/acl/ace_entry.h"
#include "platform/linux/acl/sid_forms.h"

namespace paddock::nt_acl {

namespace {

// The list equivalent to a descriptor without one for an SMB server: full access for everyone where
// the control word declares a list, else no access.
std::vector<Ace> absentList(std::uint16_t control) {
  if ((control & kControlListPresent) == 0) return {};
  return {{kAllowed, 0, maskOf(acl::kAllPermissions) | kSynchronizeMask, everyoneSid(), {}}};
}

}  // namespace

int lookAt(int number, OpenObject& object) {
  object.number = number;
  return errnoOf([&] { return ::fstat(number, &object.status); });
}

int readValue(const ExtendedAttributes& attributes, int object, const std::string& name,
              std::optional<std::string>& value) {
  value.reset();
  std::string read;
  const int error = attributes.get(object, name, read);
  if (error == 0) value = std::move(read);
  return error == ENODATA ? 0 : error;
}

int readStoredAcl(const ExtendedAttributes& attributes, const std::string& name,
                  const OpenObject& object, StoredAcl& stored) {
  stored = {};
  const int error = readValue(attributes, object.number, name, stored.value);
  if (error != 0 || !stored.value) return error;
  stored.descriptor = decode(*stored.value);
  if (!stored.descriptor) return 0;
  Descriptor& descriptor = *stored.descriptor;
  if (!descriptor.list) descriptor.list = absentList(descriptor.control);
  stored.list = withoutTail(std::move(*descriptor.list), object.isFolder());
  descriptor.list.reset();
  if (stored.list->entries.size() <= acl::kMaximumEntries) return 0;
  stored.descriptor.reset();
  stored.list.reset();
  return 0;
}

namespace {

int readEntry(PrincipalSids& sids, const Ace& ace, std::unique_ptr<acl::Entry>& entry) {
  Guid qualifier;
  if (!ace.foreign.empty()) {
    qualifier = foreignAceGuid(ace);
  } else if (const int error = sids.guidFor(ace.sid, qualifier); error != 0) {
    return error;
  }
  entry = entryOf(ace, qualifier);
  return 0;
}

// Whether an entry that says the same would be stored as other bytes.
bool isPeculiar(const Ace& ace) {
  if (!ace.foreign.empty() || (!unixPrincipal(ace.sid) && !sidGuid(ace.sid))) return true;
  std::uint32_t mask = maskOf(permissionsOf(ace.mask));
  if (ace.type == kAllowed) mask |= kSynchronizeMask;
  return mask != ace.mask || aceFlagsOf(flagsOf(ace.flags)) != ace.flags;
}

bool saysTheSame(const acl::Entry& one, const acl::Entry& other) {
  return one.qualifier == other.qualifier && one.permset.permissions == other.permset.permissions &&
         one.flagset.flags == other.flagset.flags &&
         // Nobody but the entry itself has the qualifier of a foreign one, and who writes back what
         // he has read may know only allow and deny.
         (one.tag == other.tag || one.tag == acl::kForeignTag);
}

// The entries of the replaced list that would not come out the same if they were made afresh, each
// for one entry of the new list.
class Keepsakes {
 public:
  int collect(PrincipalSids& sids, const std::vector<Ace>& replaced) {
    for (const Ace& ace : replaced) {
      if (!isPeculiar(ace)) continue;
      std::unique_ptr<acl::Entry> entry;
      if (const int error = readEntry(sids, ace, entry); error != 0) return error;
      entries_.push_back(std::move(entry));
    }
    return 0;
  }

  std::unique_ptr<acl::Entry> take(const acl::Entry& wanted) {
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const auto& entry) { return saysTheSame(*entry, wanted); });
    if (found == entries_.end()) return nullptr;
    auto taken = std::move(*found);
    entries_.erase(found);
    return taken;
  }

 private:
  std::vector<std::unique_ptr<acl::Entry>> entries_;
};

// Whether the principal's SID on disk is the one that `sidFor` gives. A GUID without a principal
// may have one by now, and principals with a uid or gid are written by it.
bool isFinal(const Sid& sid, const Guid& guid) { return unixPrincipal(sid) || isForeignGuid(guid); }

// `replaced`: the list on disk. A GUID without a principal where the entry was read, or in that
// list, keeps that form while a node that may know it does not answer; another one is not then
// taken for one without a principal.
int sidOf(PrincipalSids& sids, const acl::Entry& entry, const std::vector<Ace>& replaced,
          Sid& sid) {
  const Sid* original = originalSid(entry);
  if (original != nullptr && isFinal(*original, *entry.qualifier)) {
    sid = *original;
    return 0;
  }
  const int error = sids.sidFor(*entry.qualifier, sid);
  if (error != 0 && error != ENOENT) {
    if (original != nullptr) {
      sid = *original;
      return 0;
    }
    const Sid nobodys = guidSid(*entry.qualifier);
    const bool stands = std::any_of(replaced.begin(), replaced.end(), [&](const Ace& ace) {
      return ace.foreign.empty() && ace.sid == nobodys;
    });
    if (stands) {
      sid = nobodys;
      return 0;
    }
  }
  // To the callers ENOENT is an object that is not there.
  return error == ENOENT ? EINVAL : error;
}

// The entry as it stands on disk already; null when it does not.
const Ace* storedAce(const acl::Entry& entry, const acl::Entry* kept) {
  if (const Ace* ace = unchangedAce(entry)) return ace;
  return kept != nullptr ? unchangedAce(*kept) : nullptr;
}

int writeEntry(PrincipalSids& sids, const acl::Entry& entry, const std::vector<Ace>& replaced,
               Keepsakes& keepsakes, Ace& ace) {
  if (!canBeStored(entry)) return EINVAL;
  const auto kept = entry.origin == nullptr ? keepsakes.take(entry) : nullptr;
  const Ace* stored = storedAce(entry, kept.get());
  if (entry.tag == acl::kForeignTag || (stored != nullptr && !stored->foreign.empty())) {
    ace = stored != nullptr ? *stored : changedAce(entry, {});
    return 0;
  }
  Sid sid;
  if (const int error = sidOf(sids, kept ? *kept : entry, replaced, sid); error != 0) return error;
  ace = stored != nullptr ? *stored : changedAce(entry, sid);
  ace.sid = std::move(sid);
  return 0;
}

}  // namespace

int readEntries(PrincipalSids& sids, const std::vector<Ace>& aces, acl::List& list) {
  std::vector<Sid> named;
  named.reserve(aces.size());
  for (const Ace& ace : aces)
    if (ace.foreign.empty()) named.push_back(ace.sid);
  sids.expect(named);
  list.entries.reserve(list.entries.size() + aces.size());
  for (const Ace& ace : aces) {
    std::unique_ptr<acl::Entry> entry;
    if (const int error = readEntry(sids, ace, entry); error != 0) return error;
    list.entries.push_back(std::move(entry));
  }
  return 0;
}

int writeEntries(PrincipalSids& sids, const acl::List& list, const std::vector<Ace>& replaced,
                 std::vector<Ace>& aces) {
  const bool hasNewOnes = std::any_of(list.entries.begin(), list.entries.end(),
                                      [](const auto& entry) { return entry->origin == nullptr; });
  Keepsakes keepsakes;
  if (hasNewOnes) {
    if (const int error = keepsakes.collect(sids, replaced); error != 0) return error;
  }
  aces.reserve(list.entries.size());
  for (const auto& entry : list.entries) {
    aces.emplace_back();
    if (const int error = writeEntry(sids, *entry, replaced, keepsakes, aces.back()); error != 0)
      return error;
  }
  return 0;
}

}  // namespace paddock::nt_acl
