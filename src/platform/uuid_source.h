// Random UUIDs (RFC 4122, version 4).
#pragma once

#include "base/guid.h"

namespace paddock {

class UuidSource {
 public:
  virtual ~UuidSource() = default;
  virtual Guid newUuid() = 0;
};

}  // namespace paddock
