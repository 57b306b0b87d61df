#include "privileges/acl_bits.h"

#include "base/status.h"
#include "platform/logger.h"
#include "platform/services.h"
#include "privileges/module_logger.h"

namespace paddock {

int add_perm_if_set(std::uint32_t bitmap, acl::Permset* permset, acl::Permission permission) {
  if ((bitmap & permission) == 0) return 0;
  const int result = services().acl->acl_add_perm(permset, permission);
  if (result != 0) get_logger("acl_add_perm").log(kLogError, sharing_error_string(result));
  return result;
}

int add_flag_if_set(std::uint32_t flags, acl::Flagset* flagset, acl::Flag flag) {
  if ((flags & flag) == 0) return 0;
  const int result = services().acl->acl_add_flag_np(flagset, flag);
  if (result != 0) get_logger("acl_add_flag_np").log(kLogError, sharing_error_string(result));
  return result;
}

}  // namespace paddock
