// Who a SID of another system is on this one.
#pragma once

#include "base/computed_guid.h"
#include "platform/linux/acl/nt_acl.h"

namespace paddock {

class SidResolver {
 public:
  virtual ~SidResolver() = default;
  // 0 and the user or group; ENOENT when the SID maps to none; another errno when that cannot be
  // found out now. Any thread may call.
  virtual int principalOf(const nt_acl::Sid& sid, Principal& principal) = 0;
};

}  // namespace paddock
