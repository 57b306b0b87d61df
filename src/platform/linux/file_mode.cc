#include "platform/linux/file_mode.h"

#include <sys/stat.h>

#include "base/system_call.h"
#include "platform/linux/posix_acl.h"

namespace paddock {

namespace {

constexpr mode_t kPermissionBits = 0777;

// The access ACL; absent where there is none, or none that says more than the mode.
int readAccessAcl(const ExtendedAttributes& attributes, int object,
                  std::optional<posix_acl::Acl>& acl) {
  acl.reset();
  std::string value;
  const int error = attributes.get(object, posix_acl::kAccessAttribute, value);
  if (error == ENODATA || error == EOPNOTSUPP) return 0;
  if (error != 0) return error;
  acl = posix_acl::decode(value);
  if (acl && !acl->mask) acl.reset();
  return 0;
}

int changeMode(int object, mode_t mode) {
  const std::string path = objectPath(object);
  return objectPathError(errnoOf([&] { return ::chmod(path.c_str(), mode); }));
}

// The mode that chmod(2) takes for a file with this list.
mode_t maskedMode(const posix_acl::Acl& acl, mode_t mode) {
  posix_acl::Classes classes = acl.classes;
  classes.group = *acl.mask;
  return (mode & ~kPermissionBits) | posix_acl::modeOf(classes);
}

}  // namespace

int readMode(const ExtendedAttributes& attributes, int object, mode_t stMode, mode_t& mode) {
  mode = stMode & kModeBits;
  std::optional<posix_acl::Acl> acl;
  if (const int error = readAccessAcl(attributes, object, acl); error != 0) return error;
  if (acl) mode = (mode & ~kPermissionBits) | posix_acl::modeOf(acl->effectiveClasses());
  return 0;
}

int writeMode(const ExtendedAttributes& attributes, int object, mode_t mode) {
  mode &= kModeBits;
  std::optional<posix_acl::Acl> acl;
  if (const int error = readAccessAcl(attributes, object, acl); error != 0) return error;
  if (!acl) return changeMode(object, mode);
  acl->classes = posix_acl::classesOf(mode);
  acl->mask = static_cast<posix_acl::Bits>(*acl->mask | acl->classes.group);
  const int error = attributes.set(object, posix_acl::kAccessAttribute, posix_acl::encode(*acl));
  if (error != 0) return error;
  return changeMode(object, maskedMode(*acl, mode));
}

}  // namespace paddock
