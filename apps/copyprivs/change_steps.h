// The order in which an object gets from one state to another, so that in between nobody may do
// with it what he may do neither before nor after.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "copyprivs/object_state.h"
#include "platform/linux/files/xattr_changes.h"

namespace paddock::copyprivs {

// One change that the kernel makes as a whole; the attributes of one step are changed one after the
// other, all or none of them.
struct ChangeStep {
  enum class Kind : std::uint8_t { owner, mode, attributes };

  Kind kind = Kind::mode;
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  mode_t mode = 0;
  std::vector<XattrChange> attributes;
};

// None when nothing is different. `list` is the name of the attribute that holds the extended ACL.
//
// Mostly the object is as open as before until the last step. Where neither the old content can
// stand under the new owner and group nor the new one under the old, the object is closed for all
// but its owner in between.
std::vector<ChangeStep> changeSteps(const ObjectState& before, const ObjectState& after,
                                    const std::string& list);

}  // namespace paddock::copyprivs
