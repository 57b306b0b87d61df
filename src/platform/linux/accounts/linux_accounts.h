// Accounts of the name service switch, with the records of "/Local" as fallback.
#pragma once

#include "platform/accounts.h"
#include "platform/directory.h"

namespace paddock {

class LinuxAccounts final : public Accounts {
 public:
  // The service must outlive this object.
  explicit LinuxAccounts(DirectoryService& directory) : directory_(directory) {}

  int getpwnam(const std::string& name, std::uint32_t& uid) override;
  int getgrnam(const std::string& name, std::uint32_t& gid) override;
  int getpwuid(std::uint32_t uid, std::string& name) override;
  int getgrgid(std::uint32_t gid, std::string& name) override;
  int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) override;

 private:
  DirectoryService& directory_;
};

}  // namespace paddock
