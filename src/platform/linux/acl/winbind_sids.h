// SIDs through winbind, Samba's name service (libwbclient).
#pragma once

#include <memory>

#include "platform/linux/acl/sid_resolver.h"

namespace paddock {

// Queries winbind each time, on a connection of its own. ECONNREFUSED when it is not running. A
// winbind that does not answer blocks the caller for minutes.
class WinbindSids final : public SidResolver {
 public:
  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;
};

// Winbind with bounded response time (BoundedSidResolver) and cached answers (CachedSidResolver).
std::unique_ptr<SidResolver> makeWinbindResolver();

}  // namespace paddock
