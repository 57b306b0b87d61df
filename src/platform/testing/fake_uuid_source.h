// UUIDs of a counted row: well-formed version 4, the last eight bytes counting up from 1.
#pragma once

#include <cstdint>

#include "platform/uuid_source.h"

namespace paddock {

class FakeUuidSource : public UuidSource {
 public:
  Guid newUuid() override {
    ++count_;
    Guid uuid;
    uuid.bytes[6] = 0x40;
    uuid.bytes[8] = 0x80;
    for (unsigned at = 0; at < 7; ++at) {
      uuid.bytes[15 - at] = static_cast<std::uint8_t>(count_ >> (8U * at));
    }
    return uuid;
  }

  std::uint64_t count() const { return count_; }

 private:
  std::uint64_t count_ = 0;
};

}  // namespace paddock
