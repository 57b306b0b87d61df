// Users and groups by name and by id: getpwnam(3) and its kin. Any thread may call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace paddock {

class Accounts {
 public:
  virtual ~Accounts() = default;
  // 0 and the id or name; an errno with the out value 0 or empty: ENOENT when there is none (also
  // for an empty name and one with a NUL), or what kept the service from finding out.
  virtual int getpwnam(const std::string& name, std::uint32_t& uid) = 0;
  virtual int getgrnam(const std::string& name, std::uint32_t& gid) = 0;
  virtual int getpwuid(std::uint32_t uid, std::string& name) = 0;
  virtual int getgrgid(std::uint32_t gid, std::string& name) = 0;
  // As getgrnam, in a buffer of `bufferSize` bytes: ERANGE when the group's entry, its members'
  // names included, has no room in it (groupEntrySize), or when the host's group file has a longer
  // line before the group's. See getgrnam_r(3).
  virtual int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) = 0;
};

}  // namespace paddock
