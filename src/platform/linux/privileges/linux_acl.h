// Extended ACLs by path, in the calls of acl.h.
#pragma once

#include <string>

#include "base/file_access.h"
#include "platform/acl_list.h"
#include "platform/linux/privileges/file_acls.h"
#include "platform/privileged_object.h"

namespace paddock {

class LinuxAcl final : public acl::AclCalls {
 public:
  // `acls` must outlive this object.
  explicit LinuxAcl(const FileAcls& acls) : acls_(acls) {}

  acl::List* acl_get_file(const std::string& path, int type) override;
  int acl_set_file(const std::string& path, int type, acl::List* list) override;

 private:
  const FileAcls& acls_;
};

// Objects held by descriptors, for reading and changing their privileges.

// The descriptor may be an O_PATH one. Changes of owner and mode bring the object's list up to
// date.
class LinuxPrivilegedObject final : public PrivilegedObject {
 public:
  // `acls` must outlive this object.
  LinuxPrivilegedObject(FileDescriptor object, const FileAcls& acls)
      : object_(std::move(object)), acls_(acls) {}

  acl::List* getAcl() override;
  int setAcl(acl::List* list) override;
  int changeOwner(std::uint32_t uid, std::uint32_t gid) override;
  int readMode(mode_t& mode) override;
  int changeMode(mode_t mode) override;

 private:
  FileDescriptor object_;
  const FileAcls& acls_;
};

class LinuxPrivilegedObjects final : public PrivilegedObjects {
 public:
  explicit LinuxPrivilegedObjects(const FileAcls& acls) : acls_(acls) {}
  int open(const std::string& path, PathUse use,
           std::unique_ptr<PrivilegedObject>& object) override;

 private:
  const FileAcls& acls_;
};

}  // namespace paddock
