// Extended ACLs by path, in the calls of acl.h.
#pragma once

#include <string>

#include "platform/acl_list.h"
#include "platform/linux/privileges/file_acls.h"

namespace paddock {

class LinuxAcl final : public acl::AclCalls {
 public:
  // The caller keeps it alive.
  explicit LinuxAcl(const FileAcls& acls) : acls_(acls) {}

  acl::List* acl_get_file(const std::string& path, int type) override;
  int acl_set_file(const std::string& path, int type, acl::List* list) override;

 private:
  const FileAcls& acls_;
};

}  // namespace paddock
