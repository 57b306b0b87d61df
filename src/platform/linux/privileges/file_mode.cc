#include "platform/linux/privileges/file_mode.h"

#include <cerrno>
#include <utility>

#include "platform/linux/acl/posix_acl.h"

namespace paddock {

namespace {

constexpr mode_t kPermissionBits = 0777;

// What it says besides the mode; absent when that is nothing.
std::optional<posix_acl::Acl> decoded(const AccessAcl& acl) {
  auto list = acl.value ? posix_acl::decode(*acl.value) : std::nullopt;
  if (list && !list->mask) list.reset();
  return list;
}

// The mode that chmod(2) takes for a file with this list.
mode_t maskedMode(const posix_acl::Acl& acl, mode_t mode) {
  posix_acl::Classes classes = acl.classes;
  classes.group = *acl.mask;
  return (mode & ~kPermissionBits) | posix_acl::modeOf(classes);
}

}  // namespace

int readAccessAcl(const ExtendedAttributes& attributes, int object, AccessAcl& acl) {
  acl = {};
  std::string value;
  const int error = attributes.get(object, posix_acl::kAccessAttribute, value);
  if (error == 0) acl.value = std::move(value);
  acl.isSupported = error != EOPNOTSUPP;
  return error == ENODATA || error == EOPNOTSUPP ? 0 : error;
}

mode_t modeWithout(const AccessAcl& acl, mode_t stMode) {
  const mode_t mode = stMode & kModeBits;
  const auto list = decoded(acl);
  return list ? (mode & ~kPermissionBits) | posix_acl::modeOf(list->effectiveClasses()) : mode;
}

int readMode(const ExtendedAttributes& attributes, int object, mode_t stMode, mode_t& mode) {
  AccessAcl acl;
  const int error = readAccessAcl(attributes, object, acl);
  mode = modeWithout(acl, stMode);
  return error;
}

int writeMode(const ExtendedAttributes& attributes, int object, mode_t mode) {
  return writeMode(attributes, object, mode,
                   [object](mode_t masked) { return changeObjectMode(object, masked); });
}

int writeMode(const ExtendedAttributes& attributes, int object, mode_t mode,
              const std::function<int(mode_t mode)>& change) {
  mode &= kModeBits;
  AccessAcl acl;
  if (const int error = readAccessAcl(attributes, object, acl); error != 0) return error;
  auto list = decoded(acl);
  if (!list) return change(mode);
  list->classes = posix_acl::classesOf(mode);
  list->mask = static_cast<posix_acl::Bits>(*list->mask | list->classes.group);
  const int error = attributes.set(object, posix_acl::kAccessAttribute, posix_acl::encode(*list));
  return error != 0 ? error : change(maskedMode(*list, mode));
}

}  // namespace paddock
