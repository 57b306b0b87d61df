// Random UUIDs from getrandom(2).
#pragma once

#include "platform/uuid_source.h"

namespace paddock {

class LinuxUuidSource : public UuidSource {
 public:
  // Throws std::system_error when the kernel gives no random bytes.
  Guid newUuid() override;
};

}  // namespace paddock
