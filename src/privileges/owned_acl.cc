#include "privileges/owned_acl.h"

#include <cerrno>
#include <string>

#include "platform/logger.h"
#include "platform/services.h"
#include "privileges/module_logger.h"

namespace paddock {

OwnedAcl::~OwnedAcl() {
  if (list_ == nullptr || services().acl->acl_free(list_) == 0) return;
  const int error = errno;
  get_logger(function_).log(
      kLogError, std::string(function_) + " acl_free err. errno = " + std::to_string(error));
}

}  // namespace paddock
