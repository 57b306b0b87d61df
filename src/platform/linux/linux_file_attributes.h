// File attributes of a Linux server: stat(2), chown(2), chmod(2) and the POSIX ACL where a file has
// one.
#pragma once

#include "platform/accounts.h"
#include "platform/file_attributes.h"

namespace paddock {

class LinuxFileAttributes final : public FileAttributeService {
 public:
  // The caller keeps the service alive.
  explicit LinuxFileAttributes(Accounts& accounts) : accounts_(accounts) {}

  int read(const std::string& path, FileAttributes& attributes) override;
  int apply(const std::string& path, const FileAttributeChanges& changes) override;
  bool exists(const std::string& path) override;

 private:
  Accounts& accounts_;
};

}  // namespace paddock
