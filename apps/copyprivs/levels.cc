#include "copyprivs/levels.h"

#include <utility>

namespace paddock::copyprivs {

Levels::Levels(InheritableACL* entries, Pointer above)
    : level_{entries, above ? above->composite() : nullptr}, above_(std::move(above)) {}

Levels::~Levels() {
  FreeInheritableACL(level_.entries);
  // One after the other: there may be more levels than a stack has room for.
  for (Pointer next = std::move(above_); next && next.use_count() == 1;) {
    next = std::exchange(next->above_, nullptr);
  }
}

bool Levels::beginsWithTwoEmptyOnes() const {
  return level_.entries == nullptr && level_.next != nullptr && level_.next->entries == nullptr;
}

Levels::Pointer Levels::withEmptyBelow(const Pointer& levels) {
  if (levels && levels->beginsWithTwoEmptyOnes()) return levels;
  return std::make_shared<const Levels>(nullptr, levels);
}

}  // namespace paddock::copyprivs
