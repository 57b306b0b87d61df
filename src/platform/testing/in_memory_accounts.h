// Users and groups in memory: the double of the host's accounts.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/accounts.h"

namespace paddock {

class InMemoryAccounts final : public Accounts {
 public:
  // At first "root" is user and group 0.
  InMemoryAccounts();

  void addUser(const std::string& name, std::uint32_t uid);
  // Replaces the group of that name.
  void addGroup(const std::string& name, std::uint32_t gid, std::vector<std::string> members = {});
  void removeGroup(const std::string& name);

  int getpwnam(const std::string& name, std::uint32_t& uid) override;
  int getgrnam(const std::string& name, std::uint32_t& gid) override;
  int getpwuid(std::uint32_t uid, std::string& name) override;
  int getgrgid(std::uint32_t gid, std::string& name) override;
  int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) override;

 private:
  using Names = std::map<std::string, std::uint32_t>;

  Names users_;
  Names groups_;
  std::map<std::string, std::vector<std::string>> members_;
};

}  // namespace paddock
