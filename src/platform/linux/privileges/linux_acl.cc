#include "platform/linux/privileges/linux_acl.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "base/system_call.h"
#include "platform/linux/files/file_object.h"
#include "platform/linux/privileges/file_mode.h"

namespace paddock {

acl::List* LinuxAcl::acl_get_file(const std::string& path, int type) {
  std::unique_ptr<acl::List> list;
  FileDescriptor object;
  int error = type == acl::kTypeExtended ? openObject(path, object) : EINVAL;
  if (error == 0) error = acls_.readFrom(object.get(), list);
  if (error != 0) errno = error;
  return list.release();
}

int LinuxAcl::acl_set_file(const std::string& path, int type, acl::List* list) {
  FileDescriptor object;
  int error = type == acl::kTypeExtended ? openObject(path, object, PathUse::changing) : EINVAL;
  if (error == 0) error = acls_.writeTo(object.get(), *list);
  if (error == 0) return 0;
  errno = error;
  return -1;
}

acl::List* LinuxPrivilegedObject::getAcl() {
  std::unique_ptr<acl::List> list;
  if (const int error = acls_.readFrom(object_.get(), list); error != 0) errno = error;
  return list.release();
}

int LinuxPrivilegedObject::setAcl(acl::List* list) {
  const int error = acls_.writeTo(object_.get(), *list);
  if (error == 0) return 0;
  errno = error;
  return -1;
}

int LinuxPrivilegedObject::changeOwner(std::uint32_t uid, std::uint32_t gid) {
  const int error = errnoOf([&] { return ::fchownat(object_.get(), "", uid, gid, AT_EMPTY_PATH); });
  return error != 0 ? error : acls_.refresh(object_.get());
}

int LinuxPrivilegedObject::readMode(mode_t& mode) {
  mode = 0;
  struct stat status {};
  if (const int error = errnoOf([&] { return ::fstat(object_.get(), &status); }); error != 0) {
    return error;
  }
  const int error =
      paddock::readMode(linuxExtendedAttributes(), object_.get(), status.st_mode, mode);
  if (error == 0) mode |= status.st_mode & S_IFMT;
  return error;
}

int LinuxPrivilegedObject::changeMode(mode_t mode) {
  const int error = writeMode(linuxExtendedAttributes(), object_.get(), mode & kModeBits);
  return error != 0 ? error : acls_.refresh(object_.get());
}

int LinuxPrivilegedObjects::open(const std::string& path, PathUse use,
                                 std::unique_ptr<PrivilegedObject>& object) {
  object = nullptr;
  FileDescriptor descriptor;
  const int error = openObject(path, descriptor, use);
  if (error == 0) object = std::make_unique<LinuxPrivilegedObject>(std::move(descriptor), acls_);
  return error;
}

}  // namespace paddock
