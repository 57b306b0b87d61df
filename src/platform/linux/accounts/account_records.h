// The users and groups of the local directory that can be accounts of a host.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/principal.h"
#include "platform/linux/database/local_store.h"

namespace paddock {

// Texts are as the records have them. An attribute that a record does not have is absent; of one
// with several values the first is meant, but of names and members all are.
struct UserRecord {
  std::vector<std::string> names;  // at least one
  std::optional<std::string> id;
  std::optional<std::string> group;
  std::optional<std::string> realName;
  std::optional<std::string> home;
  std::optional<std::string> shell;
  std::optional<std::string> passwordHash;  // see crypt(5)
};

struct GroupRecord {
  std::vector<std::string> names;  // at least one
  std::optional<std::string> id;
  std::vector<std::string> members;
};

// Each in the order in which the records were created.
struct AccountRecords {
  std::vector<UserRecord> users;
  std::vector<GroupRecord> groups;
};

// Throws DirectoryError.
AccountRecords readAccountRecords(LocalStore& store);

// The host's own users and groups, without the accounts exported to it here.
class HostAccounts {
 public:
  virtual ~HostAccounts() = default;
  // The id of the user or group of this name; names are compared byte by byte.
  virtual std::optional<std::uint32_t> idOf(PrincipalType type, const std::string& name) = 0;
  virtual bool has(const Principal& principal) = 0;
};

// The names and ids of lines in the format of passwd(5) or group(5), which both have them in their
// first and third field. Comments, compatibility entries ("+", "-") and lines without an id are
// none.
class AccountLinesIndex {
 public:
  void add(std::string_view lines);
  // The id of the first line of this name.
  std::optional<std::uint32_t> idOf(const std::string& name) const;
  bool has(std::uint32_t id) const { return ids_.contains(id); }

 private:
  std::unordered_map<std::string, std::uint32_t> byName_;
  std::unordered_set<std::uint32_t> ids_;
};

}  // namespace paddock
