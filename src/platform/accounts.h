// Users and groups by name and by id: getpwnam(3) and related calls. Thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace paddock {

class Accounts {
 public:
  virtual ~Accounts() = default;
  // Returns 0 with the id or name, or an errno with the out value 0 or empty: ENOENT when there is
  // none (also for an empty name and one with a NUL), or the error of the service.
  virtual int getpwnam(const std::string& name, std::uint32_t& uid) = 0;
  virtual int getgrnam(const std::string& name, std::uint32_t& gid) = 0;
  virtual int getpwuid(std::uint32_t uid, std::string& name) = 0;
  virtual int getgrgid(std::uint32_t gid, std::string& name) = 0;
  // As getgrnam, in a buffer of `bufferSize` bytes: ERANGE when the group's entry, its members'
  // names included, does not fit (groupEntrySize), or when the host's group file has a longer line
  // before the group's. See getgrnam_r(3).
  virtual int getgrnam_r(const std::string& name, std::size_t bufferSize, std::uint32_t& gid) = 0;
};

// The buffer size of a group's entry for getgrnam_r(3).

// The smallest buffer, in bytes, that the C library finds a group of /etc/group in: its line with
// the end of it, and behind that, aligned, the vector of its members' names.
std::size_t groupEntrySize(const std::string& name, std::uint32_t gid,
                           const std::vector<std::string>& members);

}  // namespace paddock
