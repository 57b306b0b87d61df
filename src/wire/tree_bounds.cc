#include "wire/tree_bounds.h"

#include <algorithm>

namespace paddock::wire {

bool TreeMeter::take(std::size_t bytes) {
  // Asked for in blocks: most values are small.
  constexpr std::size_t kBlock = 16U << 10U;
  if (bytes <= granted_) {
    granted_ -= bytes;
    return true;
  }
  const std::size_t wanted = std::max(bytes, kBlock);
  if (bounds_.take && !bounds_.take(wanted)) return false;
  granted_ += wanted - bytes;
  return true;
}

}  // namespace paddock::wire
