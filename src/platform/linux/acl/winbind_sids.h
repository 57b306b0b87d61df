// SIDs through winbind, Samba's name service (libwbclient).
#pragma once

#include <memory>

#include "platform/linux/acl/sid_resolver.h"

namespace paddock {

// Asks winbind each time, on a connection of its own. ECONNREFUSED when it does not run. A winbind
// that does not answer keeps the caller waiting for minutes.
class WinbindSids final : public SidResolver {
 public:
  int principalOf(const nt_acl::Sid& sid, Principal& principal) override;
};

// Winbind, bounded in time (BoundedSidResolver) and its answers kept for a while
// (CachedSidResolver).
std::unique_ptr<SidResolver> makeWinbindResolver();

}  // namespace paddock
