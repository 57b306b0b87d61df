#include "platform/testing/in_memory_accounts.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/accounts.h"

namespace paddock {

namespace {

using Names = std::map<std::string, std::uint32_t>;

int idOf(const Names& names, const std::string& name, std::uint32_t& id) {
  const auto found = names.find(name);
  id = found != names.end() ? found->second : 0;
  return found != names.end() ? 0 : ENOENT;
}

int nameOf(const Names& names, std::uint32_t id, std::string& name) {
  const auto found =
      std::find_if(names.begin(), names.end(), [id](const auto& one) { return one.second == id; });
  name = found != names.end() ? found->first : "";
  return found != names.end() ? 0 : ENOENT;
}

}  // namespace

InMemoryAccounts::InMemoryAccounts() {
  addUser("root", 0);
  addGroup("root", 0);
}

void InMemoryAccounts::addUser(const std::string& name, std::uint32_t uid) { users_[name] = uid; }

void InMemoryAccounts::addGroup(const std::string& name, std::uint32_t gid,
                                std::vector<std::string> members) {
  groups_[name] = gid;
  members_[name] = std::move(members);
}

void InMemoryAccounts::removeGroup(const std::string& name) {
  groups_.erase(name);
  members_.erase(name);
}

int InMemoryAccounts::getpwnam(const std::string& name, std::uint32_t& uid) {
  return idOf(users_, name, uid);
}

int InMemoryAccounts::getgrnam(const std::string& name, std::uint32_t& gid) {
  return idOf(groups_, name, gid);
}

int InMemoryAccounts::getpwuid(std::uint32_t uid, std::string& name) {
  return nameOf(users_, uid, name);
}

int InMemoryAccounts::getgrgid(std::uint32_t gid, std::string& name) {
  return nameOf(groups_, gid, name);
}

int InMemoryAccounts::getgrnam_r(const std::string& name, std::size_t bufferSize,
                                 std::uint32_t& gid) {
  if (const int error = idOf(groups_, name, gid); error != 0) return error;
  if (groupEntrySize(name, gid, members_[name]) <= bufferSize) return 0;
  gid = 0;
  return ERANGE;
}

}  // namespace paddock
