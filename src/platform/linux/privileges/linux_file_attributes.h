// File attributes of a Linux server: stat(2), chown(2), chmod(2) and the POSIX ACL where a file has
// one. A change brings the object's extended ACL up to date (FileAcls::refresh); ENOSYS where /proc
// is not mounted.
#pragma once

#include "platform/accounts.h"
#include "platform/file_attributes.h"
#include "platform/linux/privileges/file_acls.h"

namespace paddock {

class LinuxFileAttributes final : public FileAttributeService {
 public:
  // The arguments must outlive this object.
  LinuxFileAttributes(Accounts& accounts, const FileAcls& acls)
      : accounts_(accounts), acls_(acls) {}

  int read(const std::string& path, FileAttributes& attributes) override;
  int apply(const std::string& path, const FileAttributeChanges& changes) override;
  bool exists(const std::string& path) override;
  std::optional<RefusedLink> refusedLink(const std::string& path) override;

 private:
  Accounts& accounts_;
  const FileAcls& acls_;
};

}  // namespace paddock
