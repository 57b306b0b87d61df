#include "platform/linux/process/linux_uuid_source.h"

#include <sys/random.h>

#include "base/system_call.h"

namespace paddock {

Guid LinuxUuidSource::newUuid() {
  Guid uuid;
  // Up to 256 bytes come at once or not at all; see getrandom(2).
  const int error = errnoOf([&] { return ::getrandom(uuid.bytes.data(), uuid.bytes.size(), 0); });
  if (error != 0) throw systemError(error, "getrandom", "");
  uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0FU) | 0x40U);  // version 4
  uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3FU) | 0x80U);  // RFC 4122 variant
  return uuid;
}

}  // namespace paddock
