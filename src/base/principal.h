// A user or group by id.
#pragma once

#include <cstdint>

namespace paddock {

enum class PrincipalType { user, group };

struct Principal {
  PrincipalType type = PrincipalType::user;
  std::uint32_t id = 0;
  friend bool operator==(const Principal&, const Principal&) = default;
};

}  // namespace paddock
