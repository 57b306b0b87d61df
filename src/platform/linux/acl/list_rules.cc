#include "platform/linux/acl/list_rules.h"

#include <algorithm>

namespace paddock::acl {

bool isFor(const Subject& subject, std::optional<std::uint32_t> uid,
           const std::vector<std::uint32_t>& gids) {
  switch (subject.kind) {
    case Subject::Kind::everyone:
      return true;
    case Subject::Kind::user:
      return uid == subject.id;
    case Subject::Kind::group:
      return std::binary_search(gids.begin(), gids.end(), subject.id);
    case Subject::Kind::nobody:
      break;
  }
  return false;
}

posix_acl::Bits kernelBitsOf(Permission permissions) {
  unsigned bits = 0;
  if ((permissions & kReadData) != 0) bits |= posix_acl::kRead;
  if ((permissions & kWriteData) != 0) bits |= posix_acl::kWrite;
  if ((permissions & kExecute) != 0) bits |= posix_acl::kExecute;
  return static_cast<posix_acl::Bits>(bits);
}

}  // namespace paddock::acl
