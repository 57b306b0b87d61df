// Users and groups in memory: the double of the host's accounts.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/accounts.h"
#include "platform/testing/call_rules.h"

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

// Accounts. A failure is the errno, and an id of zero or an empty name. Operations: getpwnam,
// getgrnam, getpwuid, getgrgid (subject: the name or the id), getgrnam_r (detail: the size of its
// buffer).
class ForwardingAccounts final : public Forwarder<Accounts> {
 public:
  using Forwarder::Forwarder;
  int getpwnam(const std::string& name, std::uint32_t& uid) override {
    uid = 0;
    const int error = ask("accounts.getpwnam", {"getpwnam", name, ""});
    return error != 0 ? error : wrapped().getpwnam(name, uid);
  }
  int getgrnam(const std::string& name, std::uint32_t& gid) override {
    gid = 0;
    const int error = ask("accounts.getgrnam", {"getgrnam", name, ""});
    return error != 0 ? error : wrapped().getgrnam(name, gid);
  }
  int getpwuid(std::uint32_t uid, std::string& name) override {
    name.clear();
    const int error = ask("accounts.getpwuid", {"getpwuid", std::to_string(uid), ""});
    return error != 0 ? error : wrapped().getpwuid(uid, name);
  }
  int getgrgid(std::uint32_t gid, std::string& name) override {
    name.clear();
    const int error = ask("accounts.getgrgid", {"getgrgid", std::to_string(gid), ""});
    return error != 0 ? error : wrapped().getgrgid(gid, name);
  }
  int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) override {
    gid = 0;
    const int error = ask("accounts.getgrnam_r", {"getgrnam_r", name, std::to_string(bufferSize)});
    return error != 0 ? error : wrapped().getgrnam_r(name, bufferSize, gid);
  }
};

}  // namespace paddock
