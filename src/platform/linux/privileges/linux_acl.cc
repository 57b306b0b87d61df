#include "platform/linux/privileges/linux_acl.h"

#include <cerrno>
#include <memory>

#include "platform/linux/files/file_object.h"

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

}  // namespace paddock
