// The GUIDs of an extended ACL as the SIDs on disk, and back.
//
//   GUID                                             SID
//   of a uid or gid (membership service)             S-1-22-1-UID, S-1-22-2-GID
//   made of a foreign SID (nt_acl::foreignGuid)      that SID
//   any other                                        own authority, the GUID's bytes
//   (nt_acl::guidSid)
//
// A SID of another form is asked of the resolver, and one that is a user or group has that one's
// GUID; so its entry is written with a Unix SID from then on. Any other SID has the GUID made of
// it, which is remembered, in this process and below the service's root, so that the GUID goes back
// as the SID it was. Never asked are everyone (S-1-1), the placeholders for an object's creator
// (S-1-3), and whom a client belongs to by the way it came (S-1-5 with one sub-authority): winbind
// would make up a gid for them, and an entry for that gid is another entry.
//
// Any thread may call.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/guid.h"
#include "platform/linux/acl/nt_acl.h"
#include "platform/linux/acl/remembered_sids.h"
#include "platform/linux/acl/sid_forms.h"
#include "platform/linux/acl/sid_resolver.h"
#include "platform/membership.h"

namespace paddock {

class PrincipalSids {
 public:
  // How many foreign SIDs are kept in memory; the next one drops them all.
  static constexpr std::size_t kCapacity = 16384;

  // The caller keeps the membership service alive. Without a resolver no SID is asked of anybody.
  // `rememberedPath` is the file of the remembered SIDs; when it is empty they are remembered in
  // memory alone, which is enough for a program that only reads.
  PrincipalSids(Membership& membership, std::string rememberedPath,
                std::unique_ptr<SidResolver> resolver = nullptr);

  // 0 and the SID, or an errno: ENOENT for the GUID of a foreign SID that nobody remembers (it must
  // not become another principal), or that of the membership service.
  int sidFor(const Guid& guid, nt_acl::Sid& sid);

  // 0 and the GUID, or EEXIST for a foreign SID whose GUID is also another's. A uid or gid that the
  // membership service cannot look up has its computed GUID, which always means it: a list that is
  // there must not be taken for none while a directory server does not answer. A resolver that
  // fails counts as one that does not know the SID, and a SID that cannot be remembered on disk is
  // remembered in memory.
  int guidFor(const nt_acl::Sid& sid, Guid& guid);

  // Has the membership service look up all of them together; it keeps what it finds for `guidFor`.
  void expect(const std::vector<nt_acl::Sid>& sids);

 private:
  Guid guidOf(const Principal& principal);
  bool isPrincipal(const nt_acl::Sid& sid, Principal& principal);
  int foreignSid(const Guid& guid, nt_acl::Sid& sid);
  int foreignGuid(const nt_acl::Sid& sid, Guid& guid);
  bool inMemory(const Guid& guid, nt_acl::Sid& sid);
  void keep(const Guid& guid, const nt_acl::Sid& sid);

  Membership& membership_;
  const std::unique_ptr<RememberedSids> remembered_;  // null without a path
  const std::unique_ptr<SidResolver> resolver_;
  std::mutex mutex_;
  std::map<Guid, nt_acl::Sid> foreign_;
};

}  // namespace paddock
