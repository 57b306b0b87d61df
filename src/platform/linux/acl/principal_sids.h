// The GUIDs of an extended ACL as the SIDs on disk, and back.
//
//   GUID                                             SID
//   of a uid or gid (membership service)             S-1-22-1-UID, S-1-22-2-GID
//   made of a foreign SID (nt_acl::foreignGuid)      that SID
//   any other                                        own authority, the GUID's bytes
//   (nt_acl::guidSid)
//
// A SID of another form is resolved by the resolver, and one that maps to a user or group has the
// GUID of that; so its entry is written with a Unix SID from then on. Any other SID has the GUID
// derived from it, which is kept in this process so that the GUID maps back to its SID; reading a
// list changes nothing else. Of a list that was written it is recorded below the service's root,
// too, and found there after a restart. Everyone (S-1-1) is never resolved, nor are the SIDs that
// stand for an object's creator (S-1-3), and the groups of a client by its kind of logon (S-1-5
// with one sub-authority): winbind would allocate a gid for them, and an entry for that gid is
// another entry.
//
// Thread-safe.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/guid.h"
#include "base/mutex.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/remembered_sids.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/acl/sid_resolver.h"
#include "platform/membership.h"

namespace paddock {

class PrincipalSids {
 public:
  // So many foreign SIDs are in memory for certain, the newest ones, and at most twice as many.
  static constexpr std::size_t kCapacity = 16384;

  // The membership service must outlive this object. Without a resolver no SID is resolved.
  // `rememberedPath` is the file of the recorded SIDs; when it is empty none are recorded, which
  // suffices for a program that only reads.
  PrincipalSids(Membership& membership, std::string rememberedPath,
                std::unique_ptr<SidResolver> resolver = nullptr);

  // Returns 0 with the SID, or an errno: ENOENT for the GUID of an unrecorded foreign SID (it must
  // not become another principal), or that of the membership service.
  int sidFor(const Guid& guid, nt_acl::Sid& sid);

  // Returns 0 with the GUID, or EEXIST for a foreign SID whose GUID is also another's. A uid or gid
  // whose lookup in the membership service fails has its computed GUID, which always means it: an
  // existing list must not be taken for none while a directory server does not answer. A failing
  // resolver counts as one that does not know the SID. Nothing is written.
  int guidFor(const nt_acl::Sid& sid, Guid& guid);

  // Records the SIDs of the GUIDs that were made of foreign ones and stand in a list that was
  // written. One that cannot be recorded on disk stays in memory.
  void record(const std::vector<Guid>& guids);

  // Prefetches all of them with one query of the membership service, which caches them for
  // `guidFor`.
  void expect(const std::vector<nt_acl::Sid>& sids);

 private:
  Guid guidOf(const Principal& principal);
  bool isPrincipal(const nt_acl::Sid& sid, Principal& principal);
  int foreignSid(const Guid& guid, nt_acl::Sid& sid);
  int foreignGuid(const nt_acl::Sid& sid, Guid& guid);
  bool inMemory(const Guid& guid, nt_acl::Sid& sid);
  void keep(const Guid& guid, const nt_acl::Sid& sid);

  // By the GUIDs made of them.
  using Foreign = std::map<Guid, nt_acl::Sid>;

  Membership& membership_;
  const std::unique_ptr<RememberedSids> remembered_;  // null without a path
  const std::unique_ptr<SidResolver> resolver_;
  Mutex mutex_;
  Foreign foreign_ PADDOCK_GUARDED_BY(mutex_);
  Foreign olderForeign_ PADDOCK_GUARDED_BY(mutex_);
};

}  // namespace paddock
