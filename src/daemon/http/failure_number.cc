#include "daemon/http/failure_number.h"

#include <cerrno>
#include <system_error>

#include "base/numbered_error.h"

namespace paddock {

std::int64_t failureNumber(const std::exception& thrown) {
  if (const auto* numbered = dynamic_cast<const NumberedError*>(&thrown)) {
    return numbered->number().value_or(EIO);
  }
  if (const auto* system = dynamic_cast<const std::system_error*>(&thrown)) {
    return system->code().value();
  }
  return EIO;
}

}  // namespace paddock
